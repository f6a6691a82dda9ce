// What a file handle is and checks on every platform; opening, locking and moving bytes stand in
// the platform's own file.
#include "sysservices/file_handle.h"

#include <cerrno>
#include <cstring>

#include "sysservices/diagnostics.h"
#include "sysservices/inner/error_codes.h"
#include "sysservices/inner/log_output.h"
#include "sysservices/inner/waiting.h"
#include "sysservices/return_codes.h"

bool g_bIsPlatformID_Win32On95 = false;

OSSHFile::OSSHFile() noexcept = default;

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
  startAnew(param->path, param->openMode, param->options);
  permissions_ = param->permissions;
  return reopen();
}

void OSSHFile::startAnew(const char* path, std::uint32_t openMode, std::uint32_t options) noexcept {
  (void)close();
  path_ = path;
  openMode_ = openMode;
  options_ = options;
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
  forks_ = oss::forks().ofThisProcess;
  // Whoever would wait, too, stands behind those who do already.
  const bool queues = waits && isLockFile() && oss::hasQueue(handle_);
  unsigned int code = queues ? OSS_RC_LOCK_BUSY : takeLock(exclusive, false);
  if (code == OSS_RC_LOCK_BUSY && waits) code = waitForLock(exclusive, param->limit);
  lockOwner_ = code == OSS_RC_OK ? thisProcess() : 0;
  return code;
}

// Asks again and again, which alone lets a wait end and be logged. Whoever waits stands in a queue,
// and only its first asks: without it a writer in a loop would take the lock again before anybody
// else wakes up. A wait without a limit is left to the system once it is logged.
unsigned int OSSHFile::waitForLock(bool exclusive, std::uint64_t limit) noexcept {
  constexpr std::uint64_t patience = 2000;  // milliseconds before the wait is logged
  constexpr std::uint64_t pause = 100;      // microseconds; most holders are done within a thousand
  constexpr unsigned int probe = 0x081A0009u;
  const std::uint64_t start = oss::steadyMilliseconds();
  for (bool logged = false;;) {
    const bool isFirst = oss::queueForLock(handle_, limit == 0);
    unsigned int code = isFirst ? takeLock(exclusive, false) : OSS_RC_LOCK_BUSY;
    const std::uint64_t waited = oss::steadyMilliseconds() - start;
    const bool over = limit != 0 && waited >= limit;
    if (code == OSS_RC_LOCK_BUSY && (over || (waited >= patience && !logged))) {
      const std::uint32_t holder = oss::lockHolder(handle_);
      ossLog(0, probe, OSS_RC_LOCK_BUSY, 10, 3, 3, path_, std::strlen(path_), OSS_LOG_STRING,
             &waited, sizeof waited, OSS_LOG_UINT64, &holder, sizeof holder, OSS_LOG_INT32);
      logged = true;
      if (limit == 0) code = takeLock(exclusive, true);
    }
    if (code != OSS_RC_LOCK_BUSY || over) {
      oss::leaveQueue(handle_);
      return code == OSS_RC_LOCK_BUSY ? fail(EWOULDBLOCK) : code;
    }
    oss::pauseFor(pause);
  }
}

// Asking the system takes a tenth of what opening a file does, and who only reads need not know a
// child that was made past the C library.
int OSSHFile::thisProcess() const noexcept {
  return isOnlyRead() ? static_cast<int>(oss::forks().ofItsForebears) + 1 : oss::processNumber();
}

unsigned int OSSHFile::readAt(void* bytes, std::size_t count, std::uint64_t offset,
                              std::size_t* done) noexcept {
  *done = 0;
  for (std::size_t part = 1; part > 0 && *done < count; *done += part) {
    const unsigned int code =
        readSome(static_cast<char*>(bytes) + *done, count - *done, offset + *done, &part);
    if (code != OSS_RC_OK) return code;
  }
  return OSS_RC_OK;
}

bool OSSHFile::isLockFile() const noexcept {
  return openMode_ == OSS_OPEN_LOCK_FILE || (options_ & OSS_OPEN_AS_LOCK_FILE) != 0;
}

bool OSSHFile::isOpen() const noexcept { return handle_ >= 0; }

std::intptr_t OSSHFile::getFileHandle() const noexcept { return handle_; }

int OSSHFile::lastError() const noexcept { return error_; }
