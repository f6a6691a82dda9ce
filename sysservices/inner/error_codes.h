// From error numbers to codes of the system-services space.
#pragma once

#include <cstddef>

namespace oss {

// The code for an errno number; 0 never maps to success.
unsigned int codeOfError(int error) noexcept;

// The code for the error that a system call of this kind (OSS_SYSCALL_...) gave, and its text,
// which may stand in `buffer`.
unsigned int codeOfSystemError(unsigned int systemCall, int error) noexcept;
const char* textOfSystemError(unsigned int systemCall, int error, char* buffer,
                              std::size_t size) noexcept;

}  // namespace oss
