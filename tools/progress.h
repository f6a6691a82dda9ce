// What a person at a terminal sees of work that takes longer than a second, on standard error;
// nothing elsewhere.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>

namespace tool {

class Progress {
 public:
  // `what` is being done, "importing settings.reg".
  explicit Progress(const std::string& what);
  // Takes what was shown away.
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void step() { done_.fetch_add(1, std::memory_order_relaxed); }  // a record or line more

 private:
  void show(const std::string& what);

  std::atomic<std::size_t> done_{0};
  std::mutex mutex_;
  std::condition_variable ended_;
  bool isEnded_ = false;
  std::thread shower_;
};

}  // namespace tool
