#include "edited_copy.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "file_content.h"
#include "platform/tool/utf8_process.h"
#include "shell_word.h"
#include "sysservices/file_system.h"

namespace tool {

bool EditedCopy::write(const std::string& bytes) {
  std::ofstream stream(std::filesystem::u8path(path_), std::ios::binary);
  stream << bytes;
  stream.close();
  return stream.good();
}

bool EditedCopy::read(std::string& bytes) const {
  return readContent(path_, std::string::npos, bytes);
}

std::string EditedCopy::editor() {
  for (const char* variable : {"VISUAL", "EDITOR"}) {
    const std::optional<std::string> value = platform::environmentValue(variable);
    if (value && !value->empty()) return *value;
  }
  return "vi";
}

bool EditedCopy::runEditor() const {
  (void)std::fflush(stdout);
  const std::string word = ossPathSeparator == '/' ? shellWord(path_) : "\"" + path_ + "\"";
  const std::string command = editor() + " " + word;
  return platform::runCommand(command);
}

}  // namespace tool
