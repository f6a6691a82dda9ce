// A text as one word of a shell's command line.
#pragma once

#include <string>

namespace tool {

// In single quotes; a quote mark in it becomes `mark`, which is that of the POSIX shells.
inline std::string shellWord(const std::string& text, const char* mark = "'\\''") {
  std::string word = "'";
  for (const char character : text) {
    character == '\'' ? word += mark : word += character;
  }
  return word + "'";
}

}  // namespace tool
