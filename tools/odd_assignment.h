// Lines of a profile that assign a variable in a way that the library cannot change as a whole.
#pragma once

#include <map>
#include <string>

namespace zorreg {

// The variables that a line of `file` assigns in such a way, each with the number of the first such
// line and what is odd about it. A change of one would leave a part of the old value behind, or put
// a second assignment beside one that other readers understand.
std::map<std::string, std::string> oddAssignments(const std::string& file);

}  // namespace zorreg
