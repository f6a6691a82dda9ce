// The system knows bytes; they are UTF-8 wherever people look at them.
#include "platform/path_text.h"

bool platform::pathFromUtf8(const char* utf8, std::string& path) {
  path = utf8;
  return true;
}

std::string platform::utf8FromSystem(const char* text) { return text; }
