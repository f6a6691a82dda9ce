// Updates of many registries stop in one process, each before some call of its own, where their
// threads stay until the process is killed; then the next update of each registry does so, in which
// recovery is. Each registry must show the old or the new content, and work. A process costs much
// where there is no fork: this one dies at hundreds of places at once.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <future>
#include <new>
#include <thread>

#include "proof/children.h"
#include "proof/scenario.h"

namespace {

using proof::Records;
using proof::Scenario;
using proof::Verb;

// How many calls an update makes before it stops, and the next one; that one may run undisturbed.
struct Point {
  std::size_t scenario;
  int first;
  int second;
};
constexpr int undisturbed = -1;
constexpr int callsOfRecovery = 20;  // more than there are beyond those of an update

enum Job { Update, NextUpdate };
constexpr std::size_t mostPoints = 100;  // each keeps files open

// What both processes see.
struct Board {
  bool isShort;
  std::size_t count = 0;
  Point points[mostPoints] = {};
  std::atomic<bool> stopped[mostPoints] = {};
};

Board& board() { return *static_cast<Board*>(proof::sharedMemory(sizeof(Board))); }

std::string placeOf(std::size_t index) { return proof::home + "/" + std::to_string(index); }

const Entry other{"other", 8};

// Memory does not outlive a process.
bool counts(const std::string& call) { return call != "malloc" && call != "free"; }

// Verified: that is the update that sets aside and puts back most.
Code updateNext(const Scenario& scenario) {
  return scenario.flavour->open(proof::registry, 0)->run(Verb::Add, other);
}

// Runs an update in a thread of its own, which stays where it stops. False when it came to an end.
bool stops(Scenario& scenario, int calls, const std::function<Code()>& update) {
  const auto outcome = std::make_shared<std::promise<bool>>();
  int made = 0;
  const FaultHook hook([&](const std::string& call) {
    if (counts(call) && made++ == calls) {
      outcome->set_value(true);
      for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
    }
    return !scenario.links && call == "link" ? EPERM : 0;
  });
  std::thread([update, outcome] {
    (void)update();
    outcome->set_value(false);
  }).detach();
  return outcome->get_future().get();
}

int work(int job) {
  std::vector<Scenario> scenarios = proof::everyScenario("stopped updates", board().isShort);
  for (std::size_t i = 0; i < board().count; ++i) {
    const Point& point = board().points[i];
    if (job == NextUpdate && point.second == undisturbed) continue;
    Scenario& scenario = scenarios[point.scenario];
    proof::workIn(placeOf(i));
    if (job == Update) {
      board().stopped[i] = stops(scenario, point.first, [&] {
        return scenario.open()->run(scenario.verb, scenario.entry);
      });
    } else {
      board().stopped[i] = stops(scenario, point.second, [&] { return updateNext(scenario); });
    }
  }
  killThisProcess();
  return 0;
}

// All that is known of the points of one pair of processes.
struct Batch {
  std::vector<Scenario>& scenarios;
  const std::vector<Point> points;

  void run() {
    const bool isShort = board().isShort;
    Board* const shared = new (&board()) Board{isShort};
    shared->count = points.size();
    std::copy(points.begin(), points.end(), shared->points);
    each([](Scenario& scenario, const Point&, std::size_t) { scenario.prepare(); });
    kill(Update);
    std::vector<Records> found(points.size());
    each([&](Scenario& scenario, const Point& point, std::size_t i) {
      scenario.begin("stopped before call " + std::to_string(point.first + 1));
      scenario.expect(board().stopped[i], "not stopped");
      found[i] = scenario.shows(scenario.after) ? scenario.after : scenario.before;
      const bool isLast = point.second == undisturbed;
      if (isLast) scenario.expectEither(found[i], found[i], *scenario.open());
    });
    kill(NextUpdate);
    each([&](Scenario& scenario, const Point& point, std::size_t i) {
      if (point.second == undisturbed) return;
      scenario.begin("stopped before call " + std::to_string(point.first + 1) +
                     " and, in the next update, " + std::to_string(point.second + 1));
      Records longer = found[i];
      longer.push_back(other);
      const Records& otherwise = board().stopped[i] ? found[i] : longer;
      scenario.expectEither(longer, otherwise, *scenario.open());
    });
    for (std::size_t i = 0; i < points.size(); ++i) std::filesystem::remove_all(placeOf(i));
  }

  void each(const std::function<void(Scenario&, const Point&, std::size_t)>& visit) {
    for (std::size_t i = 0; i < points.size(); ++i) {
      proof::workIn(placeOf(i));
      visit(scenarios[points[i].scenario], points[i], i);
    }
  }

  void kill(Job job) {
    const bool killed = proof::Child(job).wait() == proof::wasKilled;
    scenarios[points.front().scenario].expect(killed, "the process ended before it was killed");
  }
};

// Those of every update, each before each of its calls, and with each of the next one's.
std::vector<Point> everyPoint(std::vector<Scenario>& scenarios) {
  std::vector<Point> points;
  for (std::size_t i = 0; i < scenarios.size(); ++i) {
    Scenario& scenario = scenarios[i];
    // What stops in a large registry stops in the same states as in a small one.
    if (scenario.reads() || scenario.isLarge()) continue;
    const FaultHook hook([&](const std::string& call) {
      const int fault = scenario.disturb ? scenario.disturb(call) : 0;
      return fault == 0 && !scenario.links && call == "link" ? EPERM : fault;
    });
    const std::vector<std::string> made = scenario.calls();
    const auto calls = static_cast<int>(std::count_if(made.begin(), made.end(), counts));
    for (int first = 0; first < calls; ++first) {
      for (int second = undisturbed; second < calls + callsOfRecovery; ++second) {
        points.push_back({i, first, second});
      }
    }
  }
  return points;
}

}  // namespace

int main(int argc, char** argv) {
  proof::takeJobs(work);
  board().isShort = proof::isShort(argc, argv);
  std::vector<Scenario> scenarios = proof::everyScenario("stopped updates", board().isShort);
  // One of so many; a prime number, so that the places differ from update to update.
  const std::size_t stride = board().isShort ? 997 : 61;
  std::vector<Point> batch;
  const std::vector<Point> points = everyPoint(scenarios);
  for (std::size_t i = 0; i < points.size(); i += stride) {
    batch.push_back(points[i]);
    if (batch.size() < mostPoints && i + stride < points.size()) continue;
    Batch{scenarios, batch}.run();
    batch.clear();
  }
  return proof::finish();
}
