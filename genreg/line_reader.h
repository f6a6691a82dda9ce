// Logical lines of a text registry: what is read, and what it means.
//
// A logical line is one physical line or, joined, several. Its raw text is what stands in the file
// and what an update writes back; its text is what a flavour parses, and is made only for a line
// that is parsed.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "genreg_text.h"
#include "platform/stream.h"

namespace genreg {

constexpr std::size_t longestRaw = GENREG_LINE_SIZE - 1;

class TextLine {
 public:
  TextLine() noexcept { text_[0] = '\0'; }  // the rest may hold anything
  TextLine(const TextLine&) = delete;
  TextLine& operator=(const TextLine&) = delete;

  // The raw text: in the stream's buffer, valid until the next line is read from that stream, or in
  // this line's own.
  const char* raw = own_;
  std::size_t rawLength = 0;
  bool endOfFile = false;  // the logical line has no newline because the file ends here
  bool fragment = false;   // a piece of a line that is longer than the buffer

  // Only a line that was read whole can be told from what it says.
  bool whole() const noexcept;
  // The raw text lacks a newline of its own.
  bool unended() const noexcept { return rawLength == 0 || raw[rawLength - 1] != '\n'; }

  // Makes the logical line of the raw text. Valid until the next call, NUL-terminated.
  char* makeText(bool join) noexcept;
  const char* text() const noexcept { return text_; }
  char* text() noexcept { return text_; }

  // The raw text in memory of its own, GENREG_LINE_SIZE bytes, to be formatted over.
  char* ownRaw() noexcept;
  // Appends to the raw text; false when that would leave no room for a terminator.
  bool append(const char* bytes, std::size_t length) noexcept;

 private:
  friend struct LineCursor;

  char own_[GENREG_LINE_SIZE];
  char text_[GENREG_LINE_SIZE];
};

// Where the next line of a stream starts.
struct LineCursor {
  std::FILE* stream = nullptr;
  std::uint64_t offset = 0;
  std::uint64_t size = 0;         // bytes of the file
  bool insideLine = false;        // the last read was cut: what follows belongs to the same line
  bool cutBeforeNewline = false;  // it was cut between a backslash and the newline it may join

  // Reads the next logical line; false when there is none (the end, or an error that the stream's
  // error flag tells).
  bool next(TextLine& line, bool join) noexcept;

  // Passes over the lines that stand in the stream's buffer and are whole and alone, as long as
  // `pass` is true of one: it gets the bytes of a line without its newline. Returns the lines,
  // valid until the next read.
  template <typename Pass>
  std::string_view passOver(bool join, Pass pass) noexcept;
  // Passes over bytes in the stream's buffer that end where a line ends.
  void passOver(std::size_t length) noexcept {
    platform::skipStream(stream, length);
    offset += length;
  }

 private:
  bool take(TextLine& line, bool join, const char* bytes, std::size_t count) noexcept;
  void gather(TextLine& line, bool join) noexcept;
};

template <typename Pass>
std::string_view LineCursor::passOver(bool join, Pass pass) noexcept {
  if (insideLine) return {};
  std::size_t count = 0;
  const char* const bytes = platform::peekStream(stream, &count);
  const char* const end = bytes + count;
  const char* line = bytes;
  while (line < end) {
    const auto* newline =
        static_cast<const char*>(std::memchr(line, '\n', static_cast<std::size_t>(end - line)));
    if (newline == nullptr) break;
    const auto length = static_cast<std::size_t>(newline - line);
    // A backslash at the end, or behind it a carriage return, may join the next line.
    const bool mayContinue = join && std::memchr(newline - std::min<std::size_t>(length, 2), '\\',
                                                 std::min<std::size_t>(length, 2)) != nullptr;
    if (length >= longestRaw || mayContinue || !pass(line, length)) break;
    line = newline + 1;
  }
  const auto passed = static_cast<std::size_t>(line - bytes);
  passOver(passed);
  return {bytes, passed};
}

}  // namespace genreg
