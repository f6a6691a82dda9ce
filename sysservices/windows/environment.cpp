#include "sysservices/environment.h"

#include <cstdlib>

#include "sysservices/return_codes.h"

unsigned int ossEnvironmentSet(const char* name, const char* value) {
  if (name == nullptr) return OSS_RC_NULL_ARGUMENT;
  // The runtime library's own copy of the environment, which getenv reads, is changed with it.
  const int failed = ::_putenv_s(name, value == nullptr ? "" : value);
  return failed == 0 ? OSS_RC_OK : OSS_RC_SYSTEM_ERROR;
}

const char* ossMachineRegistryName() { return "HKEY_LOCAL_MACHINE"; }
