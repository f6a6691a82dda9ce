// A binary registry as lines to edit, and back.
#pragma once

#include <string>
#include <vector>

#include "entries.h"
#include "line_findings.h"

namespace tool {

// A line for each record, as `list` prints and `import` reads it, below a few that begin with "#".
std::string linesOf(Kind kind, const Entries& entries);

// What is wrong with the lines that `before` does not have.
std::vector<LineFinding> findingsIn(Kind kind, const std::string& before, const std::string& after);

// Makes the registry hold the records of the lines `after`, which were made of `before`, in one
// update: a record whose line is untouched stays as it is, also in what no line shows; one of an
// identity that was there before is changed in its place, a new one stands behind all others.
// Changes nothing when the registry does not hold what `before` shows any more. Gives the exit
// status, and reports what failed.
int storeLines(Kind kind, const Words& words, const std::string& before, const std::string& after);

}  // namespace tool
