#include "platform/tool/write_access.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

int directoryWriteError(const std::string& directory) noexcept {
  const int failed = ::faccessat(AT_FDCWD, directory.c_str(), W_OK | X_OK, AT_EACCESS);
  return failed == 0 ? 0 : errno;
}

}  // namespace platform
