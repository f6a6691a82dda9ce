// Code points in UTF-8 and UTF-16, one at a time and never past the end of the text.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace platform {

// What stands where the text is not valid; no code point has this value.
constexpr char32_t invalidCodePoint = 0xFFFFFFFFu;
constexpr char32_t replacementCharacter = 0xFFFD;

// The code point at `position`, which must be inside the text; moves `position` past it. Invalid
// bytes count one at a time.
char32_t nextCodePoint(std::string_view utf8, std::size_t& position) noexcept;

// Whether a byte continues a UTF-8 sequence.
constexpr bool isContinuation(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0u) == 0x80u;
}

// The code point at `position` of little-endian UTF-16 as it lies in a file; half a unit at the end
// is invalid.
char32_t nextUtf16CodePoint(std::string_view bytes, std::size_t& position) noexcept;

// Appends a valid code point.
void appendUtf8(std::string& text, char32_t codePoint);

// The letter that stands for `letter` where names are matched without regard to case, as the
// registry of the original system does it: its capital, or itself where it has none.
char32_t capitalOf(char32_t letter) noexcept;

// Number of UTF-16 units that a text takes; an invalid byte counts as two.
std::size_t utf16Length(std::string_view utf8) noexcept;

}  // namespace platform
