// GenRegBin: construction, Get and GetNext.
#include <cstring>

#include "genreg.h"
#include "genreg/binary_store.h"
#include "genreg/core/registry_handle.h"

using genreg::Function;
using genreg::Outcome;
using genreg::Routine;

unsigned int sqlzThisIsAZORLibrary = 0;

GenRegBin::GenRegBin() noexcept { engineKind = GENREG_ENGINE_BINARY; }

GenRegBin::~GenRegBin() = default;

unsigned int GenRegBin::Get(std::uint64_t mask, void* key, void* record) noexcept {
  Routine routine(Function::binGet);
  return routine.exit(BinaryStore(*this).get(routine, mask, key, record));
}

unsigned int GenRegBin::GetNext(std::uint64_t mask, void* key, void* record) noexcept {
  Routine routine(Function::binGetNext);
  return routine.exit(BinaryStore(*this).getNext(routine, mask, key, record));
}

unsigned int BinaryStore::copyOut(const Routine& routine, const LoadedRecord& found,
                                  std::uint64_t size, void* out) const noexcept {
  if (size < genreg::smallestReturnedRecord) {
    return routine.fail(GENREG_RC_RECORD_TOO_LARGE, 150,
                        genreg::wide(genreg::smallestReturnedRecord));
  }
  std::memcpy(out, record(found), size);
  return GENREG_RC_OK;
}

// The first match from the cursor on: 0 with the record loaded, GENREG_RC_END, or a failure.
unsigned int BinaryStore::search(Routine& routine, RecordCursor& cursor, std::uint64_t mask,
                                 void* key, LoadedRecord& loaded,
                                 std::uint64_t size) const noexcept {
  for (;;) {
    const unsigned int code = load(routine, cursor, loaded, size, GENREG_RC_READ_FAILED, 80);
    if (code != 0) return code;
    if (!canCompare()) return routine.fail(GENREG_RC_NO_COMPARE_HOOK, 90);
    if (matches(mask, record(loaded), key)) return GENREG_RC_OK;
  }
}

unsigned int BinaryStore::get(Routine& routine, std::uint64_t mask, void* key, void* out) noexcept {
  if (out == nullptr) return routine.fail(OSS_RC_NULL_ARGUMENT, 5);
  std::uint64_t size = 0;
  if (const unsigned int code = validate(routine, mask, key); code != 0) return code;
  if (const unsigned int code = recordSize(routine, &size); code != 0) return code;
  LoadedRecord loaded(__LINE__);
  if (const unsigned int code = allocate(routine, loaded, size, GENREG_RC_BUFFER_ALLOC);
      code != 0) {
    return code;
  }

  const bool inScan = (handle_.status & GENREG_STATUS_SCAN_OPEN) != 0 && has(GENREG_GET_IN_SCAN);
  Outcome outcome;
  Outcome cleanUp;
  if (inScan) {
    // Seeks the stream itself: the scan's own state, its end included, stays as it is.
    const std::int64_t position = platform::tellStream(handle_.mainStream);
    if (position < 0 || platform::seekStream(handle_.mainStream, 0) != 0) {
      return routine.fail(GENREG_RC_READ_FAILED, 70);
    }
    RecordCursor cursor = mainCursor();
    outcome.note(search(routine, cursor, mask, key, loaded, size));
    std::clearerr(handle_.mainStream);
    if (platform::seekStream(handle_.mainStream, position) != 0) {
      cleanUp.note(routine.fail(GENREG_RC_SETPOS_FAILED, 160));
    }
  } else {
    if (const unsigned int code = RegistryHandle::openRegFile(handle_, GENREG_OP_READ); code != 0) {
      const unsigned int own =
          code == GENREG_RC_NO_FILE ? GENREG_RC_NO_FILE : GENREG_RC_OPEN_FOR_OPERATION;
      return routine.failFrom(Function::openRegFile, code, own, 70, genreg::readOpenSeverity);
    }
    RecordCursor cursor = mainCursor();
    outcome.note(search(routine, cursor, mask, key, loaded, size));
    if (const unsigned int code = RegistryHandle::closeRegFile(handle_, GENREG_OP_READ);
        code != 0) {
      cleanUp.note(
          routine.failFrom(Function::closeRegFile, code, GENREG_RC_CLOSE_AFTER_OPERATION, 170));
    }
  }

  if (outcome.ok()) {
    outcome.note(copyOut(routine, loaded, size, out));
  } else if (outcome.code() == GENREG_RC_END) {
    std::memset(out, 0, size);
    outcome.replace(GENREG_RC_NOT_FOUND);
  }
  if (const unsigned int code = loaded.release(); code != 0) {
    cleanUp.note(routine.failFrom(genreg::probeMemFree, code, GENREG_RC_BUFFER_FREE, 180));
  }
  outcome.note(cleanUp.code());
  return outcome.code();
}

unsigned int BinaryStore::getNext(Routine& routine, std::uint64_t mask, void* key,
                                  void* out) noexcept {
  if ((handle_.status & GENREG_STATUS_SCAN_OPEN) == 0) return routine.fail(GENREG_RC_NO_SCAN, 5);
  if (out == nullptr) return routine.fail(OSS_RC_NULL_ARGUMENT, 6);
  if (const unsigned int code = validate(routine, mask, key); code != 0) return code;
  if ((handle_.status & GENREG_STATUS_SCAN_END) != 0) return GENREG_RC_END;
  std::uint64_t size = 0;
  if (const unsigned int code = recordSize(routine, &size); code != 0) return code;
  LoadedRecord loaded(__LINE__);
  if (const unsigned int code = allocate(routine, loaded, size, GENREG_RC_BUFFER_ALLOC);
      code != 0) {
    return code;
  }

  Outcome outcome;
  RecordCursor cursor = mainCursor();
  outcome.note(search(routine, cursor, mask, key, loaded, size));
  if (outcome.ok()) {
    outcome.note(copyOut(routine, loaded, size, out));
  } else if (outcome.code() == GENREG_RC_READ_FAILED) {
    // Back to where the damage starts: what follows it must never be taken for a record.
    std::clearerr(handle_.mainStream);
    (void)platform::seekStream(handle_.mainStream, static_cast<std::int64_t>(cursor.offset));
  } else if (outcome.code() == GENREG_RC_END) {
    handle_.status |= GENREG_STATUS_SCAN_END;
    std::memset(out, 0, size);
  } else if (outcome.code() == GENREG_RC_NO_UNPACK_HOOK_PACKED ||
             outcome.code() == GENREG_RC_UNPACK_FAILED) {
    std::memset(out, 0, size);
  }
  if (const unsigned int code = loaded.release(); code != 0) {
    outcome.note(routine.failFrom(genreg::probeMemFree, code, GENREG_RC_BUFFER_FREE, 180));
  }
  return outcome.code();
}
