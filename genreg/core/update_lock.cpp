// The update lock: an exclusive lock on the registry's lock file, which writers of every process
// take one after the other.
#include "genreg/core/registry_handle.h"
#include "sysservices/file_system.h"

using genreg::Function;
using genreg::Routine;

unsigned int RegistryHandle::createDirectory(const GenRegFile& handle, const Routine& routine,
                                             std::uint32_t purpose, unsigned int point) noexcept {
  constexpr std::uint32_t ownerOnly = 0700;
  char directory[GENREG_PATH_SIZE];
  if (const unsigned int code = ossDirectoryName(handle.registryPath, directory, sizeof directory);
      code != 0) {
    return routine.failFrom(genreg::probeDirectoryName, code, code, point);
  }
  if (ossIsDirectory(directory)) return GENREG_RC_OK;
  const OSSDirectoryCreateParam param{OSS_PARAM_LEVEL, directory, ownerOnly, purpose};
  if (const unsigned int code = ossDirectoryCreate(&param); code != 0) {
    (void)routine.failFrom(genreg::probeDirectoryCreate, code, GENREG_RC_CREATE_DIRECTORY,
                           point + 2);
    return routine.fail(GENREG_RC_CREATE_DIRECTORY, point + 3, genreg::text(directory));
  }
  return GENREG_RC_OK;
}

unsigned int RegistryHandle::lockRegistry(GenRegFile& handle, std::uint64_t request) {
  Routine routine(Function::lockRegistry);
  const bool exclusive = (request & GENREG_LOCK_EXCLUSIVE) != 0;
  const bool wait = (request & GENREG_LOCK_NOWAIT) == 0;
  if (!exclusive && (request & GENREG_LOCK_SHARED) == 0) {
    return routine.exit(routine.fail(GENREG_RC_BAD_ARGUMENT, 10, genreg::wide(request)));
  }
  if (wait && (request & GENREG_LOCK_WAIT) == 0) {
    return routine.exit(routine.fail(GENREG_RC_BAD_ARGUMENT, 20, genreg::wide(request)));
  }
  if ((handle.status & GENREG_STATUS_READY) == 0) {
    return routine.exit(routine.fail(GENREG_RC_NOT_READY, 30));
  }
  if ((handle.status & GENREG_STATUS_LOCKED) != 0) {
    return routine.exit(routine.fail(GENREG_RC_ALREADY_LOCKED, 40));
  }
  if ((request & GENREG_LOCK_CREATE_DIR) != 0) {
    if (const unsigned int code = createDirectory(handle, routine, 2, 50); code != 0) {
      return routine.exit(code);
    }
  }

  handle.lockFileOpenParam = {OSS_PARAM_LEVEL,
                              handle.lockPath,
                              OSS_ACCESS_READ_WRITE,
                              exclusive ? OSS_OPEN_LOCK_FILE : OSS_OPEN_EXISTING,
                              0,
                              permissions(handle.lockPermissions),
                              0};
  if (const unsigned int code = handle.lockFile.open(&handle.lockFileOpenParam); code != 0) {
    (void)routine.failFrom(genreg::probeFileOpen, code, GENREG_RC_OPEN_LOCK_FAILED, 60);
    return routine.exit(
        routine.fail(GENREG_RC_OPEN_LOCK_FAILED, 61, genreg::text(handle.lockPath)));
  }
  const OSSFileLockParam lockParam{OSS_PARAM_LEVEL,
                                   exclusive ? OSS_LOCK_EXCLUSIVE : OSS_LOCK_SHARED,
                                   wait ? OSS_LOCK_WAIT : OSS_LOCK_NOWAIT};
  const unsigned int code = handle.lockFile.lock(&lockParam);
  if (code == 0) {
    handle.status |= GENREG_STATUS_LOCKED;
    return routine.exit(GENREG_RC_OK);
  }
  (void)handle.lockFile.close();
  if (code == OSS_RC_LOCK_BUSY && !wait) {
    (void)routine.failFrom(genreg::probeFileLock, code, GENREG_RC_BUSY, 70);
    return routine.exit(GENREG_RC_BUSY);
  }
  return routine.exit(routine.failFrom(genreg::probeFileLock, code, code, 80));
}

// Unlock, close, delete: a waiter may be granted the lock before the name goes. That is why the
// delete takes the lock itself and leaves the name to whoever has it by then, and why a granted
// lock is checked to be on the file that stands at the name.
unsigned int RegistryHandle::unlockRegistry(GenRegFile& handle) {
  Routine routine(Function::unlockRegistry);
  if (const unsigned int code = handle.lockFile.unlock(); code != 0) {
    return routine.exit(
        routine.failFrom(genreg::probeFileUnlock, code, GENREG_RC_UNLOCK_FILE_FAILED, 10));
  }
  handle.status &= ~GENREG_STATUS_LOCKED;
  if (const unsigned int code = handle.lockFile.close(); code != 0) {
    return routine.exit(
        routine.failFrom(genreg::probeFileClose, code, GENREG_RC_CLOSE_LOCK_FAILED, 20));
  }
  const unsigned int code = ossFileDelete(handle.lockPath);
  if (code == OSS_RC_FILE_NOT_FOUND) {
    (void)routine.fail(GENREG_RC_LOCK_FILE_GONE, 30, genreg::text(handle.lockPath));
  } else if (code != 0) {
    (void)routine.failFrom(genreg::probeFileDelete, code, GENREG_RC_LOCK_DELETE_FAILED, 40);
    return routine.exit(
        routine.fail(GENREG_RC_LOCK_DELETE_FAILED, 41, genreg::text(handle.lockPath)));
  }
  return routine.exit(GENREG_RC_OK);
}

void RegistryHandle::dropUpdateLock(GenRegFile& handle) noexcept {
  if ((handle.status & GENREG_STATUS_LOCKED) == 0) return;
  (void)handle.lockFile.close();
  handle.status &= ~GENREG_STATUS_LOCKED;
  (void)ossFileDelete(handle.lockPath);
}
