// Records the calls with which this process changes one directory, as the kernel got them.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace proof {

struct RecordedCall {
  enum class Kind { Create, Write, Truncate, Sync, Rename, Unlink, SyncDirectory };
  Kind kind;
  int file = -1;             // Create, Write, Truncate, Sync: a number for the file, not its name
  std::uint64_t offset = 0;  // Write: where; Truncate: the new size
  std::string bytes;         // Write
  std::string name;          // Create, Rename, Unlink
  std::string target;        // Rename
};

// While it lives, what this process does in `directory` is recorded. One at a time.
class Recording {
 public:
  // `files` stand in the directory already.
  Recording(const std::string& directory, std::vector<std::string> files);
  ~Recording();
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;

  const std::vector<RecordedCall>& calls() const { return calls_; }
  // The numbers of the files that stood there, by name.
  const std::map<std::string, int>& initial() const { return initial_; }

  // For the calls as they happen.
  bool isInside(const char* path) const;
  int created(int descriptor);
  int fileOf(int descriptor) const;
  bool isDirectory(int descriptor) const;
  void add(RecordedCall call) { calls_.push_back(std::move(call)); }

 private:
  std::string directory_;
  std::map<std::string, int> initial_;
  std::map<std::uint64_t, int> byInode_;
  int files_ = 0;
  std::vector<RecordedCall> calls_;
};

}  // namespace proof
