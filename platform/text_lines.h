// How the platform's programs end the lines of a text.
#pragma once

namespace platform {

// Whether a program that writes lines as texts of this platform are written would end one in a
// carriage return and a newline, so that in a text of such lines one that is added looks like them.
extern const bool linesEndInReturn;

}  // namespace platform
