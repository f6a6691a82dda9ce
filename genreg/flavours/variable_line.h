// A line NAME = VALUE # comment as views: over the line itself when it is plain, over a normalised
// copy when it is not. Comparing, filling a record and reporting what is odd all read these views.
#pragma once

#include <string_view>

#include "genreg/core/diagnostics.h"
#include "genreg/line_text.h"
#include "genreg_text.h"

namespace genreg {

struct VariableLine {
  bool hasComment = false;
  bool hasVariable = false;
  std::string_view comment;
  std::string_view name;
  std::string_view value;
  std::string_view assignment;  // normalised, for the log
  Code odd = 0;                 // why the assignment part is none
};

// The name of a plain line and what stands behind its "=": no quotes, no blanks inside the name.
// False for any other line.
inline bool readVariableHead(std::string_view line, std::string_view* name,
                             std::string_view* rest) noexcept {
  const char* const end = line.data() + line.size();
  const char* const begin = skipBlanks(line.data(), end);
  const char* const nameEnd = skipWord(begin, end, '=');
  const char* const equals = skipBlanks(nameEnd, end);
  if (nameEnd == begin || equals == end || *equals != '=') return false;
  *name = viewOf(begin, nameEnd);
  *rest = viewOf(equals + 1, end);
  return true;
}

// Parses a line without its newline. `copy` holds what is normalised; the views live as long as it
// and the line. Returns 0, or the code of the normalising.
Code parseVariableLine(std::string_view line, char (&copy)[GENREG_LINE_SIZE],
                       VariableLine& out) noexcept;

}  // namespace genreg
