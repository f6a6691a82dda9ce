// Processes and threads, each with handles of its own, add, change and delete records of one
// registry while others get and scan: every update returns 0, every record is there exactly once,
// no reader ever fails, nothing is left over. Then others know nothing of the library: those that
// open the registry always find its name, and one that removes the lock file again and again makes
// no acknowledged record disappear.
// usage: contention [--short] [--opens N]
#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <new>
#include <thread>

#include "proof/scenario.h"

namespace {

using proof::Handle;
using proof::Records;
using proof::Verb;

constexpr int maxWorkers = 9;
constexpr int maxRounds = 400;

struct Size {
  int processes;
  int threads;
  int rounds;  // records that each worker adds; it changes all and deletes every other one
  long opens;  // by programs that know nothing of the library
};

enum class Others { Read, Open, RemoveLocks };

// What all processes see.
struct Board {
  std::atomic<bool> stop{false};
  std::atomic<int> opening{0};  // processes
  std::atomic<long> missing{0};
  std::atomic<bool> added[maxWorkers][maxRounds] = {};  // the Add returned 0
};

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

void start(std::vector<pid_t>& children, const std::function<bool()>& body) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(body() ? 0 : 1);
  children.push_back(child);
}

bool succeed(const std::vector<pid_t>& children) {
  bool all = true;
  for (const pid_t child : children) {
    int status = 0;
    all = ::waitpid(child, &status, 0) == child && status == 0 && all;
  }
  return all;
}

