// The text engine's inside: lines read from and written to streams and turned into records by the
// handle's hooks.
#pragma once

#include <cstdint>
#include <cstdio>

#include "genreg/core/engine.h"
#include "genreg/core/record_buffer.h"
#include "genreg/line_reader.h"
#include "genreg_text.h"

class TextStore final : public genreg::Engine {
 public:
  explicit TextStore(GenRegText& handle) noexcept : Engine(handle), handle_(handle) {}

  // The hooks that Add and the verification pass need.
  unsigned int checkHooks() const noexcept;
  bool canUnpack() const noexcept { return handle_.GenRegFile::UnpackRecord.text != nullptr; }
  bool canPack() const noexcept { return handle_.GenRegFile::PackRecord.text != nullptr; }
  bool joins() const noexcept { return has(GENREG_JOIN_CONTINUED_LINES); }

  genreg::LineCursor mainCursor() const noexcept;
  genreg::LineCursor secondCursor() const noexcept;

  // Reads the next line. GENREG_RC_END at the end of the file, `readFailed` after a read error.
  unsigned int next(const genreg::Routine& routine, genreg::LineCursor& cursor,
                    genreg::TextLine& line, unsigned int readFailed,
                    unsigned int point) const noexcept;

  // UnpackRecord on a line. False, and a log record, when the line does not parse.
  bool parse(const genreg::Routine& routine, void* record, genreg::TextLine& line,
             unsigned int point) const noexcept;
  // The same for an update, to which a line that was not read whole never parses.
  bool parseWhole(const genreg::Routine& routine, void* record, genreg::TextLine& line,
                  unsigned int point) const noexcept {
    return line.whole() && parse(routine, record, line, point);
  }

  // PackRecord into the line's raw text, which it may read as a template, with its newline. Returns
  // 0, GENREG_RC_NO_PACK_HOOK or GENREG_RC_PACK_LINE_FAILED.
  unsigned int pack(const genreg::Routine& routine, void* record,
                    genreg::TextLine& line) const noexcept;

  // Writes bytes; 0 or `writeFailed`.
  unsigned int write(const genreg::Routine& routine, std::FILE* stream, const char* bytes,
                     std::size_t length, unsigned int writeFailed,
                     unsigned int point) const noexcept;

  // Compares the old and the new file and commits when they differ by exactly the operation.
  unsigned int verifyUpdate(std::uint64_t kind, std::uint64_t mask, void* record,
                            void* key) noexcept;

  // The bodies of the operations.
  unsigned int get(genreg::Routine& routine, std::uint64_t mask, void* key, void* out) noexcept;
  unsigned int getNext(genreg::Routine& routine, std::uint64_t mask, void* key, void* out) noexcept;

 private:
  void endScan(unsigned int code, std::uint64_t size, void* out) noexcept;
  unsigned int takeNext(const genreg::Routine& routine, const genreg::StoredForm& form,
                        void* out) noexcept;
  unsigned int search(const genreg::Routine& routine, std::uint64_t mask, void* key, void* record,
                      bool anyLine, genreg::TextLine& line) const noexcept;
  unsigned int copyOut(const genreg::Routine& routine, const void* record, std::uint64_t size,
                       genreg::TextLine& line, void* out) const noexcept;

  GenRegText& handle_;
};
