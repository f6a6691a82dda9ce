// Memory of the system services. The file name and line tell a leak's origin in the log.
#pragma once

#include <cstddef>

#include "sysservices/export.h"

// Allocates `size` bytes (not cleared) and stores their address at `address`.
// Returns 0, or OSS_RC_NO_MEMORY (then *address is null), or OSS_RC_NULL_ARGUMENT.
ZOROSSE_API unsigned int _ossMemAlloc(void** address, int zero, std::size_t size, int one,
                                      const char* sourceFile, unsigned int sourceLine);

// Releases what _ossMemAlloc gave and makes *address null; a null *address is nothing to do.
// Returns 0, or OSS_RC_NULL_ARGUMENT, or the code of a fault hook; the memory is gone either way.
ZOROSSE_API unsigned int _ossMemFree(void** address, int zero, int zero2, const char* sourceFile,
                                     unsigned int sourceLine);

// Blocks given out and not yet released, over the whole process; for leak checks in tests.
ZOROSSE_API std::size_t ossMemBlocksInUse();
