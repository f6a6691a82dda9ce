// The program's own definitions of these calls stand before the C library's, for the shared
// libraries too; each makes the real call and notes what it did. So what is recorded does not
// depend on what the library under test says of itself.
#include "proof/recorded_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <filesystem>

#include "proof/scenario.h"

namespace proof {
namespace {

Recording* current = nullptr;
using Kind = RecordedCall::Kind;

std::string directory() { return std::filesystem::path(registry()).parent_path(); }
bool isInside(const char* path) { return std::string(path).rfind(directory() + "/", 0) == 0; }

std::uint64_t inodeOf(int descriptor) {
  struct stat status {};
  (void)::fstat(descriptor, &status);
  return status.st_ino;
}

// Makes the real call unless the process has ended; `note` records one that succeeded.
template <typename Result, typename... Parameters, typename Note, typename... Arguments>
Result change(Result (*call)(Parameters...), bool isOurs, Note note, Arguments... arguments) {
  if (!isOurs) return call(arguments...);
  if (!current->mayChange()) {
    errno = EIO;
    return -1;
  }
  const Result result = call(arguments...);
  if (result >= 0) note(result);
  return result;
}

int fileOf(int descriptor) { return current == nullptr ? -1 : current->fileOf(descriptor); }

// Where a transfer ended that began at `position`, or for a file that only grows, at its end.
std::uint64_t startOf(int descriptor, off_t end, ssize_t count) {
  struct stat status {};
  (void)::fstat(descriptor, &status);
  const bool grows = (::fcntl(descriptor, F_GETFL) & O_APPEND) != 0;
  return static_cast<std::uint64_t>((grows ? status.st_size : end) - count);
}

template <typename Call, typename... Arguments>
int changeNames(Kind kind, Call call, const char* from, const char* to, Arguments... arguments) {
  const bool isOurs = current != nullptr && isInside(from);
  return change(
      call, isOurs,
      [&](int) {
        current->add({kind, -1, 0, {}, from, to});
      },
      arguments...);
}

template <typename Call>
int sync(Call call, int descriptor) {
  struct stat names {};
  if (current != nullptr) (void)::stat(directory().c_str(), &names);
  const bool isDirectory = current != nullptr && inodeOf(descriptor) == names.st_ino;
  const int file = fileOf(descriptor);
  const Kind kind = isDirectory ? Kind::SyncDirectory : Kind::Sync;
  return change(
      call, isDirectory || file >= 0,
      [&](int) {
        current->add({kind, file, 0, {}, {}, {}});
      },
      descriptor);
}

}  // namespace

Recording::Recording(std::size_t last, End end) : last_(last), end_(end) {
  for (const File& file : files()) {
    if (file.twin.empty()) {
      struct stat status {};
      (void)::lstat(file.name.c_str(), &status);
      byInode_[status.st_ino] = files_;
      initial_[file.name] = files_++;
    } else {
      initial_[file.name] = initial_.at(file.twin);
    }
  }
  current = this;
}

Recording::~Recording() { current = nullptr; }

bool Recording::mayChange() {
  ended_ = ended_ || calls_.size() == last_;
  if (ended_ && end_ == End::Killed) (void)::raise(SIGKILL);
  return !ended_;
}

// An inode number may come back with the next file, so a file that is created is always a new one.
int Recording::created(int descriptor) { return byInode_[inodeOf(descriptor)] = files_++; }

int Recording::fileOf(int descriptor) const {
  const auto found = byInode_.find(inodeOf(descriptor));
  return found == byInode_.end() ? -1 : found->second;
}

}  // namespace proof

#define INTERPOSED extern "C" __attribute__((visibility("default")))
#define REAL(name) reinterpret_cast<decltype(&::name)>(::dlsym(RTLD_NEXT, #name))

using proof::change;
using proof::current;
using proof::Kind;

INTERPOSED int open(const char* path, int flags, ...) {
  static const auto call = REAL(open);
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  struct stat before {};
  const bool creates = current != nullptr && (flags & O_CREAT) != 0 && proof::isInside(path) &&
                       ::lstat(path, &before) != 0;
  const auto opened =
      +[](const char* name, int with, mode_t bits) { return call(name, with, bits); };
  return change(
      opened, creates,
      [&](int descriptor) {
        current->add({Kind::Create, current->created(descriptor), 0, {}, path, {}});
      },
      path, flags, mode);
}

namespace {
auto writes(int descriptor, const void* bytes, off_t from) {
  return [=](ssize_t count) {
    const off_t end = from < 0 ? ::lseek(descriptor, 0, SEEK_CUR) : from + count;
    current->add({Kind::Write,
                  current->fileOf(descriptor),
                  proof::startOf(descriptor, end, count),
                  std::string(static_cast<const char*>(bytes), static_cast<size_t>(count)),
                  {},
                  {}});
  };
}
}  // namespace

INTERPOSED ssize_t write(int descriptor, const void* bytes, size_t size) {
  static const auto call = REAL(write);
  const bool isOurs = proof::fileOf(descriptor) >= 0;
  return change(call, isOurs, writes(descriptor, bytes, -1), descriptor, bytes, size);
}

INTERPOSED ssize_t pwrite(int descriptor, const void* bytes, size_t size, off_t offset) {
  static const auto call = REAL(pwrite);
  const bool isOurs = proof::fileOf(descriptor) >= 0;
  return change(call, isOurs, writes(descriptor, bytes, offset), descriptor, bytes, size, offset);
}

INTERPOSED int ftruncate(int descriptor, off_t size) noexcept {
  static const auto call = REAL(ftruncate);
  const int file = proof::fileOf(descriptor);
  const auto note = [&](int) {
    current->add({Kind::Truncate, file, static_cast<std::uint64_t>(size), {}, {}, {}});
  };
  return change<int, int, off_t>(call, file >= 0, note, descriptor, size);
}

INTERPOSED int fsync(int descriptor) {
  static const auto call = REAL(fsync);
  return proof::sync(call, descriptor);
}

INTERPOSED int fdatasync(int descriptor) {
  static const auto call = REAL(fdatasync);
  return proof::sync(call, descriptor);
}

INTERPOSED int link(const char* from, const char* to) noexcept {
  static const auto call = REAL(link);
  return proof::changeNames<int (*)(const char*, const char*)>(Kind::Link, call, from, to, from,
                                                               to);
}

INTERPOSED int rename(const char* from, const char* to) noexcept {
  static const auto call = REAL(rename);
  return proof::changeNames<int (*)(const char*, const char*)>(Kind::Rename, call, from, to, from,
                                                               to);
}

INTERPOSED int renameat2(int fromDirectory, const char* from, int toDirectory, const char* to,
                         unsigned int flags) noexcept {
  static const auto call = REAL(renameat2);
  return proof::changeNames<int (*)(int, const char*, int, const char*, unsigned int)>(
      Kind::Rename, call, from, to, fromDirectory, from, toDirectory, to, flags);
}

INTERPOSED int unlink(const char* path) noexcept {
  static const auto call = REAL(unlink);
  return proof::changeNames<int (*)(const char*)>(Kind::Unlink, call, path, "", path);
}
