// Whether there is somebody to ask.
#pragma once

namespace platform {

// Whether the standard input and the standard error are a terminal's.
bool isInteractive();

}  // namespace platform
