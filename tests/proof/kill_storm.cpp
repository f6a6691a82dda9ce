// Writers, each of whose threads counts up in a record of its own and in a twin of it, both by one
// update, are killed at random moments and started again, while readers get and scan. No reader
// fails, misses what had been acknowledged before it asked, sees an older record than before, or
// half an update; and in the end every count is there, and nothing else but what people find.
#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <map>
#include <new>
#include <random>
#include <thread>

#include "proof/children.h"
#include "proof/scenario.h"

namespace {

using proof::Records;
using proof::Scenario;
using proof::Verb;

constexpr int writers = 3;
constexpr int threads = 3;  // of each writer
constexpr int counters = writers * threads;
constexpr int readers = 2;

// What all processes see.
struct Board {
  int flavour;
  std::atomic<bool> stop{false};
  std::atomic<int> acknowledged[counters] = {};
  std::atomic<unsigned long> scans{0};
};

Board& board() { return *static_cast<Board*>(proof::sharedMemory(sizeof(Board))); }

using Counts = std::array<int, counters>;

Entry counter(int index, int count) { return {"c" + std::to_string(index), count}; }
Entry twin(int index, int count) { return {"t" + std::to_string(index), count}; }

struct Storm {
  const Scenario scenario{"killed writers", flavours::rows + board().flavour, 0, Verb::Change, {}};

  // The jobs of writers come before those of readers.
  bool work(int job) const {
    if (job >= writers) return read();
    // They are to be killed in the midst of a commit more often than elsewhere.
    const FaultHook hook([](const std::string& call) {
      if (call == "rename" || call == "unlink") pause(1000);
      return 0;
    });
    std::vector<std::future<bool>> counting;
    for (int i = job * threads; i < (job + 1) * threads; ++i) {
      counting.push_back(std::async(std::launch::async, [this, i] { return count(i); }));
    }
    bool all = true;
    for (std::future<bool>& each : counting) all = each.get() && all;
    return all;
  }

  bool count(int index) const {
    const auto handle = scenario.open();
    if (handle->run(Verb::Get, counter(index, 1)) != 0) return false;
    for (int next = handle->found().value + 1; !board().stop; ++next) {
      const Code code = handle->inOneUpdate([&] {
        const Code first = handle->run(Verb::Change, counter(index, next));
        return first == 0 ? handle->run(Verb::Change, twin(index, next)) : first;
      });
      if (code != 0) return false;
      board().acknowledged[index] = next;
    }
    return true;
  }

  // Whether the registry shows whole updates, none older than `oldest`, which it then brings up to
  // date.
  bool isNoOlder(Counts& oldest) const {
    Records found;
    std::size_t size = 0;
    if (scenario.open()->scan(&size, &found) != 0 || size != 2 * counters) return false;
    std::map<std::string, int> values;
    for (const Entry& record : found) values[record.name] = record.value;
    for (int i = 0; i < counters; ++i) {
      const int value = values[counter(i, 0).name];
      const auto index = static_cast<std::size_t>(i);
      if (value != values[twin(i, 0).name] || value < oldest[index]) return false;
      oldest[index] = value;
    }
    return true;
  }

  bool read() const {
    Counts oldest{};
    while (!board().stop) {
      for (int i = 0; i < counters; ++i) {
        const auto index = static_cast<std::size_t>(i);
        oldest[index] = std::max<int>(oldest[index], board().acknowledged[i]);
      }
      if (!isNoOlder(oldest)) return false;
      const auto handle = scenario.open();
      if (handle->run(Verb::Get, counter(0, 1)) != 0) return false;
      if (handle->found().value < oldest[0]) return false;
      ++board().scans;
    }
    return true;
  }

  void rage(int kills) const {
    Records records;
    for (int i = 0; i < counters; ++i) {
      for (const Entry& record : {counter(i, 1), twin(i, 1)}) records.push_back(record);
    }
    proof::restore({{proof::registry, {scenario.fileOf(records), 1}}});
    proof::Children children;
    for (int job = 0; job < writers + readers; ++job) {
      children.push_back(std::make_unique<proof::Child>(job));
    }
    std::minstd_rand random(1);
    bool all = true;
    for (int i = 0; i < kills && all; ++i) {
      const auto victim = static_cast<int>(random() % writers);
      // It must be at work, but nobody waits for ever for one that is not.
      const int before = sumOf(victim);
      for (int tries = 0; sumOf(victim) == before && tries < 30000; ++tries) pause(1000);
      all = all && sumOf(victim) != before;
      pause(random() % 8000);
      auto& child = children[static_cast<std::size_t>(victim)];
      child->kill();
      child = std::make_unique<proof::Child>(victim);
    }
    board().stop = true;
    for (const auto& child : children) all = child->wait() == 0 && all;
    scenario.count(static_cast<unsigned long>(kills));
    scenario.expect(all, "an update or a read failed, or somebody stood still");
    judge();
  }

  static int sumOf(int writer) {
    int sum = 0;
    for (int i = 0; i < threads; ++i) sum += board().acknowledged[writer * threads + i];
    return sum;
  }

  static void pause(unsigned long microseconds) {
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
  }

  void judge() const {
    Counts acknowledged{};
    int updates = 0;
    for (int i = 0; i < counters; ++i) {
      acknowledged[static_cast<std::size_t>(i)] = board().acknowledged[i];
      updates += board().acknowledged[i];
    }
    scenario.expect(isNoOlder(acknowledged), "an acknowledged update is lost");
    scenario.expect(scenario.open()->run(Verb::Add, {"next", 9}) == 0, "the next update");
    for (const auto& [name, file] : proof::files()) {
      const bool isKnown = name == proof::registry || name == proof::corrupt;
      scenario.expect(isKnown, "left over: " + name);
    }
    std::fprintf(stderr, "%s: %d updates, %lu scans\n", scenario.flavour->name, updates,
                 board().scans.load());
  }
};

int work(int job) { return Storm{}.work(job) ? 0 : 1; }

}  // namespace

int main(int argc, char** argv) {
  proof::takeJobs(work);
  const int kills = proof::isShort(argc, argv) ? 15 : 500;
  for (int flavour = 0; flavour < static_cast<int>(std::size(flavours::rows)); ++flavour) {
    new (&board()) Board{flavour};
    Storm{}.rage(kills);
  }
  return proof::finish();
}
