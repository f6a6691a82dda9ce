// Get and GetNext, the same for all engines.
#pragma once

#include <cstdint>

#include "genreg/core/record_store.h"

namespace genreg {

// The first record that matches the key, searched for in the registry file or, when the handle
// allows that, in an open scan's, which stays where it is.
Code get(RecordStore& store, std::uint64_t mask, void* key, void* record) noexcept;

// The next matching record of the open scan.
Code getNext(RecordStore& store, std::uint64_t mask, void* key, void* record) noexcept;

}  // namespace genreg
