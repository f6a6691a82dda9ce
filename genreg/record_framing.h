// The frame of one record in a binary registry file: its length in four bytes, then its bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace genreg {

constexpr std::size_t lengthWidth = 4;  // bytes of a length field

inline std::uint32_t decodeLength(const unsigned char (&field)[lengthWidth],
                                  bool bigEndian) noexcept {
  std::uint32_t length = 0;
  for (std::size_t i = 0; i < lengthWidth; ++i) {
    length = (length << 8) | field[bigEndian ? i : lengthWidth - 1 - i];
  }
  return length;
}

inline void encodeLength(std::uint32_t length, bool bigEndian,
                         unsigned char (&field)[lengthWidth]) noexcept {
  for (std::size_t i = 0; i < lengthWidth; ++i) {
    const std::size_t shift = 8 * (bigEndian ? lengthWidth - 1 - i : i);
    field[i] = static_cast<unsigned char>(length >> shift);
  }
}

}  // namespace genreg
