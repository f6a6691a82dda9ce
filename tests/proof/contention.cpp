// Processes and threads, each with handles of its own, add, change and delete records of one
// registry while others get and scan: every update returns 0, every record is there exactly once,
// no reader ever fails, nothing is left over. Then others know nothing of the library: those that
// open the registry always find its name, and one that removes the lock file again and again makes
// no acknowledged record disappear.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <future>
#include <map>
#include <new>
#include <thread>

#include "proof/children.h"
#include "proof/scenario.h"

namespace {

using proof::Handle;
using proof::Records;
using proof::Scenario;
using proof::Verb;

constexpr int maxWorkers = 9;
constexpr int maxRounds = 400;

enum class Others { Read, Open, RemoveLocks };

struct Terms {
  int flavour;
  std::uint64_t features;
  Others others;
  int processes;
  int threads;
  int rounds;      // records that each worker adds; it changes all and deletes every other one
  long opens = 0;  // by programs that know nothing of the library
};

// What all processes see.
struct Board {
  Terms terms;
  std::atomic<bool> stop{false};
  std::atomic<bool> added[maxWorkers][maxRounds] = {};  // the Add returned 0
};

Board& board() { return *static_cast<Board*>(proof::sharedMemory(sizeof(Board))); }

const Entry fixed{"fixed", 7};

std::string nameOf(int worker, int round) {
  return "w" + std::to_string(worker) + "x" + std::to_string(round);
}

// By name; without twins there are as many as records.
std::map<std::string, int> valuesOf(const Records& records) {
  std::map<std::string, int> values;
  for (const Entry& record : records) values[record.name] = record.value;
  return values;
}

// Two writers who each believe to be alone meet where names change.
int meet(const std::string& call) {
  if (call == "rename" || call == "link") std::this_thread::yield();
  return 0;
}

bool succeed(const proof::Children& children) {
  bool all = true;
  for (const auto& child : children) all = child->wait() == 0 && all;
  return all;
}

constexpr int firstStranger = -2;  // the jobs: strangers, then the workers

struct Contest {
  const Terms terms = board().terms;
  const Others others = terms.others;
  const Scenario scenario{others == Others::RemoveLocks ? "removed locks"
                          : others == Others::Open      ? "opens by others"
                                                        : "contended updates",
                          flavours::rows + terms.flavour,
                          terms.features,
                          Verb::Add,
                          {}};

  void run() {
    proof::restore({{proof::registry, {scenario.fileOf({fixed}), 1}}});
    proof::Children strangers;
    proof::Children updaters;
    for (int job = firstStranger; job < terms.processes; ++job) {
      (job < 0 ? strangers : updaters).push_back(std::make_unique<proof::Child>(job));
    }
    const FaultHook hook(others == Others::RemoveLocks ? meet
                                                       : [](const std::string&) { return 0; });
    std::vector<std::future<bool>> threaded;
    for (int worker = terms.processes; worker < terms.processes + terms.threads; ++worker) {
      threaded.push_back(std::async(std::launch::async, [this, worker] { return update(worker); }));
    }
    bool all = true;
    for (std::future<bool>& updater : threaded) all = updater.get() && all;
    // Those who have so much to do are waited for; the others go on until then.
    const bool isOpen = others == Others::Open;
    all = succeed(isOpen ? strangers : updaters) && all;
    board().stop = true;
    all = succeed(isOpen ? updaters : strangers) && all;
    scenario.expect(all, "an update, a read or an open failed");
    judge();
  }

  // In a child.
  bool work(int job) const {
    const FaultHook hook(others == Others::RemoveLocks ? meet
                                                       : [](const std::string&) { return 0; });
    return job < 0 ? disturb() : update(job);
  }

  // One worker's updates; whether all that must succeed did.
  bool update(int worker) const {
    const std::unique_ptr<Handle> opened = scenario.open();
    Handle& handle = *opened;
    const bool isOpen = others == Others::Open;
    for (int round = 0; isOpen ? !board().stop : round < terms.rounds; ++round) {
      const std::string name = nameOf(worker, round);
      if (others == Others::RemoveLocks) {
        board().added[worker][round] = handle.run(Verb::Add, {name, 1}) == 0;
        continue;
      }
      const auto work = [&] {
        unsigned int code = handle.run(Verb::Add, {name, 1});
        if (code == 0) code = handle.run(Verb::Change, {name, 2 + round});
        const bool goes = round % 2 != 0 || isOpen;
        return code == 0 && goes ? handle.run(Verb::Delete, {name}) : code;
      };
      if ((isAtOnce(worker) ? handle.inOneUpdate(work) : work()) != 0) return false;
      if (!isOpen) board().added[worker][round] = true;
    }
    return true;
  }

