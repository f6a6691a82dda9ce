#include "edited_copy.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "file_content.h"
#include "shell_word.h"
#include "sysservices/file_system.h"

namespace tool {
bool EditedCopy::write(const std::string& bytes) {
  std::ofstream stream(path_, std::ios::binary);
  stream << bytes;
  stream.close();
  return stream.good();
}

bool EditedCopy::read(std::string& bytes) const {
  return readContent(path_, std::string::npos, bytes);
}

std::string EditedCopy::editor() {
  for (const char* variable : {"VISUAL", "EDITOR"}) {
    const char* value = std::getenv(variable);
    if (value != nullptr && *value != '\0') return value;
  }
  return "vi";
}

bool EditedCopy::runEditor() const {
  (void)std::fflush(stdout);
  const std::string word = ossPathSeparator == '/' ? shellWord(path_) : "\"" + path_ + "\"";
  const std::string command = editor() + " " + word;
  return std::system(command.c_str()) == 0;  // NOLINT(concurrency-mt-unsafe,cert-env33-c)
}

}  // namespace tool
