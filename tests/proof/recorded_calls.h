// Records the calls with which this process changes the registry's directory, as the kernel got
// them, and ends a process before any of them.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace proof {

struct RecordedCall {
  enum class Kind { Create, Write, Truncate, Sync, Link, Rename, Unlink, SyncDirectory };
  Kind kind;
  int file = -1;             // Create, Write, Truncate, Sync: a number for the file, not its name
  std::uint64_t offset = 0;  // Write: where; Truncate: the new size
  std::string bytes;         // Write
  std::string name;          // Create, Link, Rename, Unlink
  std::string target;        // Link, Rename
};

// How a process ends before a call: as if the kernel did no more for it, or by a signal.
enum class End { Refused, Killed };

// While it lives, the calls are recorded. One at a time.
class Recording {
 public:
  // From call number `last` (from 0) on nothing is changed any more.
  explicit Recording(std::size_t last = SIZE_MAX, End end = End::Refused);
  ~Recording();
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;

  const std::vector<RecordedCall>& calls() const { return calls_; }
  // The numbers of the files that stood there, by name.
  const std::map<std::string, int>& initial() const { return initial_; }
  bool hasEnded() const { return ended_; }

  // For the calls as they happen.
  bool mayChange();
  int created(int descriptor);
  int fileOf(int descriptor) const;
  void add(RecordedCall call) { calls_.push_back(std::move(call)); }

 private:
  std::size_t last_;
  End end_;
  bool ended_ = false;
  std::map<std::string, int> initial_;
  std::map<std::uint64_t, int> byInode_;
  int files_ = 0;
  std::vector<RecordedCall> calls_;
};

}  // namespace proof
