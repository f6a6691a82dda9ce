// The program's own definitions of these calls stand before the C library's, for the shared
// libraries too.
#include "proof/gate.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <utility>

namespace proof {
namespace {

Gate* gate = nullptr;

std::uint64_t inodeOf(int descriptor) {
  struct stat status {};
  (void)::fstat(descriptor, &status);
  return status.st_ino;
}

// Makes the call if it may be made.
template <typename Call>
auto change(Call call, int synced = -1) -> decltype(call()) {
  if (gate == nullptr) return call();
  if (!gate->letsPass()) {
    errno = EIO;
    return -1;
  }
  const auto result = call();
  const int error = errno;
  gate->pass(synced >= 0 && result == 0 ? inodeOf(synced) : 0);
  errno = error;
  return result;
}

}  // namespace

Gate::Gate(std::size_t last, End end) : last_(last), end_(end) { gate = this; }
Gate::Gate(std::function<void(std::uint64_t)> passed) : passed_(std::move(passed)) { gate = this; }
Gate::~Gate() { gate = nullptr; }

bool Gate::letsPass() {
  ended_ = ended_ || calls_++ == last_;
  if (ended_ && end_ == End::Killed) (void)::raise(SIGKILL);
  return !ended_;
}

void Gate::pass(std::uint64_t synced) const {
  if (passed_) passed_(synced);
}

}  // namespace proof

using proof::change;

#define INTERPOSED extern "C" __attribute__((visibility("default")))
#define REAL(name) reinterpret_cast<decltype(&::name)>(::dlsym(RTLD_NEXT, #name))

INTERPOSED int open(const char* path, int flags, ...) {
  static const auto call = REAL(open);
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if ((flags & (O_CREAT | O_TRUNC)) == 0) return call(path, flags);
  return change([&] { return call(path, flags, mode); });
}

INTERPOSED ssize_t write(int file, const void* bytes, size_t size) {
  static const auto call = REAL(write);
  return change([&] { return call(file, bytes, size); });
}

INTERPOSED ssize_t pwrite(int file, const void* bytes, size_t size, off_t offset) {
  static const auto call = REAL(pwrite);
  return change([&] { return call(file, bytes, size, offset); });
}

INTERPOSED int ftruncate(int file, off_t size) noexcept {
  static const auto call = REAL(ftruncate);
  return change([&] { return call(file, size); });
}

INTERPOSED int fsync(int file) {
  static const auto call = REAL(fsync);
  return change([&] { return call(file); }, file);
}

INTERPOSED int fdatasync(int file) {
  static const auto call = REAL(fdatasync);
  return change([&] { return call(file); }, file);
}

INTERPOSED int link(const char* from, const char* to) noexcept {
  static const auto call = REAL(link);
  return change([&] { return call(from, to); });
}

INTERPOSED int linkat(int fromDirectory, const char* from, int toDirectory, const char* to,
                      int flags) noexcept {
  static const auto call = REAL(linkat);
  return change([&] { return call(fromDirectory, from, toDirectory, to, flags); });
}

INTERPOSED int rename(const char* from, const char* to) noexcept {
  static const auto call = REAL(rename);
  return change([&] { return call(from, to); });
}

INTERPOSED int renameat2(int fromDirectory, const char* from, int toDirectory, const char* to,
                         unsigned int flags) noexcept {
  static const auto call = REAL(renameat2);
  return change([&] { return call(fromDirectory, from, toDirectory, to, flags); });
}

INTERPOSED int unlink(const char* path) noexcept {
  static const auto call = REAL(unlink);
  return change([&] { return call(path); });
}
