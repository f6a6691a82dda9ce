// The registry's keys, which close themselves, and its texts, which fit where they are put.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "genreg/core/diagnostics.h"
#include "platform/machine_registry.h"

namespace install {

struct CloseKey {
  void operator()(platform::RegistryKey key) const noexcept { platform::RegCloseKey(key); }
};
using Key = std::unique_ptr<const platform::RegistryKeyObject, CloseKey>;

// Opens `path` as `key`, whatever that was before; null after a failure. Gives 0 or the registry's
// error.
unsigned int openKey(platform::RegistryKey parent, const char* path, Key& key) noexcept;

// Reads a value into `buffer` of `size` bytes, terminator included. Gives 0 or the registry's
// error: registryMoreData when it does not fit, registryNotText when it is of another type. After a
// failure the buffer holds the empty text.
unsigned int readText(const Key& key, const char* name, char* buffer, std::uint32_t size) noexcept;

// The code that the system services give to an error of the registry.
unsigned int mapRegistryError(genreg::Function routine, unsigned int error) noexcept;

// Copies text, terminator included, into a record's field: all of it, or the whole characters of it
// that fit.
template <std::size_t Size>
void copyText(char (&field)[Size], const char* text) noexcept {
  const std::size_t length = platform::wholeCharacters(text, Size - 1);
  std::memcpy(field, text, length);
  field[length] = '\0';
}

}  // namespace install
