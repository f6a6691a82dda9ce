// Lines of a text registry that the library does not take for a record, a comment or a blank.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kinds.h"

namespace tool {

struct LineFinding {
  std::uint64_t number;  // from 1
  std::string line;
  std::string why;
};

// Those lines of `after` that `before` does not hold, too: it is theirs whoever wrote them.
std::vector<LineFinding> newOddLines(Kind kind, const std::string& before,
                                     const std::string& after);

}  // namespace tool
