#include "faces/value_text.h"

#include <algorithm>

namespace faces {
namespace {

// How many bytes the character at the beginning takes; 0 when there is none.
std::size_t characterLength(std::string_view text) noexcept {
  // Of each length: the bits of its first byte, and the smallest character that needs it.
  constexpr struct {
    unsigned char mask, mark;
    char32_t smallest;
  } forms[] = {{0x80, 0x00, 0}, {0xE0, 0xC0, 0x80}, {0xF0, 0xE0, 0x800}, {0xF8, 0xF0, 0x10000}};
  const auto first = static_cast<unsigned char>(text[0]);
  std::size_t length = 1;
  for (const auto& form : forms) {
    if ((first & form.mask) != form.mark) {
      ++length;
      continue;
    }
    if (text.size() < length) return 0;
    char32_t character = first & static_cast<unsigned char>(~form.mask);
    for (std::size_t i = 1; i < length; ++i) {
      const auto byte = static_cast<unsigned char>(text[i]);
      if ((byte & 0xC0) != 0x80) return 0;
      character = (character << 6) | (byte & 0x3F);
    }
    const bool isSurrogate = character >= 0xD800 && character < 0xE000;
    return character < form.smallest || character > 0x10FFFF || isSurrogate ? 0 : length;
  }
  return 0;
}

}  // namespace

bool isUtf8(std::string_view text) noexcept {
  while (!text.empty()) {
    const std::size_t length = characterLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string inQuotes(std::string_view value) {
  constexpr std::size_t most = 60;  // bytes
  std::string shown = "'";
  while (!value.empty() && shown.size() < most) {
    const std::size_t length = characterLength(value);
    const bool isControl = static_cast<unsigned char>(value[0]) < 0x20 || value[0] == 0x7F;
    shown += length == 0 || isControl ? std::string_view("?") : value.substr(0, length);
    value.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return shown + (value.empty() ? "'" : "...'");
}

}  // namespace faces
