// Reading, parsing, formatting and writing single lines of a text registry.
#include <cstring>

#include "genreg/text_store.h"

using genreg::Function;
using genreg::LineCursor;
using genreg::Routine;
using genreg::TextLine;

unsigned int TextStore::checkHooks() const noexcept {
  return Engine::checkHooks(Function::textCheckHooks, {{canValidate(), GENREG_RC_NO_VALIDATE_HOOK},
                                                       {canSize(), GENREG_RC_NO_SIZE_HOOK},
                                                       {canUnpack(), GENREG_RC_NO_UNPACK_HOOK},
                                                       {canCompare(), GENREG_RC_NO_COMPARE_HOOK},
                                                       {canPack(), GENREG_RC_NO_PACK_HOOK}});
}

LineCursor TextStore::mainCursor() const noexcept {
  const std::int64_t offset = RegistryHandle::mainPosition(handle_);
  return {handle_.mainStream, offset < 0 ? 0 : static_cast<std::uint64_t>(offset),
          RegistryHandle::mainSize(handle_), false};
}

LineCursor TextStore::secondCursor() const noexcept {
  return {handle_.secondStream, 0, RegistryHandle::secondSize(handle_), false};
}

unsigned int TextStore::next(const Routine& routine, LineCursor& cursor, TextLine& line,
                             unsigned int readFailed, unsigned int point) const noexcept {
  if (cursor.next(line, joins())) return GENREG_RC_OK;
  const std::int32_t error = std::ferror(cursor.stream);
  if (error == 0) return GENREG_RC_END;
  return routine.fail(readFailed, point, genreg::number(error), genreg::wide(cursor.offset));
}

bool TextStore::parse(const Routine& routine, void* record, TextLine& line,
                      unsigned int point) const noexcept {
  const unsigned int code = handle_.GenRegFile::UnpackRecord.text(record, line.makeText(joins()));
  if (code == 0) return true;
  (void)routine.fail(GENREG_RC_UNPACK_LINE, point, genreg::number(code), genreg::text(line.text()));
  return false;
}

unsigned int TextStore::pack(const Routine& routine, void* record, TextLine& line) const noexcept {
  if (!canPack()) return routine.fail(GENREG_RC_NO_PACK_HOOK, 100);
  char* text = line.ownRaw();
  if (const unsigned int code = handle_.GenRegFile::PackRecord.text(record, text); code != 0) {
    return routine.fail(GENREG_RC_PACK_LINE_FAILED, 110, genreg::number(code));
  }
  line.rawLength = ::strnlen(text, GENREG_LINE_SIZE);
  const bool hasNewline = std::memchr(text, '\n', line.rawLength) != nullptr;
  if (line.rawLength >= GENREG_LINE_SIZE || !(hasNewline || line.append("\n", 1))) {
    return routine.fail(GENREG_RC_PACK_LINE_FAILED, 115, genreg::wide(line.rawLength));
  }
  // A line that joins what follows it would swallow a record.
  if (joins() && line.rawLength > 1 && line.raw[line.rawLength - 2] == '\\') {
    return routine.fail(GENREG_RC_PACK_LINE_FAILED, 117, genreg::text(line.raw));
  }
  return GENREG_RC_OK;
}

unsigned int TextStore::write(const Routine& routine, std::FILE* stream, const char* bytes,
                              std::size_t length, unsigned int writeFailed,
                              unsigned int point) const noexcept {
  if (platform::writeStream(stream, bytes, length) == length) return GENREG_RC_OK;
  const std::int32_t error = std::ferror(stream);
  return routine.fail(writeFailed, point, genreg::number(error));
}
