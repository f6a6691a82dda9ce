// What the rights of a directory let this process do, without trying it.
#pragma once

#include <string>

namespace platform {

// 0 when this process may make and remove names in the directory, else the error number (errno)
// with which the system would refuse that. Nothing is made.
int directoryWriteError(const std::string& directory) noexcept;

}  // namespace platform
