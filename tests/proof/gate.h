// Every call with which this process changes files passes here, whoever makes it, so that what is
// seen of them does not depend on what the library under test says of itself.
#pragma once

#include <cstdint>
#include <functional>

namespace proof {

// Called before each such call, with the inode of what the call makes durable, or 0.
extern std::function<void(std::uint64_t synced)> beforeChange;

}  // namespace proof
