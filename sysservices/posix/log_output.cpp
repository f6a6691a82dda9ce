#include "sysservices/inner/log_output.h"

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <ctime>

#include "sysservices/diagnostics.h"
#include "sysservices/inner/error_codes.h"
#include "sysservices/posix/system_call.h"

namespace {

void writeAll(int descriptor, const char* line, std::size_t length) {
  const ssize_t ignored = ::write(descriptor, line, length);
  (void)ignored;
}

// C libraries differ in what strerror_r returns: the text, or a number when it is in the buffer.
[[maybe_unused]] const char* textOf(const char* text, const char*) { return text; }
[[maybe_unused]] const char* textOf(int, const char* buffer) { return buffer; }

std::atomic<unsigned int> forkedHere{0};
std::atomic<unsigned int> forking{0};  // threads that are about to, or do
std::atomic<unsigned int> forkedBefore{0};
std::atomic<unsigned int> pauses{0};

// A thread that forks in a signal, in the midst of a pause of its own, would wait for itself.
void beforeFork() {
  constexpr int longest = 1000;
  ++forking;
  ++forkedHere;
  for (int i = 0; pauses != 0 && i < longest; ++i) (void)::sched_yield();
}

void inChild() {
  forking = pauses = 0;
  ++forkedBefore;
}

}  // namespace

std::uint64_t ossThreadID() { return static_cast<std::uint64_t>(::syscall(SYS_gettid)); }

namespace oss {

Forks forks() noexcept {
  static const int watched = ::pthread_atfork(
      beforeFork, [] { --forking; }, inChild);
  const bool isKnown = watched == 0 && forking == 0;
  return {isKnown ? forkedHere.load() : forkUnderWay, forkedBefore.load()};
}

ForkPause::ForkPause() noexcept { ++pauses; }
ForkPause::~ForkPause() { --pauses; }

LogTime logTime() noexcept {
  timespec now{};
  (void)::clock_gettime(CLOCK_REALTIME, &now);
  return {now.tv_sec, now.tv_nsec / 1000};
}

int processNumber() noexcept { return ::getpid(); }

void appendToLog(const char* target, const char* line, std::size_t length, bool) noexcept {
  if (std::strcmp(target, "stderr") == 0) return writeAll(STDERR_FILENO, line, length);
  const int descriptor =
      aboveStandard(::open(target, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0600));
  if (descriptor < 0) return;
  writeAll(descriptor, line, length);
  ::close(descriptor);
}

// Every system call here tells its error by errno.
unsigned int codeOfSystemError(unsigned int, int error) noexcept { return codeOfError(error); }

const char* textOfSystemError(unsigned int, int error, char* buffer, std::size_t size) noexcept {
  buffer[0] = '\0';
  return textOf(::strerror_r(error, buffer, size), buffer);
}

}  // namespace oss
