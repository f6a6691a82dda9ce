// File handles over system handles, locked with LockFileEx.
//
// Such a lock belongs to the handle and ends with it. Registry files are opened so that others may
// rename and delete them meanwhile: a commit renames the file that a reader has open. Lock files
// are opened so that nobody may: whoever has one open or waits for it has the file that stands at
// the name, and there is never a second one.
#include "sysservices/file_handle.h"

#include "sysservices/return_codes.h"
#include "sysservices/windows/system_call.h"

namespace {

HANDLE systemHandle(std::intptr_t handle) {
  return reinterpret_cast<HANDLE>(handle);  // NOLINT(performance-no-int-to-ptr)
}

}  // namespace

unsigned int OSSHFile::reopen() noexcept {
  constexpr std::uint32_t ownerWrite = 0200;
  const bool reads = openMode_ == OSS_OPEN_EXISTING;
  oss::FileOpening opening{};
  opening.access = reads ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE;
  opening.disposition = reads ? OPEN_EXISTING : OPEN_ALWAYS;
  opening.canBeRemovedMeanwhile = !isLockFile();
  opening.followsLinks = reads && options_ != OSS_OPEN_NO_LINK && !isLockFile();
  opening.readOnly = (permissions_ & ownerWrite) == 0;
  DWORD links = 1;
  const HANDLE handle = oss::openFile(path_, opening, isLockFile() ? &links : nullptr);
  if (handle == INVALID_HANDLE_VALUE) return fail(errno);
  if (links > 1) {
    (void)oss::closeHandle(handle);
    return fail(ELOOP);
  }
  handle_ = reinterpret_cast<std::intptr_t>(handle);
  return OSS_RC_OK;
}

unsigned int OSSHFile::takeLock(bool exclusive, bool wait) noexcept {
  if (!isOpen()) return fail(EBADF);
  const HANDLE handle = systemHandle(handle_);
  const DWORD flags = (exclusive ? DWORD{LOCKFILE_EXCLUSIVE_LOCK} : 0) |
                      (wait ? 0 : DWORD{LOCKFILE_FAIL_IMMEDIATELY});
  // A handle's locks do not replace one another: its own earlier one would be in the way.
  (void)oss::unlockHandle(handle);
  return oss::systemCall("flock", path_, [&] { return oss::lockHandle(handle, flags); })
             ? OSS_RC_OK
             : fail(errno);
}

unsigned int OSSHFile::unlock() noexcept {
  if (!isOpen()) return fail(EBADF);
  const HANDLE handle = systemHandle(handle_);
  return oss::systemCall("flock", path_, [&] { return oss::unlockHandle(handle); }) ? OSS_RC_OK
                                                                                    : fail(errno);
}

// A lock that is left to the close may end a while after it.
unsigned int OSSHFile::close() noexcept {
  if (!isOpen()) return OSS_RC_OK;
  const HANDLE handle = systemHandle(releaseFileHandle());
  (void)oss::unlockHandle(handle);
  const int error = oss::closeHandle(handle);
  return error == 0 ? OSS_RC_OK : fail(error);
}
