// Paths, files and directories over POSIX calls.
#include "sysservices/file_system.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "sysservices/file_handle.h"
#include "sysservices/posix/system_call.h"
#include "sysservices/return_codes.h"

const char ossPathSeparator = '/';

namespace {

constexpr mode_t permissionBits = 07777;

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

unsigned int copyText(const char* text, std::size_t length, char* buffer, std::size_t size) {
  if (length >= size) return OSS_RC_BUFFER_TOO_SMALL;
  std::memcpy(buffer, text, length);
  buffer[length] = '\0';
  return OSS_RC_OK;
}

// Length of `path` without trailing separators, the root's own excepted.
std::size_t trimmedLength(const char* path) {
  std::size_t length = std::strlen(path);
  while (length > 1 && path[length - 1] == ossPathSeparator) --length;
  return length;
}

// Where the last component starts in the first `length` characters.
std::size_t baseStart(const char* path, std::size_t length) {
  std::size_t start = length;
  while (start > 0 && path[start - 1] != ossPathSeparator) --start;
  return start;
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
  const int descriptor = oss::aboveStandard(oss::systemCall(
      "open", path, [&] { return ::open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); }));
  if (descriptor < 0) return fail(errno);
  const unsigned int code = removeWhileLocked(descriptor, path);
  // The name is gone or left to its holder by now: a failed close changes nothing of that.
  (void)oss::closeDescriptor(descriptor);
  return code;
}

// Rename that never replaces a file. File systems without that flag get a look before the rename;
// the registries' own renames are made under the update lock, where nobody creates the target.
int renameNoReplace(const char* source, const char* target) {
  if (::renameat2(AT_FDCWD, source, AT_FDCWD, target, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return -1;
  struct stat status;
  if (::lstat(target, &status) == 0) errno = EEXIST;
  if (errno != ENOENT) return -1;
  return ::rename(source, target);
}

}  // namespace

unsigned int ossBaseName(const char* path, char* buffer, std::size_t size) {
  if (path == nullptr || buffer == nullptr) return OSS_RC_NULL_ARGUMENT;
  const std::size_t length = trimmedLength(path);
  const std::size_t start = baseStart(path, length);
  if (start == length) return OSS_RC_BAD_PARAMETER;
  return copyText(path + start, length - start, buffer, size);
}

unsigned int ossDirectoryName(const char* path, char* buffer, std::size_t size) {
  if (path == nullptr || buffer == nullptr) return OSS_RC_NULL_ARGUMENT;
  const std::size_t start = baseStart(path, trimmedLength(path));
  if (start == 0) return copyText(".", 1, buffer, size);
  std::size_t length = start - 1;
  while (length > 0 && path[length - 1] == ossPathSeparator) --length;
  return copyText(path, length == 0 ? 1 : length, buffer, size);
}

unsigned int ossDirectoryCreate(const OSSDirectoryCreateParam* param) {
  if (param == nullptr || param->path == nullptr) return OSS_RC_NULL_ARGUMENT;
  if (param->level != OSS_PARAM_LEVEL) return OSS_RC_BAD_PARAMETER;
  const char* path = param->path;
  const int failed = oss::systemCall(
      "mkdir", path, [&] { return ::mkdir(path, static_cast<mode_t>(param->permissions)); });
  if (failed != 0) return errno == EEXIST && ossIsDirectory(path) ? OSS_RC_OK : fail(errno);
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
  if (path == nullptr) return OSS_RC_NULL_ARGUMENT;
  return oss::isLockFileName(path) ? removeLockFile(path) : removeName(path);
}

unsigned int ossFileRename(const char* source, const char* target) {
  if (source == nullptr || target == nullptr) return OSS_RC_NULL_ARGUMENT;
  return outcome(
      oss::systemCall("rename", source, [&] { return renameNoReplace(source, target); }));
}

unsigned int ossFileSetPermissions(const char* path, std::uint32_t permissions) {
  if (path == nullptr) return OSS_RC_NULL_ARGUMENT;
  const int descriptor = oss::aboveStandard(oss::systemCall(
      "open", path, [&] { return ::open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); }));
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
  info->size = static_cast<std::uint64_t>(status.st_size);
  info->permissions = status.st_mode & permissionBits;
  info->owner = status.st_uid;
  info->group = status.st_gid;
  info->links = status.st_nlink;
  info->isFile = S_ISREG(status.st_mode);
  info->isSymbolicLink = isLink;
  return OSS_RC_OK;
}

int ossFileLastError() { return lastError; }
