// Processes and threads, each with handles of its own, add, change and delete records of one
// registry while others get and scan: every update returns 0, every record is there exactly once,
// no reader ever fails, nothing is left over. Beside such updates, programs that know nothing of
// the library always find the registry's name, and one that removes the lock file again and again
// makes no acknowledged record disappear.
// usage: contention [--short] [--opens N]
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <new>
#include <set>
#include <thread>

#include "proof/scenario.h"

namespace {

using proof::Flavour;
using proof::Records;
using proof::Scenario;
using proof::Verb;

struct Size {
  int processes;
  int threads;
  int rounds;           // records that each worker adds; it changes all and deletes every other one
  unsigned long opens;  // by programs that know nothing of the library
};

const proof::Record fixed{"fixed", 7};

std::string nameOf(int worker, int round) {
  return "w" + std::to_string(worker) + "x" + std::to_string(round);
}

// One worker's updates; 0 when each returned 0.
int update(proof::Handle& handle, int worker, int rounds) {
  for (int round = 0; round < rounds; ++round) {
    const std::string name = nameOf(worker, round);
    if (handle.run({Verb::Add, name.c_str(), 1}) != 0) return 1;
    if (handle.run({Verb::Change, name.c_str(), 2 + round}) != 0) return 2;
    if (round % 2 != 0 && handle.run({Verb::Delete, name.c_str()}) != 0) return 3;
  }
  return 0;
}

Records expected(const Size& size) {
  Records records{fixed};
  for (int worker = 0; worker < size.processes + size.threads; ++worker) {
    for (int round = 0; round < size.rounds; round += 2) {
      records.emplace_back(nameOf(worker, round), 2 + round);
    }
  }
  std::sort(records.begin(), records.end());
  return records;
}

std::set<std::string> namesOf(const Records& records) {
  std::set<std::string> names;
  for (const proof::Record& record : records) names.insert(record.first);
  return names;
}

// What all processes see.
struct Board {
  std::atomic<bool> stop{false};
  std::atomic<unsigned long> missing{0};
  std::atomic<bool> added[4][1000] = {};  // records whose Add returned 0, by worker and round
};

// 0 when no read failed.
int readUntilStop(const Flavour& flavour, std::uint64_t features, const Board& board) {
  while (!board.stop) {
    if (flavour.open(features)->run({Verb::Get, "fixed"}) != 0) return 1;
    Records found;
    if (flavour.open(features)->scan(&found) != 0) return 2;
    if (found.empty() || found.front() != fixed) return 3;
    if (namesOf(found).size() != found.size()) return 4;
  }
  return 0;
}

// Processes, each of which runs one function and ends with its result.
class Processes {
 public:
  void start(const std::function<int()>& body) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(body());
    children_.push_back(child);
  }
  // Waits for all; whether each ended with 0.
  bool succeed() {
    bool all = true;
    for (const pid_t child : children_) {
      int status = 0;
      all = ::waitpid(child, &status, 0) == child && status == 0 && all;
    }
    children_.clear();
    return all;
  }

 private:
  std::vector<pid_t> children_;
};

