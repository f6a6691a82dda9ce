#include "genreg/core/update_sequence.h"

#include "sysservices/file_system.h"

namespace genreg {

unsigned int Update::run() noexcept {
  if (const unsigned int code = check(); code != 0) return code;
  if (const unsigned int code = allocate(); code != 0) return code;
  Outcome outcome;
  outcome.note(session());
  if (const unsigned int code = release(); code != 0) {
    outcome.note(routine_.failFrom(probeMemFree, code, GENREG_RC_BUFFER_FREE, 240));
  }
  if (outcome.ok()) {
    void* first = kind_.operation == GENREG_OP_ADD ? record_ : key_;
    void* second = kind_.operation == GENREG_OP_CHANGE ? record_ : nullptr;
    outcome.note(engine_.tellHooks(routine_, names_.notifies, kind_.operation, first, second));
  }
  return outcome.code();
}

// The caller's arguments and the hooks, before any file is touched. A Change validates its new
// record, not the key.
unsigned int Update::check() noexcept {
  if (kind_.operation == GENREG_OP_ADD) {
    if (const unsigned int code = checkHooks(); code != 0) {
      return routine_.failFrom(names_.checkHooks, code, GENREG_RC_HOOK_MISSING, 5);
    }
  }
  const bool writes = kind_.operation != GENREG_OP_DELETE;
  if (const unsigned int code = engine_.validate(routine_, mask_, writes ? record_ : key_);
      code != 0) {
    return code;
  }
  if (writes && record_ == nullptr) return routine_.fail(OSS_RC_NULL_ARGUMENT, 25);
  return engine_.recordSize(routine_, &size_);
}

unsigned int Update::session() noexcept {
  GenRegFile& handle = engine_.file();
  if (const unsigned int code = RegistryHandle::lockRegistry(handle, kind_.lockRequest);
      code != 0) {
    return routine_.failFrom(Function::lockRegistry, code, GENREG_RC_LOCK_FAILED, 180);
  }
  Outcome outcome;
  Outcome cleanUp;
  if (const unsigned int code = RegistryHandle::openRegFile(handle, kind_.operation); code != 0) {
    outcome.note(routine_.failFrom(Function::openRegFile, code, GENREG_RC_OPEN_FOR_OPERATION, 190));
  } else {
    updateOpened(outcome, cleanUp);
  }
  if (const unsigned int code = RegistryHandle::unlockRegistry(handle); code != 0) {
    cleanUp.note(routine_.failFrom(Function::unlockRegistry, code, GENREG_RC_UNLOCK_FAILED, 230));
    RegistryHandle::dropUpdateLock(handle);
  }
  outcome.note(cleanUp.code());
  return outcome.code();
}

// Between open and unlock. `cleanUp` takes the failures that count only when nothing else failed.
void Update::updateOpened(Outcome& outcome, Outcome& cleanUp) noexcept {
  GenRegFile& handle = engine_.file();
  outcome.note(work());
  const bool unchanged = outcome.code() == GENREG_RC_UNCHANGED;
  const bool abandoned = !outcome.ok() && !unchanged;
  const unsigned int closed =
      RegistryHandle::closeRegFile(handle, abandoned ? GENREG_OP_READ : kind_.operation);
  if (closed != 0) {
    cleanUp.note(
        routine_.failFrom(Function::closeRegFile, closed, GENREG_RC_CLOSE_AFTER_OPERATION, 200));
  }
  if (!engine_.has(GENREG_VERIFY_UPDATES)) return;

  if (kind_.deletesTemporary && (abandoned || unchanged)) {
    if (const unsigned int code = ossFileDelete(RegistryHandle::temporaryPath(handle)); code != 0) {
      outcome.replace(routine_.failFrom(probeFileDelete, code, GENREG_RC_DELETE_TEMP_FAILED, 210));
    }
    return;
  }
  // A Change or Delete is verified even after a failed close: the pass reads what is on the disk,
  // and a file that lacks something is refused. An Add is not.
  if (!outcome.ok() || (closed != 0 && !kind_.deletesTemporary)) return;
  // Except for a temporary file whose sync failed: reading it back would come from memory and prove
  // nothing about the disk.
  if (!RegistryHandle::temporaryIsDurable(handle)) return;
  if (const unsigned int code = verify(); code != 0) {
    outcome.note(routine_.failFrom(names_.verifyUpdate, code, GENREG_RC_VERIFY_FAILED, 220));
  }
}

unsigned int Update::askFileSize(std::uint64_t* size) const noexcept {
  const unsigned int code = RegistryHandle::registryFileSize(engine_.file(), size);
  if (code == 0) return GENREG_RC_OK;
  return routine_.failFrom(probeFileGetInfo, code, GENREG_RC_FILE_INFO, 77);
}

unsigned int Update::seekTarget(std::FILE** target) const noexcept {
  *target = appendsInPlace() ? RegistryHandle::main(engine_.file()) : temporary();
  if (platform::seekStreamEnd(*target) == 0) return GENREG_RC_OK;
  const std::int32_t error = std::ferror(*target);
  return routine_.fail(GENREG_RC_SEEK_END_FAILED, 90, number(error));
}

}  // namespace genreg
