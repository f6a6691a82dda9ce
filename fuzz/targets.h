// The fuzz targets: each takes one input and ends the process when a promise does not hold. They
// are built for libFuzzer (ZORGENREG_FUZZ), and the tests replay their corpora.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

inline void require(bool promise) {
  if (!promise) std::abort();
}

// Registry exports.
int fuzzRegistryExport(const std::uint8_t* data, std::size_t size);

// The stored form of global registry records.
int fuzzStoredRecord(const std::uint8_t* data, std::size_t size);

// Line reader and line parsers of both text flavours.
int fuzzTextLines(const std::uint8_t* data, std::size_t size);

// A search for a key in the lines of both text flavours.
int fuzzKeyedSearch(const std::uint8_t* data, std::size_t size);
