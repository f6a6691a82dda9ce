// The fuzz targets: each takes one input and ends the process when a promise does not hold. They
// are built for libFuzzer (ZORGENREG_FUZZ), and the tests replay their corpora.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

// Ends the process and says where, when the promise does not hold.
inline void require(bool promise, const char* file = __builtin_FILE(),
                    int line = __builtin_LINE()) {
  if (promise) return;
  (void)std::fprintf(stderr, "%s:%d: a promise does not hold\n", file, line);
  std::abort();
}

using FuzzTarget = int(const std::uint8_t* data, std::size_t size);
FuzzTarget fuzzKeyedSearch;     // a search for a key in the lines of both text flavours
FuzzTarget fuzzOperations;      // operations on registries of every kind
FuzzTarget fuzzRegistryExport;  // registry exports, and the copies and instances in them
FuzzTarget fuzzStoredRecord;    // the stored form of global registry records
FuzzTarget fuzzTextLines;       // line reader and line parsers of both text flavours
FuzzTarget fuzzWords;           // words, numbers and records that the tool and the C interface take
