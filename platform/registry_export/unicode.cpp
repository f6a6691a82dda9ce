#include "platform/registry_export/unicode.h"

namespace platform {
namespace {

constexpr char32_t lastCodePoint = 0x10FFFF;

unsigned int byteAt(std::string_view text, std::size_t position) {
  return static_cast<unsigned char>(text[position]);
}

constexpr bool isSurrogate(char32_t unit) { return unit >= 0xD800 && unit <= 0xDFFF; }

// What the first byte of a sequence of several bytes says.
struct Lead {
  unsigned int mask;      // bits that mark it
  unsigned int mark;      // their value
  std::size_t following;  // bytes that come after it
  char32_t least;         // a smaller value has a shorter form and is invalid in this one
};

constexpr Lead leads[] = {{0xE0, 0xC0, 1, 0x80}, {0xF0, 0xE0, 2, 0x800}, {0xF8, 0xF0, 3, 0x10000}};

// The code point of the sequence at `position`, or invalidCodePoint.
char32_t sequence(std::string_view text, std::size_t position, const Lead& lead) {
  if (text.size() - position <= lead.following) return invalidCodePoint;
  char32_t value = byteAt(text, position) & ~lead.mask & 0xFFu;
  for (std::size_t i = 1; i <= lead.following; ++i) {
    if (!isContinuation(text[position + i])) return invalidCodePoint;
    value = value << 6 | (byteAt(text, position + i) & 0x3Fu);
  }
  const bool valid = value >= lead.least && value <= lastCodePoint && !isSurrogate(value);
  return valid ? value : invalidCodePoint;
}

}  // namespace

char32_t nextCodePoint(std::string_view utf8, std::size_t& position) noexcept {
  const unsigned int first = byteAt(utf8, position);
  if (first < 0x80) {
    ++position;
    return first;
  }
  for (const Lead& lead : leads) {
    if ((first & lead.mask) != lead.mark) continue;
    const char32_t value = sequence(utf8, position, lead);
    position += value == invalidCodePoint ? 1 : 1 + lead.following;
    return value;
  }
  ++position;
  return invalidCodePoint;
}

char32_t nextUtf16CodePoint(std::string_view bytes, std::size_t& position) noexcept {
  const auto nextUnit = [&]() -> char32_t {
    const unsigned int unit = byteAt(bytes, position) | byteAt(bytes, position + 1) << 8;
    position += 2;
    return unit;
  };
  if (bytes.size() - position < 2) {
    position = bytes.size();
    return invalidCodePoint;
  }
  const char32_t high = nextUnit();
  if (!isSurrogate(high)) return high;
  if (high >= 0xDC00 || bytes.size() - position < 2) return invalidCodePoint;
  const std::size_t second = position;
  const char32_t low = nextUnit();
  if (low >= 0xDC00 && isSurrogate(low)) return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
  position = second;
  return invalidCodePoint;
}

std::size_t utf16Length(std::string_view utf8) noexcept {
  std::size_t units = 0;
  for (std::size_t i = 0; i < utf8.size();) units += nextCodePoint(utf8, i) < 0x10000 ? 1 : 2;
  return units;
}

void appendUtf8(std::string& text, char32_t codePoint) {
  if (codePoint < 0x80) {
    text += static_cast<char>(codePoint);
    return;
  }
  const std::size_t following = codePoint < 0x800 ? 1 : codePoint < 0x10000 ? 2 : 3;
  text += static_cast<char>(leads[following - 1].mark | codePoint >> (6 * following));
  for (std::size_t i = 1; i <= following; ++i) {
    text += static_cast<char>(0x80u | (codePoint >> (6 * (following - i)) & 0x3Fu));
  }
}

}  // namespace platform
