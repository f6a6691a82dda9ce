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
#include <future>
#include <map>
#include <new>

#include "proof/scenario.h"

namespace {

using proof::Handle;
using proof::Records;
using proof::Scenario;
using proof::Verb;

constexpr int maxWorkers = 9;
constexpr int maxRounds = 400;

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

using Children = std::vector<pid_t>;

void start(Children& children, const std::function<bool()>& body) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(body() ? 0 : 1);
  children.push_back(child);
}

bool succeed(const Children& children) {
  bool all = true;
  for (const pid_t child : children) {
    int status = 0;
    all = ::waitpid(child, &status, 0) == child && status == 0 && all;
  }
  return all;
}

struct Contest {
  Scenario scenario;
  Others others;
  int processes;
  int threads;
  int rounds;      // records that each worker adds; it changes all and deletes every other one
  long opens = 0;  // by programs that know nothing of the library
  Board& board = newBoard();

  void run() {
    proof::restore({{proof::registry, {scenario.fileOf({fixed}), 1}}});
    // Two writers who each believe to be alone meet where names change.
    const FaultHook yields([this](const std::string& call) {
      const bool meets = others == Others::RemoveLocks && (call == "rename" || call == "link");
      return meets ? ::sched_yield() : 0;
    });
    Children strangers;
    Children updaters;
    for (int i = 0; i < 2; ++i) start(strangers, [this] { return disturb(); });
    for (int worker = 0; worker < processes; ++worker) {
      start(updaters, [&] { return update(*scenario.open(), worker); });
    }
    std::vector<std::future<bool>> threaded;
    for (int worker = processes; worker < processes + threads; ++worker) {
      threaded.push_back(std::async(std::launch::async, [this, worker, handle = scenario.open()] {
        return update(*handle, worker);
      }));
    }
    bool all = true;
    for (std::future<bool>& updater : threaded) all = updater.get() && all;
    // Those who have so much to do are waited for; the others go on until then.
    const bool isOpen = others == Others::Open;
    all = succeed(isOpen ? strangers : updaters) && all;
    board.stop = true;
    all = succeed(isOpen ? updaters : strangers) && all;
    scenario.expect(all, "an update, a read or an open failed");
    judge();
  }

  // One worker's updates; whether all that must succeed did.
  bool update(Handle& handle, int worker) {
    const bool isOpen = others == Others::Open;
    for (int round = 0; isOpen ? !board.stop : round < rounds; ++round) {
      const std::string name = nameOf(worker, round);
      if (others == Others::RemoveLocks) {
        board.added[worker][round] = handle.run(Verb::Add, {name, 1}) == 0;
        continue;
      }
      const auto work = [&] {
        unsigned int code = handle.run(Verb::Add, {name, 1});
        if (code == 0) code = handle.run(Verb::Change, {name, 2 + round});
        const bool goes = round % 2 != 0 || isOpen;
        return code == 0 && goes ? handle.run(Verb::Delete, {name}) : code;
      };
      if ((isAtOnce(worker) ? handle.inOneUpdate(work) : work()) != 0) return false;
      if (!isOpen) board.added[worker][round] = true;
    }
    return true;
  }

  // Whether a worker's updates of one record are one, of which nobody sees a part.
  static bool isAtOnce(int worker) { return worker % 2 != 0; }

  bool disturb() const {
    bool holds = true;
    for (long i = 0; i < opens / 2; ++i) {
      holds = ::close(::open(proof::registry.c_str(), O_RDONLY | O_CLOEXEC)) == 0 && holds;
    }
    while (others != Others::Open && !board.stop && holds) {
      if (others == Others::Read) holds = read();
      if (others == Others::RemoveLocks) (void)::unlink(proof::lockFile.c_str());
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

  void judge() {
    std::map<std::string, int> expected{{fixed.name, fixed.value}};
    unsigned long acknowledged = 0;
    for (int worker = 0; worker < processes + threads; ++worker) {
      for (int round = 0; round < rounds; ++round) {
        if (!board.added[worker][round]) continue;
        ++acknowledged;
        if (others == Others::RemoveLocks) expected[nameOf(worker, round)] = 1;
        if (others == Others::Read && round % 2 == 0) expected[nameOf(worker, round)] = 2 + round;
      }
    }
    scenario.count(acknowledged + static_cast<unsigned long>(opens));
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
  for (const flavours::Row& flavour : flavours::rows) {
    for (const std::uint64_t features : {std::uint64_t{0}, unverified}) {
      const auto contend = [&](const char* proof, Others others) {
        const Scenario scenario{proof, &flavour, features, Verb::Add, {}};
        Contest{scenario, others, isShort ? 4 : 6, isShort ? 2 : 3, isShort ? 40 : maxRounds}.run();
      };
      contend("contended updates", Others::Read);
      contend("removed locks", Others::RemoveLocks);
    }
  }
  // Names are the same in every flavour.
  const Scenario scenario{"opens by others", flavours::rows, 0, Verb::Add, {}};
  Contest{scenario, Others::Open, 1, 0, 0, isShort ? 200000 : 10000000}.run();
  return proof::finish();
}
