// The stored form of global registry records, put together by hand.
#pragma once

#include <string>
#include <vector>

#include "support/registry_fixture.h"

// An entry: its length in two bytes, then its bytes.
inline std::string entry(const std::string& bytes) { return little(bytes.size(), 2) + bytes; }
inline std::string text(const std::string& characters) { return entry(characters + '\0'); }
inline std::string number(std::uint64_t value, std::size_t width) {
  return entry(little(value, width));
}

inline std::string stored(std::uint32_t type, std::uint64_t fieldMask,
                          const std::vector<std::string>& entries, std::uint64_t missing = 0,
                          std::int32_t checkSum = 0) {
  std::string bytes = little(type, 4) + little(fieldMask, 8) + little(missing, 8);
  for (const std::string& each : entries) bytes += each;
  return bytes + little(static_cast<std::uint32_t>(checkSum), 4);
}

inline std::string framed(const std::string& bytes) {
  return frameBytes(static_cast<std::uint32_t>(bytes.size()), bytes);
}
