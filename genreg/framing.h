// The frame of one record in a binary registry file: its length in four bytes, then its bytes.
//
// An append in place writes a mark in the length's place first, which is no length that a record
// can have, and the length itself only when all else is on the disk: a frame that a crash or a
// power cut left unfinished is known by it, and is not there for readers.
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

// The mark of a frame that an append began: this, and its length.
constexpr std::uint32_t unfinishedBase = 0xDB400000u;

// Whether a length field, as it was decoded, is such a mark. The frame then is the last one: `left`
// are the bytes of the file behind the field.
constexpr bool marksUnfinished(std::uint32_t field, std::uint64_t left, std::uint64_t smallest,
                               std::uint64_t largest) noexcept {
  const std::uint32_t length = field - unfinishedBase;
  return length >= smallest && length <= largest && length >= left;
}

inline void encodeLength(std::uint32_t length, bool bigEndian, char* field) noexcept {
  for (std::size_t i = 0; i < lengthWidth; ++i) {
    const std::size_t shift = 8 * (bigEndian ? lengthWidth - 1 - i : i);
    field[i] = static_cast<char>(static_cast<unsigned char>(length >> shift));
  }
}

}  // namespace genreg
