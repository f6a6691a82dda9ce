// What a file handle is and checks on every platform; opening, locking and closing stand in the
// platform's own file.
#include "sysservices/file_handle.h"

#include <cerrno>
#include <cstring>

#include "sysservices/inner/error_codes.h"
#include "sysservices/inner/path_rules.h"
#include "sysservices/return_codes.h"

bool g_bIsPlatformID_Win32On95 = false;

OSSHFile::OSSHFile() noexcept : handle_(-1), openMode_(0), options_(0), permissions_(0), error_(0) {
  path_[0] = '\0';
}

OSSHFile::~OSSHFile() { (void)close(); }

unsigned int OSSHFile::fail(int error) noexcept {
  error_ = error;
  return oss::codeOfError(error);
}

unsigned int OSSHFile::open(const OSSFileOpenParam* param) noexcept {
  if (param == nullptr || param->path == nullptr) return OSS_RC_NULL_ARGUMENT;
  const bool knownMode = param->openMode == OSS_OPEN_EXISTING ||
                         param->openMode == OSS_OPEN_LOCK_FILE ||
                         param->openMode == OSS_OPEN_APPEND;
  if (param->level != OSS_PARAM_LEVEL || param->access != OSS_ACCESS_READ_WRITE || !knownMode) {
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

unsigned int OSSHFile::lock(const OSSFileLockParam* param) noexcept {
  if (param == nullptr) return OSS_RC_NULL_ARGUMENT;
  const bool knownType =
      param->lockType == OSS_LOCK_EXCLUSIVE || param->lockType == OSS_LOCK_SHARED;
  const bool knownWait = param->wait == OSS_LOCK_WAIT || param->wait == OSS_LOCK_NOWAIT;
  if (param->level != OSS_PARAM_LEVEL || !knownType || !knownWait) return OSS_RC_BAD_PARAMETER;
  return takeLock(param->lockType == OSS_LOCK_EXCLUSIVE, param->wait == OSS_LOCK_WAIT);
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
