// Waiting for a lock that another holder has, and who that is.
#pragma once

#include <cstdint>

namespace oss {

// Milliseconds of a clock that nobody sets.
std::uint64_t steadyMilliseconds() noexcept;

void pauseFor(std::uint64_t microseconds) noexcept;

// Stands in the queue of those who wait for the lock of an open file until nobody is before it, or,
// unless it `waits`, looks whether somebody is. Where a file has no queue everybody is first.
bool queueForLock(std::intptr_t handle, bool waits) noexcept;
void leaveQueue(std::intptr_t handle) noexcept;
// Whether somebody else stands in it.
bool hasQueue(std::intptr_t handle) noexcept;

// The process that has a lock on an open file; 0 when the system does not say.
std::uint32_t lockHolder(std::intptr_t handle) noexcept;

}  // namespace oss
