#include "platform/tool/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace platform {

std::size_t terminalWidth(std::FILE* stream) noexcept {
  struct winsize size;
  const int descriptor = ::fileno(stream);
  if (::isatty(descriptor) == 0 || ::ioctl(descriptor, TIOCGWINSZ, &size) != 0) return 0;
  return size.ws_col;
}

bool isTerminal(std::FILE* stream) noexcept { return ::isatty(::fileno(stream)) != 0; }

bool showsColours(std::FILE* stream) noexcept {
  const char* const terminal = std::getenv("TERM");
  return isTerminal(stream) && terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
}

}  // namespace platform
