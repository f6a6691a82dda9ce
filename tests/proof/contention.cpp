// Processes and threads, each with handles of its own, add, change and delete records of one
// registry while others get and scan: every update returns 0, every record is there exactly once,
// no reader ever fails, nothing is left over. Then others know nothing of the library: those that
// open the registry always find its name, and one that removes the lock file again and again makes
// no acknowledged record disappear.
#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <new>
#include <thread>

#include "proof/scenario.h"

namespace {

using proof::Handle;
using proof::Records;
using proof::Scenario;
using proof::Verb;

constexpr int maxWorkers = 9;
constexpr int maxRounds = 400;

struct Size {
  int processes;
  int threads;
  int rounds;      // records that each worker adds; it changes all and deletes every other one
  long opens = 0;  // by programs that know nothing of the library
};

enum class Others { Read, Open, RemoveLocks };

// What all processes see.
struct Board {
  std::atomic<bool> stop{false};
  std::atomic<bool> added[maxWorkers][maxRounds] = {};  // the Add returned 0
};

Board& newBoard() {
  static void* const shared =
      ::mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) std::abort();
  return *new (shared) Board;
}

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

using Processes = std::vector<pid_t>;

void start(Processes& processes, const std::function<bool()>& body) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(body() ? 0 : 1);
  processes.push_back(child);
}

bool succeed(const Processes& processes) {
  bool all = true;
  for (const pid_t child : processes) {
    int status = 0;
    all = ::waitpid(child, &status, 0) == child && status == 0 && all;
  }
  return all;
}

struct Contest {
  Scenario scenario;
  Size size;
  Others others;
  Board& board = newBoard();

  void run() {
    proof::restore({{proof::registry, {scenario.fileOf({fixed}), 1}}});
    // Two writers who each believe to be alone meet where names change.
    const FaultHook yields([this](const std::string& call) {
      const bool meets = others == Others::RemoveLocks && (call == "rename" || call == "link");
      return meets ? ::sched_yield() : 0;
    });
    Processes strangers;
    Processes updaters;
    for (int i = 0; i < 2; ++i) start(strangers, [this] { return disturb(); });
    for (int worker = 0; worker < size.processes; ++worker) {
      start(updaters, [&] { return update(*scenario.open(), worker); });
    }
    std::atomic<bool> threadsSucceed{true};
    std::vector<std::thread> threads;
    for (int worker = size.processes; worker < size.processes + size.threads; ++worker) {
      threads.emplace_back([&, worker, handle = scenario.open()] {
        if (!update(*handle, worker)) threadsSucceed = false;
      });
    }
    for (std::thread& thread : threads) thread.join();
    // Those who have so much to do are waited for; the others go on until then.
    const bool isOpen = others == Others::Open;
    const bool first = succeed(isOpen ? strangers : updaters);
    board.stop = true;
    const bool all = succeed(isOpen ? updaters : strangers) && first && threadsSucceed;
    scenario.expect(all, "an update, a read or an open failed");
    judge();
  }

  // One worker's updates; whether all that must succeed did.
  bool update(Handle& handle, int worker) {
    const bool isOpen = others == Others::Open;
    for (int round = 0; isOpen ? !board.stop : round < size.rounds; ++round) {
      const std::string name = nameOf(worker, round);
      const bool added = handle.run(Verb::Add, {name, 1}) == 0;
      if (!isOpen) board.added[worker][round] = added;
      if (others == Others::RemoveLocks) continue;
      if (!added || handle.run(Verb::Change, {name, 2 + round}) != 0) return false;
      const bool goes = round % 2 != 0 || isOpen;
      if (goes && handle.run(Verb::Delete, {name}) != 0) return false;
    }
    return true;
  }

  bool disturb() const {
    bool holds = true;
    for (long i = 0; i < size.opens / 2; ++i) holds = open() && holds;
    while (others != Others::Open && !board.stop && holds) {
      if (others == Others::Read) holds = read();
      if (others == Others::RemoveLocks) (void)::unlink(proof::lockFile.c_str());
    }
    return holds;
  }

  static bool open() {
    const int descriptor = ::open(proof::registry.c_str(), O_RDONLY | O_CLOEXEC);
    return ::close(descriptor) == 0;
  }

  bool read() const {
    Records found;
    std::size_t count = 0;
    return scenario.open()->run(Verb::Get, fixed) == 0 &&
           scenario.open()->scan(&count, &found) == 0 && count > 0 && found.front() == fixed &&
           valuesOf(found).size() == count;
  }

  void judge() {
    std::map<std::string, int> expected{{fixed.name, fixed.value}};
    unsigned long acknowledged = 0;
    for (int worker = 0; worker < size.processes + size.threads; ++worker) {
      for (int round = 0; round < size.rounds; ++round) {
        if (!board.added[worker][round]) continue;
        ++acknowledged;
        if (others == Others::RemoveLocks) expected[nameOf(worker, round)] = 1;
        if (others == Others::Read && round % 2 == 0) expected[nameOf(worker, round)] = 2 + round;
      }
    }
    scenario.count(acknowledged + static_cast<unsigned long>(size.opens));
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

}  // namespace

int main(int argc, char** argv) {
  const bool isShort = proof::isShort(argc, argv);
  const Size size = isShort ? Size{4, 2, 40} : Size{6, 3, maxRounds};
  for (const flavours::Row& flavour : flavours::rows) {
    for (const std::uint64_t features : {std::uint64_t{0}, unverified}) {
      const auto contend = [&](const char* proof, Others others) {
        Contest{{proof, &flavour, features, Verb::Add, {}}, size, others}.run();
      };
      contend("contended updates", Others::Read);
      contend("removed locks", Others::RemoveLocks);
    }
  }
  // Names are the same in every flavour.
  const Size opens{1, 0, 0, isShort ? 200000 : 10000000};
  Contest{{"opens by others", flavours::rows, 0, Verb::Add, {}}, opens, Others::Open}.run();
  return proof::finish();
}
