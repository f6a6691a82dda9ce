// The program's own definitions of these calls stand before the C library's, for the shared
// libraries too.
#include "proof/gate.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>

std::function<void(std::uint64_t synced)> proof::beforeChange;

template <typename Call>
static auto change(Call call, int synced = -1) -> decltype(call()) {
  struct stat status {};
  if (proof::beforeChange && synced >= 0) (void)::fstat(synced, &status);
  if (proof::beforeChange) proof::beforeChange(status.st_ino);
  return call();
}

// `exception` is noexcept where the C library's declaration is; `synced` the descriptor of what the
// call makes durable.
#define REAL(name) reinterpret_cast<decltype(&::name)>(::dlsym(RTLD_NEXT, #name))
#define GATED(type, name, parameters, exception, arguments, synced)                  \
  extern "C" __attribute__((visibility("default"))) type name parameters exception { \
    static const auto call = REAL(name);                                             \
    return change([&] { return call arguments; }, synced);                           \
  }

GATED(ssize_t, write, (int file, const void* bytes, size_t size), , (file, bytes, size), -1)
GATED(ssize_t, pwrite, (int file, const void* bytes, size_t size, off_t offset), ,
      (file, bytes, size, offset), -1)
GATED(int, ftruncate, (int file, off_t size), noexcept, (file, size), -1)
GATED(int, fsync, (int file), , (file), file)
GATED(int, link, (const char* from, const char* to), noexcept, (from, to), -1)
GATED(int, rename, (const char* from, const char* to), noexcept, (from, to), -1)
GATED(int, unlink, (const char* path), noexcept, (path), -1)

extern "C" __attribute__((visibility("default"))) int open(const char* path, int flags, ...) {
  static const auto call = REAL(open);
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if ((flags & (O_CREAT | O_TRUNC)) == 0) return call(path, flags);
  return change([&] { return call(path, flags, mode); });
}

// Not every C library has a function for the rename that replaces nothing.
extern "C" __attribute__((visibility("default"))) long syscall(long number, ...) noexcept {
  static const auto call = REAL(syscall);
  std::va_list list;
  va_start(list, number);
  long arguments[6];
  for (long& argument : arguments) argument = va_arg(list, long);
  va_end(list);
  const auto make = [&] {
    return call(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4],
                arguments[5]);
  };
  return number == SYS_renameat2 ? change(make) : make();
}
