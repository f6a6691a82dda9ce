// GenRegText: construction, Get and GetNext.
#include <cstring>

#include "genreg/text_store.h"

using genreg::Function;
using genreg::LineCursor;
using genreg::Outcome;
using genreg::RecordBuffer;
using genreg::Routine;
using genreg::TextLine;

GenRegText::GenRegText() noexcept {
  Routine routine(Function::textConstructor);
  engineKind = GENREG_ENGINE_TEXT;
}

GenRegText::~GenRegText() { Routine routine(Function::textDestructor); }

unsigned int GenRegText::Get(std::uint64_t mask, void* key, void* record) noexcept {
  Routine routine(Function::textGet);
  return routine.exit(TextStore(*this).get(routine, mask, key, record));
}

unsigned int GenRegText::GetNext(std::uint64_t mask, void* key, void* record) noexcept {
  Routine routine(Function::textGetNext);
  return routine.exit(TextStore(*this).getNext(routine, mask, key, record));
}

// The first match from where the main stream stands: 0 with the line and its record, GENREG_RC_END,
// or a failure. A line that does not parse is compared all the same: the flavour may know it by
// what it could read. With `anyLine` every line matches.
unsigned int TextStore::search(const Routine& routine, std::uint64_t mask, void* key, void* record,
                               bool anyLine, TextLine& line) const noexcept {
  LineCursor cursor = mainCursor();
  const genreg::StoredForm* form = anyLine ? nullptr : storedForm(key);
  const auto differs = [&](const char* bytes, std::size_t length) {
    return form->liken(mask, bytes, length, key) == genreg::Likeness::Differs;
  };
  for (;;) {
    if (form != nullptr) cursor.passOver(joins(), differs);
    const unsigned int code = next(routine, cursor, line, GENREG_RC_READ_FAILED, 80);
    if (code != 0) return code;
    if (!canUnpack()) return routine.fail(GENREG_RC_NO_UNPACK_HOOK, 85);
    (void)parse(routine, record, line, 86);
    if (anyLine) return GENREG_RC_OK;
    if (!canCompare()) return routine.fail(GENREG_RC_NO_COMPARE_HOOK, 90);
    if (matches(mask, record, key)) return GENREG_RC_OK;
  }
}

// The record may point into itself: parsing the line again, into the caller's copy, makes those
// pointers the caller's own.
unsigned int TextStore::copyOut(const Routine& routine, const void* record, std::uint64_t size,
                                TextLine& line, void* out) const noexcept {
  if (size < genreg::smallestReturnedRecord) {
    return routine.fail(GENREG_RC_RECORD_TOO_LARGE, 150,
                        genreg::wide(genreg::smallestReturnedRecord));
  }
  std::memcpy(out, record, size);
  (void)handle_.GenRegFile::UnpackRecord.text(out, line.text());
  return GENREG_RC_OK;
}

unsigned int TextStore::get(Routine& routine, std::uint64_t mask, void* key, void* out) noexcept {
  std::uint64_t size = 0;
  if (const unsigned int code = validate(routine, mask, key); code != 0) return code;
  if (out == nullptr) return routine.fail(OSS_RC_NULL_ARGUMENT, 25);
  if (const unsigned int code = recordSize(routine, &size); code != 0) return code;
  RecordBuffer record("GenRegText", __LINE__);
  if (const unsigned int code = record.reserve(size); code != 0) {
    return routine.failFrom(genreg::probeMemAlloc, code, GENREG_RC_BUFFER_ALLOC, 60);
  }
  std::memset(record.data(), 0, size);  // what the flavour leaves alone goes to the caller, too
  if (const unsigned int code =
          beginSearch(routine, GENREG_RC_OPEN_FOR_OPERATION, genreg::failureSeverity);
      code != 0) {
    return code;
  }
  TextLine line;
  Outcome outcome;
  outcome.note(search(routine, mask, key, record.data(), false, line));
  if (outcome.ok()) {
    outcome.note(copyOut(routine, record.data(), size, line, out));
  } else if (outcome.code() == GENREG_RC_END) {
    std::memset(out, 0, size);
    outcome.replace(GENREG_RC_NOT_FOUND);
  }
  outcome.note(endSearch(routine));
  // The caller has what was asked for: a release that fails is only worth a log record here.
  if (const unsigned int code = record.release(); code != 0) {
    (void)routine.failFrom(genreg::probeMemFree, code, GENREG_RC_BUFFER_FREE, 180);
  }
  return outcome.code();
}

// What a GetNext that found nothing leaves: the end of the scan, or a stream that reads again.
void TextStore::endScan(unsigned int code, std::uint64_t size, void* out) noexcept {
  if (code == GENREG_RC_READ_FAILED) std::clearerr(handle_.mainStream);
  if (code != GENREG_RC_END) return;
  handle_.status |= GENREG_STATUS_SCAN_END;
  std::memset(out, 0, size);
}

// The next line, whatever it is, straight into the caller's record: a flavour's own UnpackRecord
// leaves nothing of it undefined.
unsigned int TextStore::takeNext(const Routine& routine, const genreg::StoredForm& form,
                                 void* out) noexcept {
  TextLine line;
  LineCursor cursor = mainCursor();
  const unsigned int code = next(routine, cursor, line, GENREG_RC_READ_FAILED, 80);
  if (code == 0) {
    // Where a copy is handed out its line is parsed twice, and what is odd about it logged twice.
    const bool parsed = parse(routine, out, line, 86);
    if (!parsed || (form.isOdd != nullptr && form.isOdd(out))) {
      (void)handle_.GenRegFile::UnpackRecord.text(out, line.text());
    }
  } else {
    endScan(code, form.recordSize, out);
  }
  return code;
}

unsigned int TextStore::getNext(Routine& routine, std::uint64_t mask, void* key,
                                void* out) noexcept {
  if (!inScan()) return routine.fail(GENREG_RC_NO_SCAN, 5);
  const bool anyLine = mask == 0;
  if (!canValidate()) return routine.fail(GENREG_RC_NO_VALIDATE_HOOK, 10);
  if (!anyLine) {
    if (const unsigned int code = validate(routine, mask, key); code != 0) return code;
  }
  if (out == nullptr) return routine.fail(OSS_RC_NULL_ARGUMENT, 25);
  if ((handle_.status & GENREG_STATUS_SCAN_END) != 0) return GENREG_RC_END;
  std::uint64_t size = 0;
  if (const unsigned int code = recordSize(routine, &size); code != 0) return code;
  const genreg::StoredForm* form = anyLine ? storedForm(out) : nullptr;
  if (form != nullptr && size == form->recordSize) return takeNext(routine, *form, out);
  RecordBuffer record("GenRegText", __LINE__);
  if (const unsigned int code = record.reserve(size); code != 0) {
    return routine.failFrom(genreg::probeMemAlloc, code, GENREG_RC_BUFFER_ALLOC, 60);
  }
  std::memset(record.data(), 0, size);  // what the flavour leaves alone goes to the caller, too
  TextLine line;
  Outcome outcome;
  outcome.note(search(routine, mask, key, record.data(), anyLine, line));
  if (outcome.ok()) {
    outcome.note(copyOut(routine, record.data(), size, line, out));
  } else {
    endScan(outcome.code(), size, out);
  }
  if (const unsigned int code = record.release(); code != 0) {
    outcome.replace(routine.failFrom(genreg::probeMemFree, code, GENREG_RC_BUFFER_FREE, 180));
  }
  return outcome.code();
}
