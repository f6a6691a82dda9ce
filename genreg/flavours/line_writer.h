// What the text flavours share: the words of a line, and building texts in bounded memory.
#pragma once

#include <cstring>
#include <string_view>

#include "genreg/line_text.h"
#include "genreg_text.h"

namespace genreg {

// A line without what ends it, as a text that is NUL-terminated and may hold its newline.
inline std::string_view lineOf(const char* text) noexcept {
  std::string_view line(text, ::strnlen(text, GENREG_LINE_SIZE - 1));
  return line.substr(0, line.find('\n'));
}

// Places the texts of a record one after the other in the record's own memory, which is as large as
// a line; each takes its bytes and a terminator, and a line has a separator for each.
class TextPlacer {
 public:
  explicit TextPlacer(char (&memory)[GENREG_LINE_SIZE]) noexcept : at_(memory) {}
  char* place(std::string_view text) noexcept {
    char* const placed = at_;
    std::memcpy(placed, text.data(), text.size());
    at_ += text.size();
    *at_++ = '\0';
    return placed;
  }
  const char* placePrintable(std::string_view text) noexcept {
    char* const placed = place(text);
    GenRegMakePrintable(placed);
    return placed;
  }

 private:
  char* at_;
};

// Builds a line apart from the template it may be formatted after; what does not fit or would break
// the line is remembered and reported at the end.
class LineWriter {
 public:
  void add(std::string_view text) noexcept {
    breaks_ = breaks_ || text.find('\n') != std::string_view::npos;
    overflows_ = overflows_ || text.size() > longest - length_;
    if (overflows_) return;
    std::memcpy(line_ + length_, text.data(), text.size());
    length_ += text.size();
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
