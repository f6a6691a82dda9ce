// File handles over descriptors, locked with flock.
//
// flock locks belong to the open file description, work on a descriptor opened for reading, and end
// when the last descriptor of the description is closed; every descriptor is close-on-exec, so no
// child keeps a lock alive.
#include "sysservices/file_handle.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sysservices/posix/system_call.h"
#include "sysservices/return_codes.h"

namespace {

// Flags by open mode. O_NONBLOCK keeps a planted pipe from blocking the open.
int openFlags(std::uint32_t openMode) {
  constexpr int always = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  switch (openMode) {
    case OSS_OPEN_LOCK_FILE:
      return always | O_RDWR | O_CREAT | O_NOFOLLOW;
    case OSS_OPEN_APPEND:
      return always | O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW;
    default:
      return always | O_RDONLY;
  }
}

}  // namespace

unsigned int OSSHFile::reopen() noexcept {
  const bool noLink = options_ == OSS_OPEN_NO_LINK || isLockFile();
  const int flags = openFlags(openMode_) | (noLink ? O_NOFOLLOW : 0);
  const int descriptor = oss::aboveStandard(oss::systemCall(
      "open", path_, [&] { return ::open(path_, flags, static_cast<mode_t>(permissions_)); }));
  if (descriptor < 0) return fail(errno);
  struct stat status;
  if (oss::systemCall("fstat", path_, [&] { return ::fstat(descriptor, &status); }) != 0) {
    const int error = errno;
    (void)oss::closeDescriptor(descriptor);
    return fail(error);
  }
  if (!S_ISREG(status.st_mode) || (isLockFile() && status.st_nlink > 1)) {
    (void)oss::closeDescriptor(descriptor);
    return fail(ELOOP);
  }
  handle_ = descriptor;
  return OSS_RC_OK;
}

unsigned int OSSHFile::takeLock(bool exclusive, bool wait) noexcept {
  const int operation = (exclusive ? LOCK_EX : LOCK_SH) | (wait ? 0 : LOCK_NB);
  for (;;) {
    if (!isOpen()) return fail(EBADF);
    const int descriptor = static_cast<int>(handle_);
    if (oss::systemCall("flock", path_, [&] { return ::flock(descriptor, operation); }) != 0) {
      return fail(errno);
    }
    if (!isLockFile()) return OSS_RC_OK;
    // The previous holder removes the lock file's name while it holds the lock; whoever is granted
    // the removed file must start over at the name, or it would not exclude those who did.
    switch (oss::standing(descriptor, path_)) {
      case oss::Standing::AtName:
        return OSS_RC_OK;
      case oss::Standing::Unknown: {
        const int error = errno;
        (void)unlock();
        return fail(error);
      }
      case oss::Standing::Replaced:
        (void)close();
        if (const unsigned int code = reopen(); code != OSS_RC_OK) return code;
    }
  }
}

unsigned int OSSHFile::unlock() noexcept {
  if (!isOpen()) return fail(EBADF);
  const int descriptor = static_cast<int>(handle_);
  const int failed = oss::systemCall("flock", path_, [&] { return ::flock(descriptor, LOCK_UN); });
  return failed == 0 ? OSS_RC_OK : fail(errno);
}

unsigned int OSSHFile::close() noexcept {
  if (!isOpen()) return OSS_RC_OK;
  const int error = oss::closeDescriptor(static_cast<int>(releaseFileHandle()));
  return error == 0 ? OSS_RC_OK : fail(error);
}
