#include "genreg/core/engine.h"

#include <cstdio>

namespace genreg {

unsigned int Engine::checkHooks(Function function,
                                std::initializer_list<NeededHook> needed) const noexcept {
  Routine routine(function);
  unsigned int point = 10;
  for (const NeededHook& hook : needed) {
    if (!hook.filled) return routine.exit(routine.fail(hook.missing, point));
    point += 10;
  }
  return routine.exit(GENREG_RC_OK);
}

unsigned int Engine::validate(const Routine& routine, std::uint64_t mask,
                              void* keyOrRecord) const noexcept {
  if (!canValidate()) return routine.fail(GENREG_RC_NO_VALIDATE_HOOK, 10);
  const unsigned int refused = file_.ValidateKey(mask, keyOrRecord);
  if (refused == 0) return GENREG_RC_OK;
  return routine.fail(GENREG_RC_KEY_REJECTED, 20, number(refused));
}

unsigned int Engine::recordSize(const Routine& routine, std::uint64_t* size) const noexcept {
  *size = 0;
  if (!canSize()) return routine.fail(GENREG_RC_NO_SIZE_HOOK, 30);
  (void)file_.GetRecordSize(size);
  *size = static_cast<std::uint32_t>(*size);
  if (*size < smallestRecord) return routine.fail(GENREG_RC_RECORD_TOO_SMALL, 40, wide(*size));
  if (*size > largestRecord) return routine.fail(GENREG_RC_RECORD_TOO_LARGE, 50, wide(*size));
  return GENREG_RC_OK;
}

const StoredForm* Engine::storedForm(const void* key) const noexcept {
  const StoredForm* form = file_.storedForm;
  if (form == nullptr || key == nullptr || tracingOn()) return nullptr;
  const bool own = file_.CompareRecord == form->compare &&
                   file_.UnpackRecord.binary == form->unpack.binary &&
                   file_.UnpackRecord.text == form->unpack.text;
  return own ? form : nullptr;
}

unsigned int Engine::beginSearch(const Routine& routine, unsigned int missingFile,
                                 unsigned int severity) noexcept {
  borrowsScan_ = inScan() && has(GENREG_GET_IN_SCAN);
  if (!borrowsScan_) {
    const unsigned int code = RegistryHandle::openRegFile(file_, GENREG_OP_READ);
    if (code == 0) return GENREG_RC_OK;
    const unsigned int own = code == GENREG_RC_NO_FILE ? missingFile : GENREG_RC_OPEN_FOR_OPERATION;
    return routine.failFrom(Function::openRegFile, code, own, 70, severity);
  }
  // The stream itself is moved: the scan's own state, its end included, stays as it is.
  std::FILE* stream = file_.mainStream;
  scanPosition_ = RegistryHandle::mainPosition(file_);
  if (scanPosition_ >= 0 && platform::seekStream(stream, 0) == 0) return GENREG_RC_OK;
  return routine.fail(GENREG_RC_OPEN_FOR_OPERATION, 75);
}

unsigned int Engine::endSearch(const Routine& routine) noexcept {
  if (!borrowsScan_) {
    const unsigned int code = RegistryHandle::closeRegFile(file_, GENREG_OP_READ);
    if (code == 0) return GENREG_RC_OK;
    return routine.failFrom(Function::closeRegFile, code, GENREG_RC_CLOSE_AFTER_OPERATION, 170);
  }
  std::clearerr(file_.mainStream);
  if (platform::seekStream(file_.mainStream, scanPosition_) == 0) return GENREG_RC_OK;
  return routine.fail(GENREG_RC_SETPOS_FAILED, 160);
}

unsigned int Engine::tellHooks(const Routine& routine, bool notifies, std::uint64_t kind,
                               void* recordOrKey, void* newRecord) const noexcept {
  if (notifies && has(GENREG_NOTIFY_CHANGE) && file_.NotifyChange != nullptr) {
    const unsigned int answer = file_.NotifyChange(&file_, kind, recordOrKey, newRecord);
    // An Add ignores the answer; after the others it keeps PostUpdate from being called.
    if (answer != 0 && kind != GENREG_OP_ADD) return GENREG_RC_OK;
  }
  if (!has(GENREG_POST_UPDATE)) return GENREG_RC_OK;
  if (file_.PostUpdate == nullptr) return routine.fail(GENREG_RC_NO_POST_UPDATE_HOOK, 250);
  if (const unsigned int answer = file_.PostUpdate(); answer != 0) {
    (void)routine.fail(answer, 260);
  }
  return GENREG_RC_OK;
}

}  // namespace genreg
