// What a flavour knows of stored records as they stand in a file's window, so that one that is not
// wanted is neither copied nor unpacked.
#pragma once

#include <cstddef>
#include <cstdint>

#include "genreg_handle.h"

namespace genreg {

// What unpacking a stored record and comparing it with a key would come to.
enum class Match {
  Differs,
  Matches,
  Unclear,  // it takes unpacking to know, or unpacking would fail or log something
};

struct RecordForm {
  // The flavour's own hooks. Where a handle has others in their slots, every record is unpacked for
  // those to look at.
  GenRegCompareHook compare;
  GenRegUnpackHook unpack;
  std::size_t recordSize;  // bytes of a record in memory

  // `stored`: a record's bytes without their length, or a line without its newline, which neither
  // continues another line nor is continued. `key` is not null.
  Match (*match)(std::uint64_t mask, const char* stored, std::size_t length,
                 const void* key) noexcept;
  // Makes the record of stored bytes. False when it takes the hook: unpacking would fail or log
  // something. The record may hold anything then.
  bool (*fill)(const char* stored, std::size_t length, void* record) noexcept;
};

}  // namespace genreg
