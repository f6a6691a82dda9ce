// Version codes split and put together.
#pragma once

#include <cstdint>

namespace install {

constexpr unsigned int versionParts = 4;  // version, release, modification, service level
constexpr unsigned int bitsOfPart = 16;

// Part `index` of a code, from 0 for the version.
constexpr std::uint16_t partOf(std::uint64_t versionCode, unsigned int index) {
  return static_cast<std::uint16_t>(versionCode >> (bitsOfPart * (versionParts - 1 - index)));
}

constexpr std::uint64_t withPart(std::uint64_t versionCode, unsigned int index,
                                 std::uint16_t part) {
  return versionCode | std::uint64_t{part} << (bitsOfPart * (versionParts - 1 - index));
}

// The value of decimal text as atoi reads it, kept in 16 bits; any text has one.
std::uint16_t partOfText(const char* text) noexcept;

}  // namespace install
