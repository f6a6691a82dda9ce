#include "genreg/core/record_store.h"

namespace genreg {

bool RecordStore::validate(Routine& routine, std::uint64_t mask, void* keyOrRecord,
                           bool asks) const noexcept {
  const GenRegValidateHook hook = handle_.validateHook();
  if (hook == nullptr) return routine.fail(GENREG_RC_NO_VALIDATE_HOOK, 10);
  if (!asks) return true;
  const Code refused = hook(mask, keyOrRecord);
  return refused == 0 || routine.fail(GENREG_RC_KEY_REJECTED, 20, number(refused));
}

bool RecordStore::recordSize(Routine& routine, std::uint64_t* size) const noexcept {
  const GenRegSizeHook hook = handle_.sizeHook();
  if (const RecordForm* form = handle_.form(); form != nullptr && hook == form->getRecordSize) {
    *size = form->recordSize;
    return true;
  }
  *size = 0;
  if (hook == nullptr) return routine.fail(GENREG_RC_NO_SIZE_HOOK, 30);
  (void)hook(size);
  *size = static_cast<std::uint32_t>(*size);
  if (*size < smallestRecord) return routine.fail(GENREG_RC_RECORD_TOO_SMALL, 40, number(*size));
  if (*size > largestRecord) return routine.fail(GENREG_RC_RECORD_TOO_LARGE, 50, number(*size));
  return true;
}

Code RecordStore::requireHooks(std::initializer_list<NeededHook> needed) const noexcept {
  Routine routine(kind.checkHooks);
  unsigned int point = 10;
  for (const NeededHook& hook : needed) {
    if (!hook.filled) return routine.refuse(hook.missing, point);
    point += 10;
  }
  return GENREG_RC_OK;
}

bool RecordStore::lock(Routine& routine, std::uint64_t request) const noexcept {
  const Code code = handle_.lock(request);
  const Code failed = code == GENREG_RC_BUSY ? code : GENREG_RC_LOCK_FAILED;
  return code == 0 || routine.failFrom(Function::lockRegistry, code, failed, 62);
}

bool RecordStore::open(Routine& routine, std::uint64_t operation,
                       unsigned int point) const noexcept {
  const Code code = session().open(operation);
  return code == 0 ||
         routine.failFrom(Function::openRegFile, code, GENREG_RC_OPEN_FOR_OPERATION, point);
}

bool RecordStore::close(Routine& routine, std::uint64_t operation,
                        unsigned int point) const noexcept {
  const Code code = session().close(operation);
  return code == 0 ||
         routine.failFrom(Function::closeRegFile, code, GENREG_RC_CLOSE_AFTER_OPERATION, point);
}

void RecordStore::unlock(Routine& routine) const noexcept {
  const Code code = session().unlock();
  if (code == 0) return;
  const Routine::CleanUp cleanUp(routine);
  (void)routine.failFrom(Function::unlockRegistry, code, GENREG_RC_UNLOCK_FAILED, 230);
  session().dropLock();
}

bool RecordStore::keep(Routine& routine, File& to, const Frame& frame,
                       std::uint64_t operation) noexcept {
  std::string_view gained;
  return mayKeep(routine, frame, operation, &gained) &&
         write(routine, to, frame.bytes, GENREG_RC_COPY_FAILED, 108) &&
         (gained.empty() || write(routine, to, gained, GENREG_RC_COPY_FAILED, 108));
}

bool RecordStore::canCompare(Routine& routine, unsigned int point) const noexcept {
  return handle_.compareHook() != nullptr || routine.fail(GENREG_RC_NO_COMPARE_HOOK, point);
}

}  // namespace genreg
