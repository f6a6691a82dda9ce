// Lines of a profile that assign a variable in a way that the library cannot change as a whole.
#pragma once

#include <map>
#include <string>

namespace tool {

// The variables that a line of the text assigns in such a way, each with the number of the first
// such line and what is odd about it. A change of one would leave a part of the old value behind,
// or put a second assignment beside one that other readers understand.
using OddAssignments = std::map<std::string, std::string>;
OddAssignments oddAssignments(const std::string& text);

// Whether lines of the text go on in the next one, and none only seems to, as a path that ends in a
// backslash does: then every backslash at the end of a line may be taken so.
bool goesOnInLines(const std::string& text);

}  // namespace tool
