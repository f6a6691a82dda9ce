// The process's environment variables, as every library in the process reads them, and how it
// spells its texts.
#pragma once

#include <cstddef>

#include "sysservices/export.h"

constexpr std::ptrdiff_t ossNoVariable = -1;
constexpr std::ptrdiff_t ossNoValue = -2;

// Stores the value of the variable `name` in `value` of `size` bytes, terminated, and returns its
// length; one that does not fit is not stored. ossNoVariable when there is none of that name,
// ossNoValue when its value is no text, or there is no memory.
ZOROSSE_API std::ptrdiff_t ossEnvironmentGet(const char* name, char* value, std::size_t size);

// Gives the variable `name` a value; null removes it. Returns 0; OSS_RC_NULL_ARGUMENT without a
// name; OSS_RC_SYSTEM_ERROR when the environment cannot take it. Not to be called while another
// thread reads the environment.
ZOROSSE_API unsigned int ossEnvironmentSet(const char* name, const char* value);

// Where this machine's registry is read from, to be told to a person. Valid until the environment
// changes.
ZOROSSE_API const char* ossMachineRegistryName();

// Says that paths and other texts are UTF-8 wherever this process hands them to the services or
// gets them, as for a Windows program whose manifest makes its code page UTF-8. To be called before
// anything else. Where the system knows nothing but bytes there is nothing to do.
ZOROSSE_API void ossUseUtf8();
