// What a flavour can tell from stored bytes as they stand in a stream's buffer, so that a record
// that is not wanted is neither copied nor unpacked.
#pragma once

#include <cstddef>
#include <cstdint>

#include "genreg_handle.h"

namespace genreg {

// What unpacking a stored record and comparing it with a key would come to.
enum class Likeness {
  Differs,
  Matches,
  Unclear,  // it takes unpacking to know, or unpacking would fail or log something
};

struct StoredForm {
  // The flavour's own hooks. Where a handle has others in their slots, every record is unpacked for
  // those to look at.
  GenRegCompareHook compare;
  GenRegUnpackHook unpack;
  std::size_t recordSize;  // bytes of a record in memory

  // `stored`: a record's bytes without their length, or a line without its newline, which neither
  // continues another line nor is continued. `key` is not null.
  Likeness (*liken)(std::uint64_t mask, const char* stored, std::size_t length,
                    const void* key) noexcept;
  // Makes the record of stored bytes that do not differ. Null in text flavours.
  void (*take)(const char* stored, std::size_t length, void* record) noexcept;
  // Whether unpacking logged something about a record that it made all the same. Null: never.
  bool (*isOdd)(const void* record) noexcept;
};

}  // namespace genreg
