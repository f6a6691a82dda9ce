// The program's own definitions of these calls stand before the C library's, for the shared
// libraries too; each makes the real call and notes what it did. So what is recorded does not
// depend on what the library under test says of itself.
#include "proof/recorded_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <utility>

namespace proof {
namespace {

Recording* current = nullptr;

template <typename Function>
Function real(const char* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

struct stat statusOf(int descriptor) {
  struct stat status {};
  (void)::fstat(descriptor, &status);
  return status;
}

}  // namespace

Recording::Recording(const std::string& directory, std::vector<std::string> files)
    : directory_(directory) {
  for (const std::string& name : files) {
    struct stat status {};
    (void)::lstat(name.c_str(), &status);
    byInode_[status.st_ino] = files_;
    initial_[name] = files_++;
  }
  current = this;
}

Recording::~Recording() { current = nullptr; }

bool Recording::isInside(const char* path) const {
  return std::string(path).compare(0, directory_.size() + 1, directory_ + "/") == 0;
}

// An inode number may come back with the next file, so a file that is created is always a new one.
int Recording::created(int descriptor) { return byInode_[statusOf(descriptor).st_ino] = files_++; }

int Recording::fileOf(int descriptor) const {
  const auto found = byInode_.find(statusOf(descriptor).st_ino);
  return found == byInode_.end() ? -1 : found->second;
}

bool Recording::isDirectory(int descriptor) const {
  struct stat directory {};
  (void)::stat(directory_.c_str(), &directory);
  return statusOf(descriptor).st_ino == directory.st_ino;
}

namespace {

using Kind = RecordedCall::Kind;

int noteRename(const char* from, const char* to, int result) {
  if (result == 0 && current != nullptr && current->isInside(from)) {
    current->add({Kind::Rename, -1, 0, {}, from, to});
  }
  return result;
}

}  // namespace
}  // namespace proof

#define INTERPOSED extern "C" __attribute__((visibility("default")))

using proof::current;
using proof::real;

INTERPOSED int open(const char* path, int flags, ...) {
  static const auto call = real<int (*)(const char*, int, ...)>("open");
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  const bool watched = current != nullptr && (flags & O_CREAT) != 0 && current->isInside(path);
  struct stat before {};
  const bool isNew = watched && ::lstat(path, &before) != 0;
  const int descriptor = call(path, flags, mode);
  if (isNew && descriptor >= 0) {
    current->add({proof::Kind::Create, current->created(descriptor), 0, {}, path, {}});
  }
  return descriptor;
}

INTERPOSED ssize_t write(int descriptor, const void* bytes, size_t size) {
  static const auto call = real<ssize_t (*)(int, const void*, size_t)>("write");
  const ssize_t count = call(descriptor, bytes, size);
  const int file = current != nullptr && count > 0 ? current->fileOf(descriptor) : -1;
  if (file >= 0) {
    const auto written = static_cast<size_t>(count);
    const auto end = static_cast<std::uint64_t>(proof::statusOf(descriptor).st_size);
    current->add({proof::Kind::Write,
                  file,
                  end - written,
                  std::string(static_cast<const char*>(bytes), written),
                  {},
                  {}});
  }
  return count;
}

INTERPOSED int ftruncate(int descriptor, off_t size) noexcept {
  static const auto call = real<int (*)(int, off_t)>("ftruncate");
  const int result = call(descriptor, size);
  const int file = current != nullptr && result == 0 ? current->fileOf(descriptor) : -1;
  if (file >= 0) {
    current->add({proof::Kind::Truncate, file, static_cast<std::uint64_t>(size), {}, {}, {}});
  }
  return result;
}

INTERPOSED int fsync(int descriptor) {
  static const auto call = real<int (*)(int)>("fsync");
  const int result = call(descriptor);
  if (current != nullptr && result == 0) {
    if (current->isDirectory(descriptor))
      current->add({proof::Kind::SyncDirectory, -1, 0, {}, {}, {}});
    if (const int file = current->fileOf(descriptor); file >= 0) {
      current->add({proof::Kind::Sync, file, 0, {}, {}, {}});
    }
  }
  return result;
}

INTERPOSED int rename(const char* from, const char* to) noexcept {
  static const auto call = real<int (*)(const char*, const char*)>("rename");
  return proof::noteRename(from, to, call(from, to));
}

INTERPOSED int renameat2(int fromDirectory, const char* from, int toDirectory, const char* to,
                         unsigned int flags) noexcept {
  static const auto call =
      real<int (*)(int, const char*, int, const char*, unsigned int)>("renameat2");
  return proof::noteRename(from, to, call(fromDirectory, from, toDirectory, to, flags));
}

INTERPOSED int unlink(const char* path) noexcept {
  static const auto call = real<int (*)(const char*)>("unlink");
  const int result = call(path);
  if (result == 0 && current != nullptr && current->isInside(path)) {
    current->add({proof::Kind::Unlink, -1, 0, {}, path, {}});
  }
  return result;
}
