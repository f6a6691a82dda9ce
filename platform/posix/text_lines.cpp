#include "platform/text_lines.h"

const bool platform::linesEndInReturn = false;
