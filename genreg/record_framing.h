// The frame of one record in a binary registry file: its length in four bytes, then its bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace genreg {

constexpr std::size_t lengthWidth = 4;  // bytes of a length field

inline std::uint32_t decodeLength(const char* field, bool bigEndian) noexcept {
  const auto byte = [&](std::size_t i) {
    return std::uint32_t{static_cast<unsigned char>(field[i])};
  };
  // Each order spelled out is one load to the compiler.
  if (bigEndian) return byte(0) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3);
  return byte(3) << 24 | byte(2) << 16 | byte(1) << 8 | byte(0);
}

inline void encodeLength(std::uint32_t length, bool bigEndian,
                         unsigned char (&field)[lengthWidth]) noexcept {
  for (std::size_t i = 0; i < lengthWidth; ++i) {
    const std::size_t shift = 8 * (bigEndian ? lengthWidth - 1 - i : i);
    field[i] = static_cast<unsigned char>(length >> shift);
  }
}

}  // namespace genreg
