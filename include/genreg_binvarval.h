// A binary registry of short variables: name, 32-bit value, comment.
//
//   unsigned int code = 0;
//   GenRegBinVarVal registry("settings.reg", &code);
//   BinVarValRecord key{"Timeout", 0, ""};
//   BinVarValRecord found{};
//   if (code == 0) code = registry.Get(BINVARVAL_VARIABLE, &key, &found);
//   if (code == GENREG_RC_NOT_FOUND || code == GENREG_RC_NO_FILE) {
//     found = {"Timeout", 30, "seconds"};
//     code = registry.Add(BINVARVAL_VARIABLE, &found);
//   }
#pragma once

#include "genreg_binary.h"

// A short variable. Stored as it lies in memory: 36 bytes, the value little-endian.
struct BinVarValRecord {
  char Variable[16];   // NUL-terminated, at most 15 characters
  std::int32_t Value;  // any
  char Comment[16];    // NUL-terminated, at most 15 characters
};

// Mask bits; the comment is never compared, other bits are ignored, mask 0 matches every record.
constexpr std::uint64_t BINVARVAL_VARIABLE = 0x1;  // the names are equal
constexpr std::uint64_t BINVARVAL_VALUE = 0x2;     // the values are equal
// The fields by which two records are the same thing.
constexpr std::uint64_t BINVARVAL_IDENTITY = BINVARVAL_VARIABLE;

// A handle of a registry of short variables. Duplicates are allowed: Add never refuses, Change and
// Delete act on every matching record.
class GenRegBinVarVal : public GenRegBin {
 public:
  // Opens nothing; names the files of the registry at `path` (copied, at most 253 characters) and
  // stores the outcome at `rc` (may be null): 0; GENREG_RC_NO_ARGUMENT for a null or empty path;
  // GENREG_RC_PATH_TOO_LONG; GENREG_RC_BASE_NAME; GENREG_RC_DIRECTORY_NAME. After a failure every
  // operation fails. One registry has one spelling: its lock is found by the path as given, so use
  // the same path everywhere.
  GENREG_API GenRegBinVarVal(const char* path, unsigned int* rc) noexcept;
  // As GenRegFile's.
  GENREG_API ~GenRegBinVarVal();

  // Prints a BinVarValRecord in three lines on standard output. Returns 0, or
  // GENREG_RC_NO_ARGUMENT for a null record.
  GENREG_API static unsigned int PrintRecord(void* record) noexcept;
};
