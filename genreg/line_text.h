// Scrubbing of a line before a flavour parses it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "genreg/core/diagnostics.h"
#include "genreg_codes.h"

namespace genreg {

// Why a stream is refused that the C library beneath this library could not read.
constexpr const char* foreignStream = "a stream of another runtime library";

// A space, a tab or a carriage return; the first comparison decides for most bytes.
constexpr bool isBlank(char byte) noexcept {
  constexpr std::uint64_t blanks = std::uint64_t{1} << ' ' | 1u << '\t' | 1u << '\r';
  const auto number = static_cast<unsigned char>(byte);
  return number <= ' ' && (blanks >> number & 1) != 0;
}

inline const char* skipBlanks(const char* at, const char* end) noexcept {
  while (at < end && isBlank(*at)) ++at;
  return at;
}

inline std::string_view viewOf(const char* begin, const char* end) noexcept {
  return {begin, static_cast<std::size_t>(end - begin)};
}

// Whether a view, in which there is no NUL, is a text; null is none. Most differ in their first
// bytes, so a loop here is faster than a call.
inline bool equalsText(std::string_view view, const char* text) noexcept {
  if (text == nullptr) return false;
  const char* at = view.data();
  const char* const end = at + view.size();
  while (at < end && *at == *text) ++at, ++text;
  return at == end && *text == '\0';
}

// Where the word at `at` ends: the first byte that is `stop` or stands in front of "$" in the code
// table, as blanks, quotes, "#" and all control characters do, or `end`. Eight bytes are looked at
// together; the lowest of those that are found is the first, as the processor orders them.
inline const char* skipWord(const char* at, const char* end, char stop) noexcept {
  constexpr std::uint64_t ones = 0x0101010101010101u;
  constexpr std::uint64_t tops = 0x8080808080808080u;
  for (; end - at >= 8; at += 8) {
    std::uint64_t bytes;
    std::memcpy(&bytes, at, sizeof bytes);
    std::uint64_t found = (bytes - ones * '$') & ~bytes;
    if (stop >= '$') {
      const std::uint64_t toStop = bytes ^ (ones * static_cast<unsigned char>(stop));
      found |= (toStop - ones) & ~toStop;
    }
    found &= tops;
    if (found != 0) return at + __builtin_ctzll(found) / 8;
  }
  while (at < end && *at != stop && static_cast<unsigned char>(*at) >= '$') ++at;
  return at;
}

// Rewrites `text` in place: tabs, newlines and carriage returns become spaces, runs of spaces one
// space, leading and trailing ones go; text between double quotes stays as it is, to the end when a
// quote is never closed. Returns 0; GENREG_RC_NO_ARGUMENT for null; the allocator's code when its
// work copy cannot be had (`text` is untouched then) or released.
unsigned int GenRegNormalizeLine(char* text) noexcept;

// Splits off the next word of a line at *cursor, which goes behind it and the blanks before it. A
// carriage return is a blank, too, and a "#" ends the words. Returns 0, or GENREG_RC_NO_LINE with
// an empty token.
inline unsigned int GenRegNextToken(std::string_view* token, std::string_view* cursor) noexcept {
  Routine routine(Function::nextToken);
  const char* const end = cursor->data() + cursor->size();
  const char* const begin = skipBlanks(cursor->data(), end);
  const char* at = begin;
  // Most bytes of a word are neither blanks, nor "#", nor other characters in front of "$".
  for (at = skipWord(at, end, ' '); at < end && !isBlank(*at) && *at != '#';) {
    at = skipWord(at + 1, end, ' ');
  }
  *token = viewOf(begin, at);
  *cursor = viewOf(at, end);
  return routine.answer(token->empty() ? GENREG_RC_NO_LINE : GENREG_RC_OK);
}

// Replaces every byte that no terminal shows, all but the tab below 0x20 and all from 0x7F on, by
// ".". A null text is ignored.
void GenRegMakePrintable(char* text) noexcept;

}  // namespace genreg
