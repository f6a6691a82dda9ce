#include "platform/terminal.h"

#include <unistd.h>

namespace platform {

bool isInteractive() { return ::isatty(STDIN_FILENO) == 1 && ::isatty(STDERR_FILENO) == 1; }

}  // namespace platform
