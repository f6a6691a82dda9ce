// Clock of the system. Which process has a lock, it does not say.
#include "sysservices/inner/waiting.h"

#include <windows.h>

namespace oss {

std::uint64_t steadyMilliseconds() noexcept { return ::GetTickCount64(); }

// The system counts in milliseconds; a pause of none would not let anybody else run.
void pauseFor(std::uint64_t microseconds) noexcept {
  const std::uint64_t milliseconds = microseconds / 1000;
  ::Sleep(milliseconds == 0 ? 1 : static_cast<DWORD>(milliseconds));
}

// The system's own queue takes no part in a wait that is to end.
bool queueForLock(std::intptr_t, bool) noexcept { return true; }
void leaveQueue(std::intptr_t) noexcept {}
bool hasQueue(std::intptr_t) noexcept { return false; }

std::uint32_t lockHolder(std::intptr_t) noexcept { return 0; }

}  // namespace oss
