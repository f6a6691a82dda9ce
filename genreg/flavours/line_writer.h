// What the text flavours share: taking a line into a record, and building a line in a bounded
// buffer.
#pragma once

#include <cstring>

#include "genreg/line_text.h"
#include "genreg_text.h"

namespace genreg {

// Copies a line up to its newline into a record's own text, cuts the comment off at the first "#"
// and gives it back, printable; null when the line has none.
inline char* takeLine(char (&text)[GENREG_LINE_SIZE], const char* line) noexcept {
  std::size_t length = 0;
  char* comment = nullptr;
  for (; length < sizeof text - 1 && line[length] != '\n' && line[length] != '\0'; ++length) {
    if (line[length] == '#' && comment == nullptr) comment = text + length;
    text[length] = line[length];
  }
  text[length] = '\0';
  if (comment == nullptr) return nullptr;
  *comment++ = '\0';
  GenRegMakePrintable(comment);
  return comment;
}

// Builds a line apart from the template it may be formatted after; what does not fit or would break
// the line is remembered and told at the end.
class LineWriter {
 public:
  void add(const char* text) noexcept { add(text, std::strlen(text)); }
  void add(const char* text, std::size_t length) noexcept {
    breaks_ = breaks_ || std::memchr(text, '\n', length) != nullptr;
    overflows_ = overflows_ || length > longest - length_;
    if (overflows_) return;
    std::memcpy(line_ + length_, text, length);
    length_ += length;
  }

  // Ends the line and copies it over `text`, GENREG_LINE_SIZE bytes. Returns 0, `tooLong`, or
  // GENREG_RC_BAD_ARGUMENT for a newline inside; `text` is untouched then.
  unsigned int finish(char* text, unsigned int tooLong) noexcept {
    if (breaks_) return GENREG_RC_BAD_ARGUMENT;
    if (overflows_) return tooLong;
    line_[length_] = '\n';
    line_[length_ + 1] = '\0';
    std::memcpy(text, line_, length_ + 2);
    return GENREG_RC_OK;
  }

 private:
  static constexpr std::size_t longest = GENREG_LINE_SIZE - 2;  // newline and terminator

  char line_[GENREG_LINE_SIZE];
  std::size_t length_ = 0;
  bool overflows_ = false;
  bool breaks_ = false;
};

}  // namespace genreg
