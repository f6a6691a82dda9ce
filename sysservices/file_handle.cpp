// What a file handle is and checks on every platform; opening, locking and moving bytes stand in
// the platform's own file.
#include "sysservices/file_handle.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "sysservices/diagnostics.h"
#include "sysservices/inner/error_codes.h"
#include "sysservices/inner/waiting.h"
#include "sysservices/return_codes.h"

bool g_bIsPlatformID_Win32On95 = false;

OSSHFile::OSSHFile() noexcept
    : handle_(-1),
      openMode_(0),
      options_(0),
      permissions_(0),
      error_(0),
      created_(false),
      locked_(false),
      path_("") {}

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
  (void)close();
  path_ = param->path;
  openMode_ = param->openMode;
  options_ = param->options;
  permissions_ = param->permissions;
  return reopen();
}

unsigned int OSSHFile::lock(const OSSFileLockParam* param) noexcept {
  if (param == nullptr) return OSS_RC_NULL_ARGUMENT;
  const bool knownType =
      param->lockType == OSS_LOCK_EXCLUSIVE || param->lockType == OSS_LOCK_SHARED;
  const bool waits = param->wait == OSS_LOCK_WAIT;
  if (param->level != OSS_PARAM_LEVEL || !knownType || !(waits || param->wait == OSS_LOCK_NOWAIT)) {
    return OSS_RC_BAD_PARAMETER;
  }
  const bool exclusive = param->lockType == OSS_LOCK_EXCLUSIVE;
  unsigned int code = takeLock(exclusive, false);
  if (code == OSS_RC_LOCK_BUSY && waits) code = waitForLock(exclusive, param->limit);
  locked_ = code == OSS_RC_OK;
  return code;
}

// Asks again and again, which alone lets a wait end and be logged, first often, since most holders
// are done within a millisecond; a wait without a limit is left to the system once it is logged.
unsigned int OSSHFile::waitForLock(bool exclusive, std::uint64_t limit) noexcept {
  constexpr std::uint64_t patience = 2000;      // milliseconds before the wait is logged
  constexpr std::uint64_t shortestPause = 50;   // microseconds
  constexpr std::uint64_t longestPause = 1000;  // microseconds
  constexpr unsigned int probe = 0x081A0009u;
  const std::uint64_t start = oss::steadyMilliseconds();
  bool logged = false;
  for (std::uint64_t pause = shortestPause;; pause = std::min(2 * pause, longestPause)) {
    const std::uint64_t waited = oss::steadyMilliseconds() - start;
    if (limit != 0 && waited >= limit) return fail(EWOULDBLOCK);
    if (waited >= patience && !logged) {
      const std::uint32_t holder = oss::lockHolder(handle_);
      ossLog(0, probe, OSS_RC_LOCK_BUSY, 10, 3, 3, path_, std::strlen(path_), OSS_LOG_STRING,
             &waited, sizeof waited, OSS_LOG_UINT64, &holder, sizeof holder, OSS_LOG_INT32);
      logged = true;
    }
    if (logged && limit == 0) return takeLock(exclusive, true);
    oss::pauseFor(pause);
    if (const unsigned int code = takeLock(exclusive, false); code != OSS_RC_LOCK_BUSY) return code;
  }
}

bool OSSHFile::isLockFile() const noexcept {
  return openMode_ == OSS_OPEN_LOCK_FILE || (options_ & OSS_OPEN_AS_LOCK_FILE) != 0;
}

bool OSSHFile::isOpen() const noexcept { return handle_ >= 0; }

std::intptr_t OSSHFile::getFileHandle() const noexcept { return handle_; }

int OSSHFile::lastError() const noexcept { return error_; }
