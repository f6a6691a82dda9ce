// System calls as the services make them: past the fault hook, repeated when a signal interrupts.
#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "sysservices/fault_hook.h"
#include "sysservices/file_handle.h"

namespace oss {

// Makes one system call that reports failure as -1 with errno. Never use it for close(): an
// interrupted close has closed, and a second one could hit another thread's descriptor.
template <typename Call>
auto systemCall(const char* operation, const char* path, Call&& call) -> decltype(call()) {
  for (;;) {
    const int fault = ossFaultPoint(operation, path);
    if (fault > 0) {
      errno = fault;
      if (fault != EINTR) return static_cast<decltype(call())>(-1);
      continue;
    }
    const auto result = call();
    if (result != static_cast<decltype(result)>(-1) || errno != EINTR) return result;
  }
}

// Closes a descriptor once; returns 0 or the error number.
int closeDescriptor(int descriptor) noexcept;

// Moves a fresh descriptor above the standard three, so that a host that closed one of those never
// finds a registry file in its place. Returns the descriptor, or -1 with errno (it is closed then).
int aboveStandard(int descriptor) noexcept;

// Opens to be read what stands at a path itself, unless it is a link; returns as aboveStandard.
int openItself(const char* path) noexcept;

// Whether an open file is the one that a path names now. Unknown leaves errno.
enum class Standing { AtName, Replaced, Unknown };
Standing standing(int descriptor, const char* path) noexcept;

// What a file's status says, for a caller of the services.
void takeStatus(const struct stat& status, OSSFileInfo* info) noexcept;

// Makes the names in the directory that holds `path` durable. Returns 0 or the error number.
int syncDirectoryOf(const char* path) noexcept;

}  // namespace oss
