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

#include <cstring>

#include "sysservices/posix/system_call.h"
#include "sysservices/return_codes.h"

bool g_bIsPlatformID_Win32On95 = false;

namespace {

// Flags by open mode. O_NONBLOCK keeps a planted pipe from blocking the open.
int openFlags(std::uint32_t openMode) {
  constexpr int always = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  switch (openMode) {
    case OSS_OPEN_EXISTING:
      return always | O_RDONLY;
    case OSS_OPEN_LOCK_FILE:
      return always | O_RDWR | O_CREAT | O_NOFOLLOW;
    case OSS_OPEN_APPEND:
      return always | O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW;
    default:
      return -1;
  }
}

}  // namespace

OSSHFile::OSSHFile() noexcept
    : handle_(-1), openMode_(0), options_(0), permissions_(0), error_(0), path_{} {}

OSSHFile::~OSSHFile() { (void)close(); }

unsigned int OSSHFile::fail(int error) noexcept {
  error_ = error;
  return oss::codeOfError(error);
}

unsigned int OSSHFile::open(const OSSFileOpenParam* param) noexcept {
  if (param == nullptr || param->path == nullptr) return OSS_RC_NULL_ARGUMENT;
  if (param->level != OSS_PARAM_LEVEL || param->access != OSS_ACCESS_READ_WRITE ||
      openFlags(param->openMode) < 0) {
    return OSS_RC_BAD_PARAMETER;
  }
  const std::size_t length = std::strlen(param->path);
  if (length >= sizeof path_) return fail(ENAMETOOLONG);
  (void)close();
  std::memcpy(path_, param->path, length + 1);
  openMode_ = param->openMode;
  options_ = param->options;
  permissions_ = param->permissions;
  return reopen();
}

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

unsigned int OSSHFile::lock(const OSSFileLockParam* param) noexcept {
  if (param == nullptr) return OSS_RC_NULL_ARGUMENT;
  const bool knownType =
      param->lockType == OSS_LOCK_EXCLUSIVE || param->lockType == OSS_LOCK_SHARED;
  const bool knownWait = param->wait == OSS_LOCK_WAIT || param->wait == OSS_LOCK_NOWAIT;
  if (param->level != OSS_PARAM_LEVEL || !knownType || !knownWait) return OSS_RC_BAD_PARAMETER;
  const int operation = (param->lockType == OSS_LOCK_EXCLUSIVE ? LOCK_EX : LOCK_SH) |
                        (param->wait == OSS_LOCK_NOWAIT ? LOCK_NB : 0);
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

bool OSSHFile::isLockFile() const noexcept {
  return openMode_ == OSS_OPEN_LOCK_FILE || oss::isLockFileName(path_);
}

bool OSSHFile::isOpen() const noexcept { return handle_ >= 0; }

std::intptr_t OSSHFile::getFileHandle() const noexcept { return handle_; }

std::intptr_t OSSHFile::releaseFileHandle() noexcept {
  const std::intptr_t handle = handle_;
  handle_ = -1;
  return handle;
}

int OSSHFile::lastError() const noexcept { return error_; }
