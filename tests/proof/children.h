// Child processes that do a proof's work, interrupted by signals all the time where there are such,
// and what they share. Not every system can fork: a child
// knows its job's number, the directory, and the shared memory, and nothing else of its parent.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace proof {

// The directory of this program and its children; in memory where the machine can.
std::string makeDirectory();

// Zeros at first, and the same for this program and its children. One for each program.
void* sharedMemory(std::size_t size);

// Says what a child does. To be called first in main: in a child it does not return.
void takeJobs(int (*work)(int job));

constexpr int wasKilled = -1;

class Child {
 public:
  explicit Child(int job);
  ~Child();  // ends it
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // What its work gave. Of one that does not end in ten minutes, or did not start, something else.
  int wait();
  // Ends it wherever it is.
  void kill();

 private:
  struct Process;
  std::unique_ptr<Process> process_;
};

using Children = std::vector<std::unique_ptr<Child>>;

}  // namespace proof