class Contest {
 public:
  Contest(const Flavour& flavour, std::uint64_t features, const Size& size)
      : flavour_(flavour), features_(features), size_(size) {
    void* const shared =
        ::mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) std::abort();
    board_ = new (shared) Board;
    proof::restore({{proof::registry(), flavour.stored(fixed), ""}});
  }
  ~Contest() { (void)::munmap(board_, sizeof *board_); }
  Contest(const Contest&) = delete;
  Contest& operator=(const Contest&) = delete;

  void updates(proof::Report& report) {
    Processes readers;
    Processes updaters;
    for (int reader = 0; reader < 2; ++reader) {
      readers.start([&] { return readUntilStop(flavour_, features_, *board_); });
    }
    for (int worker = 0; worker < size_.processes; ++worker) {
      updaters.start([&, worker] { return update(*open(), worker, size_.rounds); });
    }
    std::atomic<int> failed{0};
    std::vector<std::thread> threads;
    for (int worker = size_.processes; worker < size_.processes + size_.threads; ++worker) {
      threads.emplace_back(
          [&, worker, handle = open()] { failed += update(*handle, worker, size_.rounds) != 0; });
    }
    for (std::thread& thread : threads) thread.join();
    const auto expect = [&](bool holds, const char* what) {
      report.expect(holds, scenario(Verb::Add), [=] { return std::string(what); });
    };
    expect(failed == 0, "an update in a thread failed");
    expect(updaters.succeed(), "an update in a process failed");
    board_->stop = true;
    expect(readers.succeed(), "a reader failed");

    Records found;
    const Code code = open()->scan(&found);
    std::sort(found.begin(), found.end());
    expect(code == 0 && found == expected(size_), "the records are not those of the updates");
    expect(proof::files().size() == 1, "a file was left over");
    const auto workers = static_cast<unsigned long>(size_.processes + size_.threads);
    const auto rounds = static_cast<unsigned long>(size_.rounds);
    report.count(scenario(Verb::Add), workers * rounds);
    report.count(scenario(Verb::Change), workers * rounds);
    report.count(scenario(Verb::Delete), workers * (rounds / 2));
  }

  void opens(proof::Report& report) {
    constexpr unsigned long processes = 2;
    Processes others;
    Processes updater;
    updater.start([&] {
      const auto handle = open();
      int failed = 0;
      while (!board_->stop && failed == 0) failed = update(*handle, 0, 2) | undo(*handle);
      return failed;
    });
    const std::string registry = proof::registry();
    for (unsigned long process = 0; process < processes; ++process) {
      others.start([&] {
        for (unsigned long i = 0; i < size_.opens / processes; ++i) {
          const int descriptor = ::open(registry.c_str(), O_RDONLY | O_CLOEXEC);
          if (descriptor < 0) ++board_->missing;
          (void)::close(descriptor);
        }
        return 0;
      });
    }
    const bool opened = others.succeed();
    board_->stop = true;
    report.count(scenario(Verb::Add), size_.opens);
    report.expect(updater.succeed() && opened && board_->missing == 0, scenario(Verb::Add), [&] {
      return std::to_string(board_->missing) + " opens did not find the registry";
    });
  }

  void removedLocks(proof::Report& report) {
    const int workers = std::min(size_.processes, 4);
    Processes adders;
    Processes remover;
    remover.start([&] {
      const std::string lock = proof::lockFile();
      while (!board_->stop) (void)::unlink(lock.c_str());
      return 0;
    });
    for (int worker = 0; worker < workers; ++worker) {
      adders.start([&, worker] {
        const auto handle = open();
        for (int round = 0; round < size_.rounds; ++round) {
          const std::string name = nameOf(worker, round);
          board_->added[worker][round] = handle->run({Verb::Add, name.c_str(), 1}) == 0;
        }
        return 0;
      });
    }
    bool holds = adders.succeed();
    board_->stop = true;
    holds = remover.succeed() && holds;

    Records found;
    holds = open()->scan(&found) == 0 && holds;
    const std::set<std::string> names = namesOf(found);
    unsigned long acknowledged = 0;
    unsigned long lost = 0;
    for (int worker = 0; worker < workers; ++worker) {
      for (int round = 0; round < size_.rounds; ++round) {
        if (!board_->added[worker][round]) continue;
        ++acknowledged;
        lost += names.count(nameOf(worker, round)) == 0 ? 1 : 0;
      }
    }
    report.count(scenario(Verb::Add), acknowledged);
    report.expect(holds && acknowledged > 0 && lost == 0, scenario(Verb::Add), [=] {
      return std::to_string(lost) + " of " + std::to_string(acknowledged) + " records lost";
    });
  }

 private:
  std::unique_ptr<proof::Handle> open() const { return flavour_.open(features_); }
  Scenario scenario(Verb verb) const {
    const bool inPlace = features_ == unverified && verb == Verb::Add;
    return {&flavour_, features_, inPlace, true, proof::Start::Clean, {verb}};
  }
  // Deletes what two rounds of updates left.
  static int undo(proof::Handle& handle) {
    return handle.run({Verb::Delete, nameOf(0, 0).c_str()}) == 0 ? 0 : 1;
  }

  const Flavour& flavour_;
  std::uint64_t features_;
  const Size& size_;
  Board* board_;
};

}  // namespace

int main(int argc, char** argv) {
  Size size = proof::isShort(argc, argv) ? Size{4, 2, 40, 20000} : Size{6, 3, 400, 10000000};
  char** const given = std::find(argv, argv + argc, std::string("--opens"));
  if (argv + argc - given > 1) size.opens = std::strtoul(given[1], nullptr, 10);
  proof::Report updates("contended updates");
  proof::Report opens("opens by others");
  proof::Report removals("removed locks");
  for (const Flavour& flavour : proof::flavours) {
    for (const std::uint64_t features : {std::uint64_t{0}, unverified}) {
      Contest(flavour, features, size).updates(updates);
      Contest(flavour, features, size).removedLocks(removals);
    }
  }
  // A name is a name in every flavour.
  Contest(proof::flavours[0], 0, size).opens(opens);
  const bool updated = updates.finish();
  const bool opened = opens.finish();
  return removals.finish() && opened && updated ? 0 : 1;
}
