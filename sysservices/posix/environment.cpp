#include "sysservices/environment.h"

#include <cstdlib>

#include "sysservices/return_codes.h"

unsigned int ossEnvironmentSet(const char* name, const char* value) {
  if (name == nullptr) return OSS_RC_NULL_ARGUMENT;
  const int failed = value == nullptr ? ::unsetenv(name) : ::setenv(name, value, 1);
  return failed == 0 ? OSS_RC_OK : OSS_RC_SYSTEM_ERROR;
}

const char* ossMachineRegistryName() {
  const char* const file = std::getenv("ZOROSSE_REGISTRY_FILE");
  return file == nullptr || *file == '\0' ? "none: ZOROSSE_REGISTRY_FILE is not set" : file;
}
