#include "platform/terminal.h"

#include <io.h>

namespace platform {

bool isInteractive() { return ::_isatty(0) != 0 && ::_isatty(2) != 0; }

}  // namespace platform
