// What is different between two texts, for a person or for patch.
#pragma once

#include <string>

namespace zorreg {

// The unified diff of two texts with three lines of context, under "--- NAME" and "+++ NAME", byte
// for byte as the lines are; empty when the texts are equal. A few changes in 100,000 lines take as
// long as reading them; where there are very many the diff is right, but may be longer than it
// could be.
std::string unifiedDiff(const std::string& before, const std::string& after,
                        const std::string& name);

}  // namespace zorreg
