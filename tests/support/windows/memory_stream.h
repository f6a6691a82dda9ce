// A stream over bytes in memory, which this platform's runtime library lacks.
#pragma once

#include <cstddef>
#include <cstdio>

// A stream for reading a copy of the bytes.
std::FILE* fmemopen(void* bytes, std::size_t size, const char* mode);