class Contest {
 public:
  Contest(const flavours::Row& flavour, std::uint64_t features, const Size& size, Others others,
          proof::Report& report)
      : size_(size), others_(others), report_(report) {
    scenario_ = {&flavour, features, true, proof::Start::Clean, Verb::Add, {}};
    void* const shared =
        ::mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) std::abort();
    board_ = new (shared) Board;
  }
  ~Contest() { (void)::munmap(board_, sizeof *board_); }
  Contest(const Contest&) = delete;
  Contest& operator=(const Contest&) = delete;

  void run() {
    proof::restore({{proof::registry(), scenario_.fileOf({fixed}), 0}});
    board_->opening = others_ == Others::Open ? 2 : 0;
    // Two writers who each believe to be alone meet where names change.
    const FaultHook yields([this](const std::string& call) {
      const bool meets = others_ == Others::RemoveLocks && (call == "rename" || call == "link");
      return meets ? ::sched_yield() : 0;
    });
    std::vector<pid_t> others;
    std::vector<pid_t> updaters;
    for (int i = 0; i < 2; ++i) start(others, [&] { return disturb(); });
    for (int worker = 0; worker < size_.processes; ++worker) {
      start(updaters, [&, worker] { return update(*scenario_.open(), worker); });
    }
    std::atomic<int> failed{0};
    std::vector<std::thread> threads;
    for (int worker = size_.processes; worker < size_.processes + size_.threads; ++worker) {
      threads.emplace_back(
          [&, worker, handle = scenario_.open()] { failed += update(*handle, worker) ? 0 : 1; });
    }
    for (std::thread& thread : threads) thread.join();
    expect(failed == 0, "an update in a thread failed");
    expect(succeed(updaters), "an update in a process failed");
    board_->stop = true;
    expect(succeed(others), "a reader failed");
    judge();
  }

 private:
  // One worker's updates; whether all that must succeed did.
  bool update(Handle& handle, int worker) {
    for (int round = 0; round < size_.rounds || board_->opening > 0; ++round) {
      const std::string name = nameOf(worker, round);
      const bool added = handle.run(Verb::Add, {name, 1}) == 0;
      if (round < maxRounds) board_->added[worker][round] = added;
      if (others_ == Others::RemoveLocks) continue;
      if (!added || handle.run(Verb::Change, {name, 2 + round}) != 0) return false;
      const bool goes = round % 2 != 0 || others_ == Others::Open;
      if (goes && handle.run(Verb::Delete, {name}) != 0) return false;
    }
    return true;
  }

  bool disturb() {
    if (others_ == Others::Open) return openPlainly();
    const std::string lock = proof::lockFile();
    while (!board_->stop) {
      if (others_ == Others::RemoveLocks) {
        (void)::unlink(lock.c_str());
      } else if (!read()) {
        return false;
      }
    }
    return true;
  }

  bool read() const {
    Records found;
    std::size_t count = 0;
    return scenario_.open()->run(Verb::Get, fixed) == 0 &&
           scenario_.open()->scan(&count, &found) == 0 && count > 0 && found.front() == fixed &&
           valuesOf(found).size() == count;
  }

  bool openPlainly() {
    const std::string& registry = proof::registry();
    for (long i = 0; i < size_.opens / 2; ++i) {
      const int descriptor = ::open(registry.c_str(), O_RDONLY | O_CLOEXEC);
      if (descriptor < 0) ++board_->missing;
      (void)::close(descriptor);
    }
    --board_->opening;
    return true;
  }

  void judge() {
    Records found;
    std::size_t count = 0;
    expect(scenario_.open()->scan(&count, &found) == 0, "the last scan failed");
    std::map<std::string, int> values = valuesOf(found);
    expect(values.size() == count && values["fixed"] == fixed.value, "the records");
    const bool isRead = others_ == Others::Read;
    unsigned long acknowledged = 0;
    unsigned long lost = 0;
    for (int worker = 0; worker < size_.processes + size_.threads; ++worker) {
      for (int round = 0; round < size_.rounds; ++round) {
        if (!board_->added[worker][round]) continue;
        ++acknowledged;
        if (isRead && round % 2 != 0) continue;
        const auto standing = values.find(nameOf(worker, round));
        const bool stands = standing != values.end();
        lost += stands && standing->second == (isRead ? 2 + round : 1) ? 0 : 1;
        if (stands) values.erase(standing);
      }
    }
    const bool isOpen = others_ == Others::Open;
    report_.count(scenario_, isOpen ? static_cast<unsigned long>(size_.opens) : acknowledged);
    report_.expect(lost == 0 && (acknowledged > 0 || isOpen), scenario_,
                   std::to_string(lost) + " of " + std::to_string(acknowledged) + " records lost");
    report_.expect(board_->missing == 0, scenario_,
                   std::to_string(board_->missing) + " opens did not find the registry");
    if (others_ == Others::RemoveLocks) return;
    expect(values.size() == 1, "a record is there that should not be");
    expect(proof::files().size() == 1, "a file was left over");
  }

  void expect(bool holds, const char* what) const { report_.expect(holds, scenario_, what); }

  proof::Scenario scenario_;
  const Size& size_;
  Others others_;
  proof::Report& report_;
  Board* board_;
};

}  // namespace

int main(int argc, char** argv) {
  const bool isShort = proof::isShort(argc, argv);
  Size size = isShort ? Size{4, 2, 40, 200000} : Size{6, 3, maxRounds, 10000000};
  char** const given = std::find(argv, argv + argc, std::string("--opens"));
  if (argv + argc - given > 1) size.opens = std::strtol(given[1], nullptr, 10);
  proof::Report updates("contended updates");
  proof::Report opens("opens by others");
  proof::Report removals("removed locks");
  for (const flavours::Row& flavour : flavours::rows) {
    for (const std::uint64_t features : {std::uint64_t{0}, unverified}) {
      Contest(flavour, features, size, Others::Read, updates).run();
      Contest(flavour, features, size, Others::RemoveLocks, removals).run();
    }
  }
  // Names are the same in every flavour.
  const Size one{1, 0, 0, size.opens};
  Contest(flavours::rows[0], 0, one, Others::Open, opens).run();
  bool holds = true;
  for (const proof::Report* report : {&updates, &opens, &removals}) holds &= report->finish();
  return holds ? 0 : 1;
}
