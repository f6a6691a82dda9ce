// Text to value. The whole text must be the value: on success *end stands on the terminating NUL;
// on any failure (sign not allowed, trailing characters, out of range) it stands on the text's
// start, for an empty text it is null, and the result is 0.
#pragma once

#include <cstdint>

#include "sysservices/export.h"

// Digits in `base` (2 to 36) with optional leading blanks and "+"; a "-" is no unsigned number.
ZOROSSE_API std::uint64_t ossStrToUint64(const char* text, char** end, int base);
ZOROSSE_API std::int64_t ossStrToSint64(const char* text, char** end, int base);

// "true"/"false", "yes"/"no", "on"/"off", "1"/"0", without regard to case. Returns 0 and the flag,
// else OSS_RC_BAD_PARAMETER with the flag untouched.
ZOROSSE_API unsigned int ossStrToBoolean(const char* text, bool* flag);
