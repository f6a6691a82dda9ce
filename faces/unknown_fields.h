// The fields of a global record that this version does not know. Each is named by its bit and has
// the bytes of its stored entry in hexadecimal: "Field0x10" with "0xaabbcc".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "faces/named_fields.h"
#include "genreg_global.h"

namespace faces {

std::string unknownFieldName(std::uint64_t bit);

// The bit of a field of that name that records of the type may have without being known; 0 when it
// is none.
std::uint64_t unknownBitOf(std::string_view name, const GlobalRegType& type);

// The bytes that a value stands for; false when it is no such value.
bool takeContent(std::string_view value, std::uint64_t bit, std::string& bytes);

// All that a stored form has.
NamedFields unknownFieldsOf(std::string_view stored);

// A stored form of the type with the given ones of such fields and nothing else; empty when there
// are none.
std::string storedFormOf(const NamedFields& given, const GlobalRegType& type);

}  // namespace faces
