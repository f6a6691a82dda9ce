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

// The first match from the cursor on: 0 with the record loaded, or with `taken` when it is in `out`
// already; GENREG_RC_END, or a failure.
unsigned int BinaryStore::search(Routine& routine, RecordCursor& cursor, std::uint64_t mask,
                                 void* key, LoadedRecord& loaded, std::uint64_t size, void* out,
                                 bool* taken) const noexcept {
  const genreg::StoredForm* form = storedForm(key, size);
  bool found = false;
  while (!found) {
    *taken = form != nullptr && takeStored(*form, cursor, mask, key, out);
    if (*taken) return GENREG_RC_OK;
    const unsigned int code = loadAndMatch(routine, cursor, loaded, size, mask, key, &found);
    if (code != 0) return code;
  }
  return GENREG_RC_OK;
}

unsigned int BinaryStore::get(Routine& routine, std::uint64_t mask, void* key, void* out) noexcept {
  std::uint64_t size = 0;
  if (const unsigned int code = validate(routine, mask, key); code != 0) return code;
  if (out == nullptr) return routine.fail(OSS_RC_NULL_ARGUMENT, 25);
  if (const unsigned int code = recordSize(routine, &size); code != 0) return code;
  LoadedRecord loaded(__LINE__);
  if (const unsigned int code = allocate(routine, loaded, size, GENREG_RC_BUFFER_ALLOC);
      code != 0) {
    return code;
  }

  Outcome outcome;
  Outcome cleanUp;
  if (const unsigned int code = beginSearch(routine, GENREG_RC_NO_FILE, genreg::readOpenSeverity);
      code != 0) {
    return code;
  }
  RecordCursor cursor = mainCursor();
  bool taken = false;
  outcome.note(search(routine, cursor, mask, key, loaded, size, out, &taken));
  cleanUp.note(endSearch(routine));

  if (outcome.ok()) {
    if (!taken) outcome.note(copyOut(routine, loaded, size, out));
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
  if (!inScan()) return routine.fail(GENREG_RC_NO_SCAN, 5);
  if (const unsigned int code = validate(routine, mask, key); code != 0) return code;
  if (out == nullptr) return routine.fail(OSS_RC_NULL_ARGUMENT, 25);
  if ((handle_.status & GENREG_STATUS_SCAN_END) != 0) return GENREG_RC_END;
  std::uint64_t size = 0;
  if (const unsigned int code = recordSize(routine, &size); code != 0) return code;
  RecordCursor cursor = mainCursor();
  if (const genreg::StoredForm* form = storedForm(key, size);
      form != nullptr && takeStored(*form, cursor, mask, key, out)) {
    return GENREG_RC_OK;
  }
  LoadedRecord loaded(__LINE__);
  if (const unsigned int code = allocate(routine, loaded, size, GENREG_RC_BUFFER_ALLOC);
      code != 0) {
    return code;
  }

  Outcome outcome;
  bool taken = false;
  outcome.note(search(routine, cursor, mask, key, loaded, size, out, &taken));
  if (outcome.ok()) {
    if (!taken) outcome.note(copyOut(routine, loaded, size, out));
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
