// Files and directories over POSIX calls.
#include "sysservices/file_system.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "sysservices/file_handle.h"
#include "sysservices/inner/error_codes.h"
#include "sysservices/inner/path_rules.h"
#include "sysservices/inner/waiting.h"
#include "sysservices/posix/system_call.h"
#include "sysservices/return_codes.h"

const char ossPathSeparator = '/';
const char oss::otherPathSeparator = '/';
const bool oss::pathsHaveDrives = false;
bool oss::isInsideCharacter(const char*, std::size_t) noexcept { return false; }

namespace {

thread_local int lastError = 0;

unsigned int fail(int error) {
  lastError = error;
  return oss::codeOfError(error);
}

unsigned int outcome(int result) { return result == 0 ? OSS_RC_OK : fail(errno); }

bool hasMode(const char* path, mode_t kind) {
  struct stat status;
  return path != nullptr &&
         oss::systemCall("stat", path, [&] { return ::stat(path, &status); }) == 0 &&
         (status.st_mode & S_IFMT) == kind;
}

unsigned int removeName(const char* path) {
  return outcome(oss::systemCall("unlink", path, [&] { return ::unlink(path); }));
}

// Takes the lock of an open lock file, without waiting, and removes its name if it still stands
// there.
unsigned int removeWhileLocked(int descriptor, const char* path) {
  if (oss::systemCall("flock", path, [&] { return ::flock(descriptor, LOCK_EX | LOCK_NB); }) != 0) {
    return errno == EWOULDBLOCK ? OSS_RC_OK : fail(errno);
  }
  // Those who wait for it keep their queue.
  if (oss::hasQueue(descriptor)) return OSS_RC_OK;
  switch (oss::standing(descriptor, path)) {
    case oss::Standing::AtName:
      return removeName(path);
    case oss::Standing::Replaced:
      return OSS_RC_OK;
    default:
      return fail(errno);
  }
}

// Removes a lock file while holding its lock. Were the name removed without it, a waiter that has
// just been granted the lock would go on beside the next process, which finds the name free,
// creates a new file and locks that.
unsigned int removeLockFile(const char* path) {
  struct stat status;
  if (oss::systemCall("stat", path, [&] { return ::lstat(path, &status); }) != 0) {
    return fail(errno);
  }
  // Anything but a plain file can be nobody's lock; removing its name harms no holder.
  if (!S_ISREG(status.st_mode)) return removeName(path);
  const int descriptor = oss::openItself(path);
  if (descriptor < 0) return fail(errno);
  const unsigned int code = removeWhileLocked(descriptor, path);
  // The name is gone or left to its holder by now: a failed close changes nothing of that.
  (void)oss::closeDescriptor(descriptor);
  return code;
}

// RENAME_NOREPLACE and RENAME_EXCHANGE, which not every C library has.
constexpr unsigned int noReplace = 1;
constexpr unsigned int exchange = 2;

int renameWith(unsigned int flag, const char* source, const char* target) {
  return static_cast<int>(::syscall(SYS_renameat2, AT_FDCWD, source, AT_FDCWD, target, flag));
}

// Whether a rename failed since the system or the file system does not know its flag.
bool isUnknownFlag(int error) { return error == EINVAL || error == ENOSYS; }

// Rename that never replaces a file. File systems without that flag get a look before the rename;
// the registries' own renames are made under the update lock, where nobody creates the target.
int renameNoReplace(const char* source, const char* target) {
  if (renameWith(noReplace, source, target) == 0) return 0;
  if (!isUnknownFlag(errno)) return -1;
  struct stat status;
  if (::lstat(target, &status) == 0) errno = EEXIST;
  if (errno != ENOENT) return -1;
  return ::rename(source, target);
}

}  // namespace

unsigned int ossDirectoryCreate(const OSSDirectoryCreateParam* param) {
  if (param == nullptr || param->path == nullptr) return OSS_RC_NULL_ARGUMENT;
  if (param->level != OSS_PARAM_LEVEL) return OSS_RC_BAD_PARAMETER;
  const char* path = param->path;
  const int failed = oss::systemCall(
      "mkdir", path, [&] { return ::mkdir(path, static_cast<mode_t>(param->permissions)); });
  if (failed != 0) return errno == EEXIST && ossIsDirectory(path) ? OSS_RC_OK : fail(errno);
  const auto wanted = static_cast<mode_t>(param->permissions);
  struct stat status;
  if (::lstat(path, &status) == 0 && S_ISDIR(status.st_mode) && (status.st_mode & 0777) != wanted) {
    (void)::chmod(path, wanted);
  }
  const int error = oss::syncDirectoryOf(path);
  return error == 0 ? OSS_RC_OK : fail(error);
}

bool ossIsDirectory(const char* path) { return hasMode(path, S_IFDIR); }

bool ossIsFile(const char* path) { return hasMode(path, S_IFREG); }

bool ossPathExists(const char* path) {
  struct stat status;
  return path != nullptr &&
         oss::systemCall("stat", path, [&] { return ::lstat(path, &status); }) == 0;
}

unsigned int ossFileDelete(const char* path) {
  return path == nullptr ? OSS_RC_NULL_ARGUMENT : removeName(path);
}

