// The process's environment variables, as every library in the process reads them.
#pragma once

#include "sysservices/export.h"

// Gives the variable `name` a value; null removes it. Returns 0; OSS_RC_NULL_ARGUMENT without a
// name; OSS_RC_SYSTEM_ERROR when the environment cannot take it. Not to be called while another
// thread reads the environment.
ZOROSSE_API unsigned int ossEnvironmentSet(const char* name, const char* value);

// Where this machine's registry is read from, to be told to a person. Valid until the environment
// changes.
ZOROSSE_API const char* ossMachineRegistryName();