  // Whether a worker's updates of one record are one, of which nobody sees a part.
  static bool isAtOnce(int worker) { return worker % 2 != 0; }

  bool disturb() const {
    bool holds = true;
    for (long i = 0; i < terms.opens / 2; ++i) {
      std::FILE* const file = std::fopen(proof::registry.c_str(), "r");
      holds = file != nullptr && std::fclose(file) == 0 && holds;
    }
    while (others != Others::Open && !board().stop && holds) {
      if (others == Others::Read) holds = read();
      if (others == Others::RemoveLocks) (void)std::remove(proof::lockFile.c_str());
    }
    return holds;
  }

  bool read() const {
    Records found;
    std::size_t count = 0;
    return scenario.open()->run(Verb::Get, fixed) == 0 &&
           scenario.open()->scan(&count, &found) == 0 && count > 0 && found.front() == fixed &&
           valuesOf(found).size() == count &&
           std::none_of(found.begin(), found.end(), [](const Entry& record) {
             return record.value == 1 && record.name[0] == 'w' && isAtOnce(record.name[1] - '0');
           });
  }

  void judge() const {
    std::map<std::string, int> expected{{fixed.name, fixed.value}};
    unsigned long acknowledged = 0;
    for (int worker = 0; worker < terms.processes + terms.threads; ++worker) {
      for (int round = 0; round < terms.rounds; ++round) {
        if (!board().added[worker][round]) continue;
        ++acknowledged;
        if (others == Others::RemoveLocks) expected[nameOf(worker, round)] = 1;
        if (others == Others::Read && round % 2 == 0) expected[nameOf(worker, round)] = 2 + round;
      }
    }
    scenario.count(acknowledged + static_cast<unsigned long>(terms.opens));
    Records found;
    std::size_t count = 0;
    scenario.expect(scenario.open()->scan(&count, &found) == 0, "the last scan failed");
    const std::map<std::string, int> values = valuesOf(found);
    scenario.expect(values.size() == count, "a record is there twice");
    scenario.expect(std::includes(values.begin(), values.end(), expected.begin(), expected.end()),
                    "a record is lost");
    if (others == Others::RemoveLocks) {
      scenario.expect(acknowledged > 0, "no update succeeded");
    } else {
      scenario.expect(values == expected, "a record is there that should not be");
      scenario.expect(proof::files().size() == 1, "a file was left over");
    }
  }
};

void contend(const Terms& terms) {
  new (&board()) Board{terms};
  Contest{}.run();
}

int work(int job) { return Contest{}.work(job) ? 0 : 1; }

}  // namespace

int main(int argc, char** argv) {
  proof::takeJobs(work);
  const bool isShort = proof::isShort(argc, argv);
  // Where processes do not fork, they and what they change take longest.
  const bool isSlow = isShort && lacking(Need::Forks) != nullptr;
  const int processes = isSlow ? 2 : isShort ? 4 : 6;
  const int threads = isShort ? 2 : 3;
  const int rounds = isSlow ? 10 : isShort ? 40 : maxRounds;
  for (int flavour = 0; flavour < static_cast<int>(std::size(flavours::rows)); ++flavour) {
    for (const std::uint64_t features : {std::uint64_t{0}, unverified}) {
      if (isSlow && flavour > 0 && features != 0) continue;
      contend({flavour, features, Others::Read, processes, threads, rounds});
      if (lacking(Need::RemovableLockFiles) != nullptr) continue;
      contend({flavour, features, Others::RemoveLocks, processes, threads, rounds});
    }
  }
  // Names are the same in every flavour.
  if (lacking(Need::StandingName) == nullptr) {
    contend({0, 0, Others::Open, 1, 0, 0, isShort ? 200000 : 10000000});
  }
  return proof::finish();
}