unsigned int ossLockFileDelete(const char* path) {
  return path == nullptr ? OSS_RC_NULL_ARGUMENT : removeLockFile(path);
}

unsigned int ossFileRename(const char* source, const char* target) {
  if (source == nullptr || target == nullptr) return OSS_RC_NULL_ARGUMENT;
  return outcome(
      oss::systemCall("rename", source, [&] { return renameNoReplace(source, target); }));
}

// File systems without hard links say so in several ways.
unsigned int ossFileLink(const char* path, const char* second) {
  if (path == nullptr || second == nullptr) return OSS_RC_NULL_ARGUMENT;
  if (oss::systemCall("link", path, [&] { return ::link(path, second); }) == 0) return OSS_RC_OK;
  const bool unsupported = errno == EPERM || errno == ENOTSUP || errno == EOPNOTSUPP ||
                           errno == ENOSYS || errno == EMLINK;
  return fail(unsupported ? ENOTSUP : errno);
}

unsigned int ossFileReplace(const char* source, const char* target) {
  if (source == nullptr || target == nullptr) return OSS_RC_NULL_ARGUMENT;
  return outcome(oss::systemCall("rename", source, [&] { return ::rename(source, target); }));
}

unsigned int ossFileExchange(const char* one, const char* other) {
  if (one == nullptr || other == nullptr) return OSS_RC_NULL_ARGUMENT;
  if (oss::systemCall("rename", one, [&] { return renameWith(exchange, one, other); }) == 0) {
    return OSS_RC_OK;
  }
  return fail(isUnknownFlag(errno) ? ENOTSUP : errno);
}

bool ossFileMayBeReplaced(const char* path, const OSSFileInfo* info) {
  const uid_t user = ::geteuid();
  char directory[OSS_FULL_PATH_SIZE];
  struct stat status;
  if (path == nullptr || info == nullptr || user == 0 || user == info->owner ||
      ossDirectoryName(path, directory, sizeof directory) != OSS_RC_OK ||
      ::stat(directory, &status) != 0) {
    return true;
  }
  return (status.st_mode & S_ISVTX) == 0 || status.st_uid == user;
}

unsigned int ossDirectorySync(const char* path) {
  if (path == nullptr) return OSS_RC_NULL_ARGUMENT;
  const int error = oss::syncDirectoryOf(path);
  return error == 0 ? OSS_RC_OK : fail(error);
}

unsigned int ossAbsolutePath(const char* path, char* buffer, std::size_t size) {
  if (path == nullptr || buffer == nullptr) return OSS_RC_NULL_ARGUMENT;
  std::size_t length = 0;
  if (*path != ossPathSeparator) {
    if (::getcwd(buffer, size) == nullptr) return fail(errno == ERANGE ? ENAMETOOLONG : errno);
    length = std::strlen(buffer);
    if (length + 1 < size && buffer[length - 1] != ossPathSeparator) {
      buffer[length++] = ossPathSeparator;
    }
  }
  const std::size_t count = std::strlen(path) + 1;
  if (length + count > size) return OSS_RC_BUFFER_TOO_SMALL;
  std::memcpy(buffer + length, path, count);
  return OSS_RC_OK;
}

unsigned int ossFileSetPermissions(const char* path, std::uint32_t permissions) {
  if (path == nullptr) return OSS_RC_NULL_ARGUMENT;
  const int descriptor = oss::openItself(path);
  if (descriptor < 0) return fail(errno);
  const unsigned int code = outcome(oss::systemCall(
      "fchmod", path, [&] { return ::fchmod(descriptor, static_cast<mode_t>(permissions)); }));
  (void)oss::closeDescriptor(descriptor);
  return code;
}

unsigned int ossFileGetInfoV9(const OSSFileInfoRequest* request, OSSFileInfo* info) {
  if (request == nullptr || request->path == nullptr || info == nullptr) {
    return OSS_RC_NULL_ARGUMENT;
  }
  if (request->level != OSS_PARAM_LEVEL) return OSS_RC_BAD_PARAMETER;
  struct stat status;
  const char* path = request->path;
  if (oss::systemCall("stat", path, [&] { return ::lstat(path, &status); }) != 0) {
    return fail(errno);
  }
  const bool isLink = S_ISLNK(status.st_mode);
  if (isLink && oss::systemCall("stat", path, [&] { return ::stat(path, &status); }) != 0) {
    return fail(errno);
  }
  oss::takeStatus(status, info);
  info->isSymbolicLink = isLink;
  return OSS_RC_OK;
}

std::int64_t ossFileClock() {
  constexpr std::int64_t nanoseconds = 1000000000;
  struct timespec now {};
  (void)::clock_gettime(CLOCK_REALTIME_COARSE, &now);
  return now.tv_sec * nanoseconds + now.tv_nsec;
}

std::FILE* ossFileOpenToRead(const char* path) {
  if (path == nullptr) return nullptr;
  const int descriptor = oss::aboveStandard(::open(path, O_RDONLY | O_CLOEXEC));
  std::FILE* const stream = descriptor < 0 ? nullptr : ::fdopen(descriptor, "rb");
  if (descriptor >= 0 && stream == nullptr) ::close(descriptor);
  return stream;
}

int ossFileLastError() { return lastError; }
