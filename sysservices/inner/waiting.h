// Waiting for a lock that another holder has, and who that is.
#pragma once

#include <cstdint>

namespace oss {

// Milliseconds of a clock that nobody sets.
std::uint64_t steadyMilliseconds() noexcept;

void pauseFor(std::uint64_t microseconds) noexcept;

// The process that has a lock on an open file; 0 when the system does not say.
std::uint32_t lockHolder(std::intptr_t handle) noexcept;

}  // namespace oss
