// A text registry of profile variables: lines of NAME = VALUE # comment.
//
//   unsigned int code = 0;
//   GenRegVarVal profile("os-release", &code);
//   VarValRecord record{};
//   record.Contains = VARVAL_HAS_VARIABLE;
//   record.Variable = "VERSION_ID";
//   record.Value = "\"13\"";
//   if (code == 0) code = profile.Change(VARVAL_VARIABLE, &record, &record);
//
//   const char* name = nullptr;
//   if (profile.GetStringValue("NAME", &name)) std::puts(name);
#pragma once

#include "genreg_text.h"

// Bits of VarValRecord::Contains; 0 is a blank line.
constexpr std::uint8_t VARVAL_HAS_COMMENT = 1;   // Comment is filled
constexpr std::uint8_t VARVAL_HAS_VARIABLE = 2;  // Variable and Value are filled

// A profile's line. After Get and GetNext the three texts point into `text` of the same record, so
// a record that is copied must not be used beyond the life of the one it was copied from. A record
// that a caller builds may point anywhere; its `text` is not used.
struct VarValRecord {
  std::uint8_t Contains;        // VARVAL_HAS_... bits
  const char* Comment;          // the text after the line's first "#", or null
  const char* Variable;         // the name, or null
  const char* Value;            // the value, double quotes included when it is quoted, or null
  char text[GENREG_LINE_SIZE];  // what the three point into after a read
};

// Mask bits; the comment is never compared, mask 0 matches every line that assigns a variable
// (GetNext with mask 0: every line).
constexpr std::uint64_t VARVAL_VARIABLE = 0x1;  // the names are equal
constexpr std::uint64_t VARVAL_VALUE = 0x2;     // the values are equal
// The fields by which two records are the same thing.
constexpr std::uint64_t VARVAL_IDENTITY = VARVAL_VARIABLE;

// The layout of a line that replaces no other: NAME=VALUE when true, NAME = VALUE when false. One
// flag for the whole process, initially false; every successful construction of a GenRegVarVal
// makes it false. Not to be written while another thread adds a variable.
GENREG_API extern bool bCompactFormattedLine;

// A handle of a profile. A change keeps the line's indentation and the blanks around its "="; its
// old comment goes unless the new record carries one. Duplicates are allowed: Add never refuses,
// Change and Delete act on every line that matches.
//
// Add and Change refuse a record (GENREG_RC_PACK_LINE_FAILED, the log names the cause) that is
// marked as holding a variable without a name or a value, that holds a newline, or whose line would
// be longer than 2,046 characters; and GENREG_RC_VERIFY_FAILED one that would not be read back as
// it is: a "#" in the value, a comment alone, an open quote.
class GenRegVarVal : public GenRegText {
 public:
  // Opens nothing; names the files of the registry at `path` (copied, at most 253 characters) and
  // stores the outcome at `rc` (may be null): 0; GENREG_RC_NO_ARGUMENT for a null or empty path;
  // GENREG_RC_PATH_TOO_LONG; GENREG_RC_BASE_NAME; GENREG_RC_DIRECTORY_NAME. After a failure every
  // operation fails. One registry has one spelling: its lock is found by the path as given, so use
  // the same path everywhere.
  GENREG_API GenRegVarVal(const char* path, unsigned int* rc) noexcept;
  // As GenRegFile's. What GetStringValue handed out ends with it.
  GENREG_API ~GenRegVarVal();

  // Prints a VarValRecord, which must not be null, on standard output. Returns 0.
  GENREG_API static unsigned int PrintRecord(void* record) noexcept;

  // The value of the first line that assigns `variable`, as stored. *value stays valid, and keeps
  // its text, until the next getter call on this object or the object's end. False, with *value
  // untouched, when there is none or it cannot be read.
  GENREG_API bool GetStringValue(const char* variable, const char** value) noexcept;

  // The value as a decimal number. False, with *value untouched, also when it is not
  // wholly one (empty, quoted, with a rest) or out of range; a "-" makes no unsigned number.
  GENREG_API bool GetUintValue(const char* variable, std::uint64_t* value) noexcept;
  GENREG_API bool GetSintValue(const char* variable, std::int64_t* value) noexcept;
  // The value as strtod reads it. False, with *value untouched, as GetUintValue.
  GENREG_API bool GetDoubleValue(const char* variable, double* value) noexcept;
  // The value as a truth value: true, yes, on, 1 and false, no, off, 0, in any case of letters.
  GENREG_API bool GetBooleanValue(const char* variable, bool* value) noexcept;

 private:
  char valueText[GENREG_LINE_SIZE];  // what GetStringValue hands out
};
