#include "genreg/core/update_sequence.h"

#include "sysservices/file_system.h"

namespace genreg {
namespace {

// Between open and unlock. `cleanUp` takes the failures that count only when nothing else failed.
void updateOpened(GenRegFile& handle, Routine& routine, const UpdateKind& kind,
                  Function verifyFunction, UpdateWork& update, Outcome& outcome,
                  Outcome& cleanUp) noexcept {
  outcome.note(update.work());
  const bool unchanged = outcome.code() == GENREG_RC_UNCHANGED;
  const bool abandoned = !outcome.ok() && !unchanged;
  const unsigned int closed =
      RegistryHandle::closeRegFile(handle, abandoned ? GENREG_OP_READ : kind.operation);
  if (closed != 0) {
    cleanUp.note(
        routine.failFrom(Function::closeRegFile, closed, GENREG_RC_CLOSE_AFTER_OPERATION, 200));
  }
  if (!RegistryHandle::hasFeature(handle, GENREG_VERIFY_UPDATES)) return;

  if (kind.deletesTemporary && (abandoned || unchanged)) {
    if (const unsigned int code = ossFileDelete(RegistryHandle::temporaryPath(handle)); code != 0) {
      outcome.replace(routine.failFrom(probeFileDelete, code, GENREG_RC_DELETE_TEMP_FAILED, 210));
    }
    return;
  }
  // A Change or Delete is verified even after a failed close: the pass reads what is on the disk,
  // and a file that lacks something is refused. An Add is not.
  if (!outcome.ok() || (closed != 0 && !kind.deletesTemporary)) return;
  // Except for a temporary file whose sync failed: reading it back would come from memory and prove
  // nothing about the disk.
  if (closed == GENREG_RC_CLOSE_TEMP_FAILED) return;
  if (const unsigned int code = update.verify(); code != 0) {
    outcome.note(routine.failFrom(verifyFunction, code, GENREG_RC_VERIFY_FAILED, 220));
  }
}

}  // namespace

unsigned int runUpdate(GenRegFile& handle, Routine& routine, const UpdateKind& kind,
                       Function verifyFunction, UpdateWork& update) noexcept {
  if (const unsigned int code = RegistryHandle::lockRegistry(handle, kind.lockRequest); code != 0) {
    return routine.failFrom(Function::lockRegistry, code, GENREG_RC_LOCK_FAILED, 180);
  }
  Outcome outcome;
  Outcome cleanUp;
  if (const unsigned int code = RegistryHandle::openRegFile(handle, kind.operation); code != 0) {
    outcome.note(routine.failFrom(Function::openRegFile, code, GENREG_RC_OPEN_FOR_OPERATION, 190));
  } else {
    updateOpened(handle, routine, kind, verifyFunction, update, outcome, cleanUp);
  }
  if (const unsigned int code = RegistryHandle::unlockRegistry(handle); code != 0) {
    cleanUp.note(routine.failFrom(Function::unlockRegistry, code, GENREG_RC_UNLOCK_FAILED, 230));
    RegistryHandle::dropUpdateLock(handle);
  }
  outcome.note(cleanUp.code());
  return outcome.code();
}

}  // namespace genreg
