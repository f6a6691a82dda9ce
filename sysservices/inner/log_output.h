// What a log line takes from the system, and where it goes. Nothing here passes the fault hook, and
// failures are ignored: the log must never make an operation fail.
#pragma once

#include <cstddef>

// What printf understands, for the compiler's check of its format: the C standard's forms, which
// not every runtime library has by itself.
#ifdef _WIN32
#define OSS_PRINTF_FORMS gnu_printf
#else
#define OSS_PRINTF_FORMS printf
#endif

namespace oss {

// The time of day, counted from the beginning of 1970.
struct LogTime {
  long long seconds;
  long microseconds;
};
LogTime logTime() noexcept;

int processNumber() noexcept;

// The forks of this process, and those that led to it; a child has other numbers than its parent.
// What is made past the C library is not counted.
constexpr unsigned int forkUnderWay = 0xFFFFFFFFu;
struct Forks {
  unsigned int ofThisProcess;  // forkUnderWay while another thread forks
  unsigned int ofItsForebears;
};
Forks forks() noexcept;

// While it lives, a fork that begins waits, for a moment at most.
class ForkPause {
 public:
  ForkPause() noexcept;
  ~ForkPause();
  ForkPause(const ForkPause&) = delete;
  ForkPause& operator=(const ForkPause&) = delete;
  // The forks of this process.
  unsigned int forks() const noexcept { return oss::forks().ofThisProcess; }
};

// Appends one line, and its newline, to the log: "stderr", what else the system has for such lines,
// or the file of that path, made for its owner alone when it is missing. The line is one write to a
// file opened for appending, so that lines of several processes do not mix.
void appendToLog(const char* target, const char* line, std::size_t length, bool isTrace) noexcept;

}  // namespace oss
