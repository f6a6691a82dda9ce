#include "sysservices/inner/log_output.h"

#include <windows.h>

#include <cstdint>
#include <cstring>

#include "sysservices/diagnostics.h"
#include "sysservices/inner/error_codes.h"
#include "sysservices/windows/system_call.h"

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

void appendToLog(const char* target, const char* line, std::size_t length) noexcept {
  const DWORD saved = ::GetLastError();
  const bool toStandardError = std::strcmp(target, "stderr") == 0;
  const HANDLE handle = toStandardError
                            ? ::GetStdHandle(STD_ERROR_HANDLE)
                            : ::CreateFileA(target, FILE_APPEND_DATA,
                                            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                            nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle != nullptr && handle != INVALID_HANDLE_VALUE) {
    DWORD written = 0;
    (void)::WriteFile(handle, line, static_cast<DWORD>(length), &written, nullptr);
    if (!toStandardError) ::CloseHandle(handle);
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
  const DWORD length =
      ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                       static_cast<DWORD>(error), 0, buffer, static_cast<DWORD>(size), nullptr);
  return length > 0 ? buffer : "unknown error";
}

}  // namespace oss
