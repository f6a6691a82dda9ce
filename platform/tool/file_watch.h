// Waiting for changes of one file, for a program that does nothing else until it is ended.
#pragma once

#include <memory>
#include <string>

namespace platform {

class FileWatch {
 public:
  enum class Event {
    Touched,  // the file may be another one, hold other bytes, have come or gone
    Stopped,  // the user wants the program to end, or nobody reads its standard output any more
  };

  // Watches from now on the file named `path`, which need not exist. An interrupt, and what else
  // asks the process to end, no longer ends it but the next wait(); what the process was started to
  // ignore it still ignores. Where the system reports no changes, or there is no directory, the
  // file is looked at once a second.
  explicit FileWatch(const std::string& path);
  // The signals do again what they did.
  ~FileWatch();
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;

  // Returns when something has happened since the last wait. What happened several times since then
  // is one event, and one may be reported of which nothing is to be seen any more.
  Event wait();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace platform
