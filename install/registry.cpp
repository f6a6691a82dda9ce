#include "install/registry.h"

namespace install {

unsigned int openKey(platform::RegistryKey parent, const char* path, Key& key) noexcept {
  key.reset();
  platform::RegistryKey opened = nullptr;
  const unsigned int error = platform::RegOpenKeyExA(parent, path, &opened);
  if (error == 0) key.reset(opened);
  return error;
}

// A stored text need not be terminated: it is terminated here, or refused when there is no room.
unsigned int readText(const Key& key, const char* name, char* buffer, std::uint32_t size) noexcept {
  std::uint32_t type = 0;
  std::uint32_t length = size;
  unsigned int error = platform::RegQueryValueExA(key.get(), name, &type, buffer, &length);
  if (error == 0 && !platform::isRegistryText(type)) error = platform::registryNotText;
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

unsigned int mapRegistryError(genreg::Function routine, unsigned int error) noexcept {
  genreg::handOverNames();
  return ossErrorMapSystem(genreg::probeOf(routine), 10, OSS_SYSCALL_REGISTRY,
                           static_cast<int>(error), 0);
}

}  // namespace install
