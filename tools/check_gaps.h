// What a repair left out.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kinds.h"

namespace tool {

struct Gap {
  std::uint64_t offset;  // in the original
  std::uint64_t length;
};

// The runs of bytes of `original` that are in no record or line of `repaired`, which holds some of
// them in their order. Empty when it holds anything else.
std::vector<Gap> gapsOf(Kind kind, bool bigEndian, const std::string& original,
                        const std::string& repaired);

}  // namespace tool
