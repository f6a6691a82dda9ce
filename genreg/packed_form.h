// What a flavour of packed records can tell from stored bytes as they stand, so that a record that
// is not wanted is never unpacked.
#pragma once

#include <cstdint>

#include "genreg_handle.h"

namespace genreg {

struct PackedForm {
  // The flavour's own hooks. Where a handle has others in their slots, every record is unpacked for
  // those to look at.
  GenRegCompareHook compare;
  unsigned int (*unpack)(void** record);

  // What unpacking `length` stored bytes and comparing the record with `key` (not null) would come
  // to: 0 and the answer, or the code with which unpacking fails.
  unsigned int (*match)(std::uint64_t mask, const void* bytes, std::uint64_t length,
                        const void* key, bool* matches);
};

}  // namespace genreg
