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
