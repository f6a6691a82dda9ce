#include "sysservices/inner/log_output.h"

#include <windows.h>

#include <cstdint>
#include <cstring>

#include "sysservices/diagnostics.h"
#include "sysservices/inner/error_codes.h"
#include "sysservices/windows/system_call.h"
#include "sysservices/windows/wide_text.h"

std::uint64_t ossThreadID() { return ::GetCurrentThreadId(); }

namespace oss {

LogTime logTime() noexcept {
  constexpr std::uint64_t ticksPerSecond = 10'000'000;      // of 100 nanoseconds
  constexpr std::uint64_t from1601To1970 = 11'644'473'600;  // seconds
  FILETIME now;
  ::GetSystemTimeAsFileTime(&now);
  const std::uint64_t ticks = std::uint64_t{now.dwHighDateTime} << 32 | now.dwLowDateTime;
  return {static_cast<long long>(ticks / ticksPerSecond - from1601To1970),
          static_cast<long>(ticks % ticksPerSecond / 10)};
}

int processNumber() noexcept { return static_cast<int>(::GetCurrentProcessId()); }
Forks forks() noexcept { return {}; }
ForkPause::ForkPause() noexcept = default;
ForkPause::~ForkPause() = default;

namespace {

// A debugger shows the line as it is; the event log's entries are lines by themselves. Both want
// UTF-16, and the lines are ASCII.
class WideLine {
 public:
  WideLine(const char* line, std::size_t length) noexcept {
    length = length < longest ? length : longest;
    for (std::size_t i = 0; i < length; ++i) text_[i] = static_cast<unsigned char>(line[i]);
    text_[length] = L'\0';
  }
  const wchar_t* get() const noexcept { return text_; }

 private:
  static constexpr std::size_t longest = 4096;
  wchar_t text_[longest + 1];
};

void toEventLog(const char* line, std::size_t length) noexcept {
  constexpr DWORD event = 1;  // "%1" in the message file that docs/windows.md names
  const HANDLE log = ::RegisterEventSourceW(nullptr, L"zorgenreg64");
  if (log == nullptr) return;
  const WideLine text(line, length - 1);
  const wchar_t* const texts[] = {text.get()};
  (void)::ReportEventW(log, EVENTLOG_ERROR_TYPE, 0, event, nullptr, 1, 0,
                       const_cast<const wchar_t**>(texts), nullptr);
  (void)::DeregisterEventSource(log);
}

HANDLE openLog(const char* target) noexcept {
  const WidePath path(target);
  if (!path) return INVALID_HANDLE_VALUE;
  return ::CreateFileW(path.get(), FILE_APPEND_DATA,
                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

void toFile(const char* target, const char* line, std::size_t length) noexcept {
  const bool toStandardError = std::strcmp(target, "stderr") == 0;
  const HANDLE handle = toStandardError ? ::GetStdHandle(STD_ERROR_HANDLE) : openLog(target);
  if (handle == nullptr || handle == INVALID_HANDLE_VALUE) return;
  DWORD written = 0;
  (void)::WriteFile(handle, line, static_cast<DWORD>(length), &written, nullptr);
  if (!toStandardError) ::CloseHandle(handle);
}

}  // namespace

void appendToLog(const char* target, const char* line, std::size_t length, bool isTrace) noexcept {
  const DWORD saved = ::GetLastError();
  if (std::strcmp(target, "debugger") == 0) {
    ::OutputDebugStringW(WideLine(line, length).get());
  } else if (std::strcmp(target, "eventlog") == 0) {
    if (!isTrace) toEventLog(line, length);
  } else {
    toFile(target, line, length);
  }
  ::SetLastError(saved);
}

namespace {

// The registry gives the system's own numbers, everything else errno.
bool isSystemNumber(unsigned int systemCall) { return systemCall == OSS_SYSCALL_REGISTRY; }

}  // namespace

unsigned int codeOfSystemError(unsigned int systemCall, int error) noexcept {
  const bool translate = isSystemNumber(systemCall) && error != 0;
  return codeOfError(translate ? errnoOf(static_cast<DWORD>(error)) : error);
}

const char* textOfSystemError(unsigned int systemCall, int error, char* buffer,
                              std::size_t size) noexcept {
  if (!isSystemNumber(systemCall)) {
    return ::strerror_s(buffer, size, error) == 0 ? buffer : "unknown error";
  }
  wchar_t wide[512];
  const DWORD units = ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                       nullptr, static_cast<DWORD>(error), 0, wide, 512, nullptr);
  const std::size_t length = narrow(wide, units, Spelled::Text, buffer, size);
  if (units == 0 || length >= size) return "unknown error";
  buffer[length] = '\0';
  return buffer;
}

}  // namespace oss
