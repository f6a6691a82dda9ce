#include "install/registry_access.h"

namespace install {

void closeKey(platform::RegistryKey& key) noexcept {
  if (key != nullptr) platform::RegCloseKey(key);
  key = nullptr;
}

// A stored text need not be terminated: it is terminated here, or refused when there is no room.
unsigned int readText(platform::RegistryKey key, const char* name, char* buffer,
                      std::uint32_t size) noexcept {
  std::uint32_t type = 0;
  std::uint32_t length = size;
  unsigned int error = platform::RegQueryValueExA(key, name, &type, buffer, &length);
  if (error == 0 && !platform::isRegistryText(type)) error = platform::registryKeyMissing;
  if (error == 0 && (length == 0 || buffer[length - 1] != '\0')) {
    if (length < size) {
      buffer[length] = '\0';
    } else {
      error = platform::registryMoreData;
    }
  }
  if (error != 0) buffer[0] = '\0';
  return error;
}

}  // namespace install
