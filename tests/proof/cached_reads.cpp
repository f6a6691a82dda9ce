// Readers that keep what they have read never answer with something older than what was
// acknowledged before they asked: beside a writer that changes the registry by renaming, appends to
// it in place, and writes into it by hand without changing its size; in bursts, and with pauses in
// which what is kept may be trusted.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <new>
#include <random>
#include <thread>

#include "proof/scenario.h"

namespace {

using proof::Handle;
using proof::Scenario;
using proof::Verb;

constexpr int readers = 3;

// What all processes see.
struct Board {
  std::atomic<int> value{0};  // acknowledged, of the record "v"
  std::atomic<int> added{0};  // the records "a1" to "aN" are acknowledged
  std::atomic<bool> stop{false};
  std::atomic<unsigned long> reads{0};
};

Board& newBoard() {
  static void* const shared =
      ::mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) std::abort();
  return *new (shared) Board;
}

std::string nameOf(int index) { return "a" + std::to_string(index); }
// The first record of the file; of five digits, so that its size stays the same.
Entry valued(int value) { return {"v", 10000 + value}; }

struct Contest {
  const Scenario& scenario;
  int rounds;
  Board& board = newBoard();

  void run() {
    proof::restore({{proof::registry, {scenario.fileOf({valued(0), {"w", 10000}}), 1}}});
    pid_t children[readers];
    for (int i = 0; i < readers; ++i) {
      children[i] = ::fork();
      if (children[i] == 0) ::_exit(read(i % 2 != 0) ? 0 : 1);
    }
    const bool written = write();
    scenario.expect(written, "an update failed");
    board.stop = true;
    for (const pid_t child : children) {
      int status = 0;
      scenario.expect(::waitpid(child, &status, 0) == child && status == 0,
                      "a read was older than what had been acknowledged, or failed");
    }
    scenario.count(board.reads);
  }

  bool write() {
    std::mt19937 random(1);
    const auto changing = scenario.open();
    const auto appending = scenario.flavour->open(proof::registry, unverified);
    for (int round = 1; round <= rounds; ++round) {
      const unsigned int what = random() % 4;
      bool done = false;
      if (what == 0) {
        done = appending->run(Verb::Add, {nameOf(board.added + 1), 10000}) == 0;
        if (done) ++board.added;
      } else {
        // By hand a single byte changes, of which no reader can see a part.
        const bool carries = board.value % 10 == 9;
        done = what == 1 || carries ? changing->run(Verb::Change, valued(board.value + 1)) == 0
                                    : byHand();
        if (done) ++board.value;
      }
      if (!done) return false;
      if (random() % 16 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(60));
    }
    return true;
  }

  // The new record's bytes over the old one's, which stand first in the file.
  bool byHand() const {
    const std::string bytes = scenario.flavour->stored(valued(board.value + 1));
    const int file = ::open(proof::registry.c_str(), O_WRONLY | O_CLOEXEC);
    const bool written =
        ::pwrite(file, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size());
    return ::close(file) == 0 && written;
  }

  bool read(bool scans) const {
    const auto handle = scenario.open();
    handle->keepReads();
    for (unsigned long count = 1; !board.stop; ++count) {
      const int value = board.value;
      const int added = board.added;
      if (scans && count % 8 == 0) {
        std::size_t records = 0;
        if (handle->scan(&records) != 0 || records < static_cast<std::size_t>(added) + 2)
          return false;
      } else if (handle->run(Verb::Get, valued(0)) != 0 ||
                 handle->found().value < valued(value).value) {
        return false;
      }
      if (added > 0 && handle->run(Verb::Get, {nameOf(added), 0}) != 0) return false;
      ++board.reads;
    }
    return true;
  }
};

}  // namespace

int main(int argc, char** argv) {
  const bool isShort = proof::isShort(argc, argv);
  for (const flavours::Row& flavour : flavours::rows) {
    const Scenario scenario{"cached reads", &flavour, 0, Verb::Get, {}};
    Contest{scenario, isShort ? 400 : 20000}.run();
  }
  return proof::finish();
}
