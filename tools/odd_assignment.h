// Lines of a profile that assign a variable in a way that the library cannot change as a whole.
#pragma once

#include <string>

namespace zorreg {

// The first line of `file` that assigns `name` in such a way: what is odd about it, behind the
// line's number; empty when there is none. A change of `name` would leave a part of the old value
// behind, or put a second assignment beside one that other readers understand.
std::string oddAssignment(const std::string& file, const std::string& name);

}  // namespace zorreg
