// Closing, moving and syncing descriptors.
#include "sysservices/posix/system_call.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sysservices/file_handle.h"
#include "sysservices/file_system.h"

namespace oss {

int closeDescriptor(int descriptor) noexcept {
  const int fault = ossFaultPoint("close", nullptr);
  const int error = ::close(descriptor) == 0 ? 0 : errno;
  return fault > 0 ? fault : error;
}

int aboveStandard(int descriptor) noexcept {
  constexpr int firstFree = STDERR_FILENO + 1;
  if (descriptor < 0 || descriptor >= firstFree) return descriptor;
  const int moved = ::fcntl(descriptor, F_DUPFD_CLOEXEC, firstFree);
  const int error = errno;
  ::close(descriptor);
  errno = error;
  return moved;
}

int openItself(const char* path) noexcept {
  return aboveStandard(systemCall(
      "open", path, [&] { return ::open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); }));
}

Standing standing(int descriptor, const char* path) noexcept {
  struct stat opened;
  struct stat named;
  if (systemCall("fstat", path, [&] { return ::fstat(descriptor, &opened); }) != 0) {
    return Standing::Unknown;
  }
  if (systemCall("stat", path, [&] { return ::lstat(path, &named); }) != 0) {
    return errno == ENOENT ? Standing::Replaced : Standing::Unknown;
  }
  const bool same = opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
  return same ? Standing::AtName : Standing::Replaced;
}

void takeStatus(const struct stat& status, OSSFileInfo* info) noexcept {
  constexpr mode_t permissionBits = 07777;
  constexpr std::int64_t nanoseconds = 1000000000;
  info->size = static_cast<std::uint64_t>(status.st_size);
  info->permissions = status.st_mode & permissionBits;
  info->owner = status.st_uid;
  info->group = status.st_gid;
  info->links = status.st_nlink;
  info->isFile = S_ISREG(status.st_mode);
  info->isSymbolicLink = false;
  info->device = status.st_dev;
  info->file = status.st_ino;
  info->modified = status.st_mtim.tv_sec * nanoseconds + status.st_mtim.tv_nsec;
  info->changed = status.st_ctim.tv_sec * nanoseconds + status.st_ctim.tv_nsec;
}

// A directory that may be written and searched, but not read, cannot be opened: what stands at the
// path itself then leads to the file system that holds both.
int syncDirectoryOf(const char* path) noexcept {
  char directory[OSS_FULL_PATH_SIZE];
  if (ossDirectoryName(path, directory, sizeof directory) != 0) return ENAMETOOLONG;
  int descriptor = aboveStandard(systemCall(
      "open", directory, [&] { return ::open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  const bool readable = descriptor >= 0;
  if (!readable && errno == EACCES) {
    descriptor = openItself(path);
  }
  if (descriptor < 0) return errno;
  const int failed = systemCall(readable ? "fsync" : "syncfs", directory, [&] {
    return readable ? ::fsync(descriptor) : ::syncfs(descriptor);
  });
  // A file system that cannot sync a directory at all says EINVAL; there is nothing more to do.
  const int error = failed == 0 || errno == EINVAL ? 0 : errno;
  const int closeError = closeDescriptor(descriptor);
  return error != 0 ? error : closeError;
}

}  // namespace oss
