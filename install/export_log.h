// Records of routines that trace neither entry nor exit.
#pragma once

#include "genreg/core/diagnostics.h"

namespace install {

// Logs that `callee` failed with `calleeCode` and gives back `code`, the routine's own.
unsigned int logCallee(genreg::Function routine, genreg::Function callee, unsigned int calleeCode,
                       unsigned int code, unsigned int point) noexcept;

// Record a code while tracing is on, as a value or as the value of an error.
void traceCode(genreg::Function routine, unsigned int point, unsigned int code) noexcept;
void traceErrorCode(genreg::Function routine, unsigned int point, unsigned int code) noexcept;

// The code that the system services give to an error of the registry.
unsigned int mapRegistryError(genreg::Function routine, unsigned int error) noexcept;

}  // namespace install
