// Closing the files of one operation, and the commit.
//
// The order that keeps the data, and what a crash between two steps leaves:
//   1. the temporary file is flushed, synced and closed   -> a leftover temporary file
//   2. registry file -> backup name                       -> only the backup: readers read it, the
//                                                            next update puts it back
//   3. temporary file -> registry file                    -> both: the next update drops the backup
//   4. the directory is synced                            -> as after 3
//   5. the backup is deleted
// Without 1 a power cut after 3 can leave an empty registry. With 5 before 4 it can leave nothing.
#include <cerrno>

#include "genreg/core/registry_handle.h"
#include "sysservices/diagnostics.h"
#include "sysservices/file_system.h"

using genreg::Function;
using genreg::Outcome;
using genreg::Routine;
using genreg::text;

namespace {

bool commits(const GenRegFile& handle, std::uint64_t kind) {
  if (RegistryHandle::hasFeature(handle, GENREG_VERIFY_UPDATES)) return kind == GENREG_OP_VERIFY;
  return kind == GENREG_OP_CHANGE || kind == GENREG_OP_DELETE ||
         (kind == GENREG_OP_ADD && !RegistryHandle::appendsInPlace(handle, kind));
}

}  // namespace

unsigned int RegistryHandle::closeRegFile(GenRegFile& handle, std::uint64_t kind) {
  Routine routine(Function::closeRegFile);
  if ((handle.status & GENREG_STATUS_SCAN_OPEN) != 0) {
    return routine.exit(routine.fail(GENREG_RC_SCAN_OPEN, 10));
  }
  if (const unsigned int code = finishStreams(handle, routine, kind); code != 0) {
    return routine.exit(code);
  }
  if (!commits(handle, kind)) return routine.exit(GENREG_RC_OK);
  return routine.exit(commit(handle, routine));
}

// What an operation wrote is made durable before its stream is closed, unless the operation is
// abandoned; a sync that fails is a close that failed, and nothing is committed. An append in place
// that is abandoned or cannot be made durable is taken back, so that no torn record stays.
unsigned int RegistryHandle::finishStreams(GenRegFile& handle, Routine& routine,
                                           std::uint64_t kind) noexcept {
  const bool keepsWork =
      kind == GENREG_OP_CHANGE || kind == GENREG_OP_ADD || kind == GENREG_OP_DELETE;
  Outcome outcome;

  int mainError = 0;
  if (handle.mainStream != nullptr && handle.appending) {
    if (keepsWork) mainError = platform::makeDurable(handle.mainStream, handle.mainBacking);
    if (!keepsWork || mainError != 0) {
      const int error = platform::takeBack(handle.mainStream, handle.mainBacking);
      if (mainError == 0) mainError = error;
    }
  }
  handle.appending = false;
  if (const int error = closeMain(handle); mainError == 0) mainError = error;
  if (mainError != 0) {
    outcome.note(routine.failSystem(mainError, GENREG_RC_CLOSE_FAILED, 20, handle.registryPath,
                                    OSS_SYSCALL_CLOSE));
  }

  int secondError = 0;
  const bool wrote = handle.secondStream != nullptr && keepsWork;
  if (wrote) secondError = platform::makeDurable(handle.secondStream, handle.secondBacking);
  if (const int error = closeSecond(handle); secondError == 0) secondError = error;
  handle.temporaryDurable = handle.temporaryDurable || (wrote && secondError == 0);
  if (secondError != 0) {
    outcome.note(routine.failSystem(secondError, GENREG_RC_CLOSE_TEMP_FAILED, 30,
                                    handle.temporaryPath, OSS_SYSCALL_CLOSE));
  }
  return outcome.code();
}

unsigned int RegistryHandle::commit(GenRegFile& handle, Routine& routine) noexcept {
  const char* registry = handle.registryPath;
  const char* backup = handle.backupPath;
  const char* temporary = handle.temporaryPath;

  unsigned int code = ossFileRename(registry, backup);
  if (code == OSS_RC_FILE_EXISTS && ossIsFile(registry)) {
    // A backup that appeared since the session began; it goes only while the registry stands.
    (void)ossFileDelete(backup);
    code = ossFileRename(registry, backup);
  }
  if (code != 0) {
    const std::int32_t error = ossFileLastError();
    (void)routine.failFrom(genreg::probeFileRename, code, GENREG_RC_BACKUP_RENAME_FAILED, 40);
    return routine.fail(GENREG_RC_BACKUP_RENAME_FAILED, 41, genreg::number(error), text(registry),
                        text(backup));
  }

  if (const unsigned int renamed = ossFileRename(temporary, registry); renamed != 0) {
    const std::int32_t error = ossFileLastError();
    (void)routine.failFrom(genreg::probeFileRename, renamed, GENREG_RC_COMMIT_RENAME_FAILED, 50);
    (void)routine.fail(GENREG_RC_COMMIT_RENAME_FAILED, 51, genreg::number(error), text(temporary),
                       text(registry));
    // At once: readers have only the backup until then. If this fails too, the next update does it.
    (void)ossFileRename(backup, registry);
    return GENREG_RC_COMMIT_RENAME_FAILED;
  }

  if (const int error = platform::syncDirectoryOf(registry); error != 0) {
    (void)routine.failSystem(error, GENREG_RC_COMMIT_RENAME_FAILED, 60, registry);
    // The new names may not survive a power cut, so success would be a lie. Going back leaves what
    // the failure code says: the old content. A crash in between leaves only the backup.
    if (ossFileRename(registry, temporary) == 0) (void)ossFileRename(backup, registry);
    return GENREG_RC_COMMIT_RENAME_FAILED;
  }

  const unsigned int deleted = ossFileDelete(backup);
  if (deleted != 0 && deleted != OSS_RC_FILE_NOT_FOUND) {
    (void)routine.failFrom(genreg::probeFileDelete, deleted, GENREG_RC_BACKUP_DELETE_FAILED, 70);
    return routine.fail(GENREG_RC_BACKUP_DELETE_FAILED, 71, text(backup));
  }
  return GENREG_RC_OK;
}
