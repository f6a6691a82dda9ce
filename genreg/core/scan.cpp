// Scanning a registry file: open under a shared lock, position, rewind, close.
#include <cerrno>
#include <cstdio>

#include "genreg/core/registry_handle.h"
#include "sysservices/file_system.h"

using genreg::Function;
using genreg::Routine;

namespace {

// How often a reader looks again for a registry that is being committed. One round missed 31 times
// in 25 million opens against a writer in a tight loop, three rounds never did.
constexpr int readRounds = 3;

bool isMissing(unsigned int code) {
  return code == OSS_RC_FILE_NOT_FOUND || code == OSS_RC_NOT_A_FILE;
}

}  // namespace

// A commit renames the registry to its backup name before it renames the new file into place, and a
// crash may leave it there. The backup then is the last committed content, so a reader takes it;
// the file is complete under either name, and whichever is opened stays what it is.
unsigned int RegistryHandle::openReadable(const GenRegFile& handle, OSSHFile& file) noexcept {
  OSSFileOpenParam param{OSS_PARAM_LEVEL,
                         handle.registryPath,
                         OSS_ACCESS_READ_WRITE,
                         OSS_OPEN_EXISTING,
                         0,
                         permissions(handle.registryPermissions),
                         0};
  unsigned int code = file.open(&param);
  for (int round = 0; isMissing(code) && round < readRounds; ++round) {
    param.path = handle.backupPath;
    param.options = OSS_OPEN_NO_LINK;
    const unsigned int backup = file.open(&param);
    // A backup that is there and cannot be read is not "no registry".
    if (!isMissing(backup)) return backup;
    param.path = handle.registryPath;
    param.options = 0;
    code = file.open(&param);
  }
  return code;
}

unsigned int RegistryHandle::lockFileOf(OSSHFile& file, std::uint32_t lockType) noexcept {
  const OSSFileLockParam param{OSS_PARAM_LEVEL, lockType, OSS_LOCK_WAIT};
  return file.lock(&param);
}

int RegistryHandle::adoptMainStream(GenRegFile& handle, OSSHFile& file,
                                    platform::StreamUse use) noexcept {
  errno = 0;
  platform::StreamBacking* backing = nullptr;
  std::FILE* stream = platform::openStream(file.releaseFileHandle(), use, &backing);
  if (stream == nullptr) return errno != 0 ? errno : EIO;
  // A caller that opens a second scan over an open one gives the first one up.
  (void)closeMain(handle);
  handle.mainStream = stream;
  handle.mainBacking = backing;
  return 0;
}

unsigned int GenRegFile::OpenScan() noexcept {
  Routine routine(Function::openScan);
  OSSHFile file;
  if (const unsigned int code = RegistryHandle::openReadable(*this, file); code != 0) {
    (void)routine.failFrom(genreg::probeFileOpen, code, GENREG_RC_OPEN_FAILED, 10);
    return routine.exit(routine.fail(GENREG_RC_OPEN_FAILED, 11, genreg::text(registryPath)));
  }
  const std::uint32_t lockType = g_bIsPlatformID_Win32On95 ? OSS_LOCK_EXCLUSIVE : OSS_LOCK_SHARED;
  if (const unsigned int code = RegistryHandle::lockFileOf(file, lockType); code != 0) {
    (void)routine.failFrom(genreg::probeFileLock, code, GENREG_RC_FILE_LOCK, 20);
    return routine.exit(routine.fail(GENREG_RC_FILE_LOCK, 21, genreg::text(registryPath)));
  }
  const int error = RegistryHandle::adoptMainStream(*this, file, platform::StreamUse::Read);
  if (error != 0) {
    return routine.exit(routine.failSystem(error, GENREG_RC_OPEN_FAILED, 30, registryPath));
  }
  status = (status | GENREG_STATUS_SCAN_OPEN) & ~GENREG_STATUS_SCAN_END;
  return routine.exit(GENREG_RC_OK);
}

unsigned int GenRegFile::CloseScan() noexcept {
  Routine routine(Function::closeScan);
  unsigned int code = GENREG_RC_OK;
  if (const int error = RegistryHandle::closeMain(*this); error != 0) {
    code = routine.failSystem(error, GENREG_RC_CLOSE_FAILED, 10, registryPath, OSS_SYSCALL_CLOSE);
  }
  status &= ~(GENREG_STATUS_SCAN_OPEN | GENREG_STATUS_SCAN_END);
  return routine.exit(code);
}

unsigned int GenRegFile::Rewind() noexcept {
  Routine routine(Function::rewindScan);
  if ((status & GENREG_STATUS_SCAN_OPEN) == 0) {
    return routine.exit(routine.fail(GENREG_RC_NO_SCAN, 10));
  }
  if (platform::seekStream(mainStream, 0) != 0) {
    const std::int32_t errorFlag = std::ferror(mainStream);
    return routine.exit(routine.fail(GENREG_RC_REWIND_FAILED, 20, genreg::number(errorFlag)));
  }
  std::clearerr(mainStream);
  status &= ~GENREG_STATUS_SCAN_END;
  return routine.exit(GENREG_RC_OK);
}

unsigned int GenRegFile::getRegFilePosition(std::int64_t* position) noexcept {
  Routine routine(Function::getPosition);
  if ((status & GENREG_STATUS_SCAN_OPEN) == 0) {
    return routine.exit(routine.fail(GENREG_RC_NO_SCAN, 10));
  }
  if (position == nullptr) return routine.exit(routine.fail(OSS_RC_NULL_ARGUMENT, 20));
  const std::int64_t offset = RegistryHandle::mainPosition(*this);
  if (offset < 0) {
    return routine.exit(routine.failSystem(errno, GENREG_RC_GETPOS_FAILED, 30, registryPath));
  }
  *position = offset;
  return routine.exit(GENREG_RC_OK);
}

unsigned int GenRegFile::setRegFilePosition(std::int64_t* position) noexcept {
  Routine routine(Function::setPosition);
  if ((status & GENREG_STATUS_SCAN_OPEN) == 0) {
    return routine.exit(routine.fail(GENREG_RC_NO_SCAN, 10));
  }
  if (position == nullptr) return routine.exit(routine.fail(OSS_RC_NULL_ARGUMENT, 20));
  if (platform::seekStream(mainStream, *position) != 0) {
    return routine.exit(routine.failSystem(errno, GENREG_RC_SETPOS_FAILED, 30, registryPath));
  }
  return routine.exit(GENREG_RC_OK);
}
