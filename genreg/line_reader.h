// Logical lines of a text registry: what is read, and what it means.
//
// A logical line is one physical line or, joined, several. Its raw text is what stands in the file
// and what an update writes back; its text is what a flavour parses, and is made only for a line
// that is parsed. A line that does not fit the buffer is read in pieces.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "genreg/core/record_store.h"
#include "genreg_text.h"

namespace genreg {

constexpr std::size_t longestRaw = GENREG_LINE_SIZE - 1;

// The next logical line of a file: 0, GENREG_RC_END, or GENREG_RC_NO_LINE after a read error. The
// file then stands before it again. `frame` is the line before it.
Code nextLine(File& file, bool join, Frame& frame) noexcept;

// Sets `stored`, `unended` and `isJoined` of a last line that has gained bytes, as nextLine()
// would.
void describeLast(Frame& frame, bool join) noexcept;

// The logical line of a raw text, NUL-terminated; `out` needs no more room than `raw`.
void makeText(std::string_view raw, bool join, char* out) noexcept;

// The length, without its newline, of a line that is whole and alone; longestRaw where none is.
inline std::size_t lengthOfPlainLine(const char* line, std::size_t count, bool join) noexcept {
  const auto* newline = static_cast<const char*>(std::memchr(line, '\n', count));
  if (newline == nullptr) return longestRaw;
  const auto length = static_cast<std::size_t>(newline - line);
  // A backslash at the end, or behind it a carriage return, may join the next line.
  const std::size_t tail = std::min<std::size_t>(length, 2);
  const bool mayContinue = join && std::memchr(newline - tail, '\\', tail) != nullptr;
  return mayContinue ? longestRaw : std::min(length, longestRaw);
}

// Walks the lines of a file's window that are whole and alone, as long as `pass` is true of one: it
// gets the bytes of a line without its newline. Returns the bytes passed.
template <typename Pass>
std::size_t walkLines(const char* bytes, std::size_t count, bool join, Pass pass) noexcept {
  std::size_t at = 0;
  while (at < count) {
    const std::size_t length = lengthOfPlainLine(bytes + at, count - at, join);
    if (length == longestRaw || !pass(bytes + at, length)) break;
    at += length + 1;
  }
  return at;
}

}  // namespace genreg
