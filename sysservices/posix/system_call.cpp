// Closing, moving and syncing descriptors; the map from error numbers to codes.
#include "sysservices/posix/system_call.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "sysservices/file_handle.h"
#include "sysservices/file_system.h"
#include "sysservices/return_codes.h"

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

bool isLockFileName(const char* path) noexcept {
  static constexpr char suffix[] = ".lock";
  constexpr std::size_t suffixLength = sizeof suffix - 1;
  const std::size_t length = std::strlen(path);
  return length > suffixLength && std::strcmp(path + length - suffixLength, suffix) == 0;
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

int syncDirectoryOf(const char* path) noexcept {
  char directory[OSS_PATH_SIZE];
  if (ossDirectoryName(path, directory, sizeof directory) != 0) return ENAMETOOLONG;
  const int descriptor = aboveStandard(systemCall(
      "open", directory, [&] { return ::open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  if (descriptor < 0) return errno;
  const int failed = systemCall("fsync", directory, [&] { return ::fsync(descriptor); });
  // A file system that cannot sync a directory at all says EINVAL; there is nothing more to do.
  const int error = failed == 0 || errno == EINVAL ? 0 : errno;
  const int closeError = closeDescriptor(descriptor);
  return error != 0 ? error : closeError;
}

unsigned int codeOfError(int error) noexcept {
  struct Row {
    int error;
    unsigned int code;
  };
  static constexpr Row rows[] = {
      {ENOENT, OSS_RC_FILE_NOT_FOUND}, {ENOTDIR, OSS_RC_FILE_NOT_FOUND},
      {EACCES, OSS_RC_ACCESS_DENIED},  {EPERM, OSS_RC_ACCESS_DENIED},
      {EROFS, OSS_RC_ACCESS_DENIED},   {ENOMEM, OSS_RC_NO_MEMORY},
      {EEXIST, OSS_RC_FILE_EXISTS},    {ENOTEMPTY, OSS_RC_FILE_EXISTS},
      {EWOULDBLOCK, OSS_RC_LOCK_BUSY}, {EIO, OSS_RC_IO_ERROR},
      {ENOSPC, OSS_RC_DISK_FULL},      {EDQUOT, OSS_RC_DISK_FULL},
      {EFBIG, OSS_RC_DISK_FULL},       {EMFILE, OSS_RC_TOO_MANY_FILES},
      {ENFILE, OSS_RC_TOO_MANY_FILES}, {EISDIR, OSS_RC_NOT_A_FILE},
      {ELOOP, OSS_RC_NOT_A_FILE},      {ENXIO, OSS_RC_NOT_A_FILE},
      {EINVAL, OSS_RC_BAD_PARAMETER},  {ENAMETOOLONG, OSS_RC_NAME_TOO_LONG},
      {ENOTSUP, OSS_RC_NOT_SUPPORTED},
  };
  for (const Row& row : rows) {
    if (row.error == error) return row.code;
  }
  return OSS_RC_SYSTEM_ERROR;
}

}  // namespace oss
