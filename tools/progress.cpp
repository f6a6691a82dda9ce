#include "progress.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "output.h"
#include "platform/tool/terminal.h"

namespace tool {

Progress::Progress(const std::string& what) {
  if (!platform::isTerminal(stderr)) return;
  shower_ = std::thread([this, shown = printable(what)] { show(shown); });
}

Progress::~Progress() {
  if (!shower_.joinable()) return;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    isEnded_ = true;
  }
  ended_.notify_one();
  shower_.join();
}

void Progress::show(const std::string& what) {
  constexpr std::chrono::seconds interval(1);
  std::unique_lock<std::mutex> lock(mutex_);
  std::size_t width = 0;
  for (int seconds = 1; !ended_.wait_for(lock, interval, [this] { return isEnded_; }); ++seconds) {
    const std::size_t done = done_.load(std::memory_order_relaxed);
    std::string line = what + ", " + std::to_string(seconds) + " s";
    if (done != 0) line += ", " + std::to_string(done) + " done";
    width = std::max(width, line.size());
    (void)std::fprintf(stderr, "\r%s", line.c_str());
  }
  if (width != 0) (void)std::fprintf(stderr, "\r%s\r", std::string(width, ' ').c_str());
}

}  // namespace tool
