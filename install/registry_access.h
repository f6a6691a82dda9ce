// Keys that close themselves, and values read as text.
#pragma once

#include <cstdint>

#include "platform/machine_registry.h"

namespace install {

class OpenKey {
 public:
  OpenKey() = default;
  ~OpenKey() {
    if (key_ != nullptr) platform::RegCloseKey(key_);
  }
  OpenKey(const OpenKey&) = delete;
  OpenKey& operator=(const OpenKey&) = delete;

  // Each opens the key, which must not be open yet, and gives 0 or the registry's error.
  unsigned int open(platform::RegistryKey parent, const char* path) noexcept {
    return platform::RegOpenKeyExA(parent, path, &key_);
  }
  unsigned int connect(platform::Machine& machine, const char* host) noexcept {
    return platform::RegConnectRegistryA(machine, host, &key_);
  }

  platform::RegistryKey get() const noexcept { return key_; }
  // The key, now the caller's to close.
  platform::RegistryKey release() noexcept {
    const platform::RegistryKey key = key_;
    key_ = nullptr;
    return key;
  }

 private:
  platform::RegistryKey key_ = nullptr;
};

// Closes a key that is held by its bare handle, if it is open, and forgets it.
void closeKey(platform::RegistryKey& key) noexcept;

// Reads a value into `buffer` of `size` bytes, terminator included. Gives 0 or the registry's
// error: registryMoreData when it does not fit, registryKeyMissing for a value that is no text.
// After a failure the buffer holds the empty text.
unsigned int readText(platform::RegistryKey key, const char* name, char* buffer,
                      std::uint32_t size) noexcept;

}  // namespace install
