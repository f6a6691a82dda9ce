#include "sysservices/environment.h"

#include <cstdlib>
#include <cstring>

#include "sysservices/return_codes.h"

std::ptrdiff_t ossEnvironmentGet(const char* name, char* value, std::size_t size) {
  const char* const found = std::getenv(name);
  if (found == nullptr) return ossNoVariable;
  const std::size_t length = std::strlen(found);
  if (length < size) std::memcpy(value, found, length + 1);
  return static_cast<std::ptrdiff_t>(length);
}

unsigned int ossEnvironmentSet(const char* name, const char* value) {
  if (name == nullptr) return OSS_RC_NULL_ARGUMENT;
  const int failed = value == nullptr ? ::unsetenv(name) : ::setenv(name, value, 1);
  return failed == 0 ? OSS_RC_OK : OSS_RC_SYSTEM_ERROR;
}

const char* ossMachineRegistryName() {
  const char* const file = std::getenv("ZOROSSE_REGISTRY_FILE");
  return file == nullptr || *file == '\0' ? "none: ZOROSSE_REGISTRY_FILE is not set" : file;
}

void ossUseUtf8() {}
