#include "edited_copy.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>

#include "file_content.h"
#include "platform/tool/utf8_process.h"
#include "sysservices/file_system.h"

namespace tool {
namespace {

constexpr std::uint32_t ownerAlone = 0700;

// As one word of the system's shell.
std::string quoted(const std::string& path) {
  if (ossPathSeparator != '/') return "\"" + path + "\"";
  std::string word = "'";
  for (const char character : path) {
    word += character == '\'' ? std::string("'\\''") : std::string(1, character);
  }
  return word + "'";
}

}  // namespace

EditedCopy::EditedCopy(const std::string& baseName) {
  std::random_device random;
  std::error_code none;
  const std::string name = "zorreg-edit-" + std::to_string(random()) + std::to_string(random());
  const std::filesystem::path directory = std::filesystem::temp_directory_path(none) / name;
  directory_ = directory.u8string();
  path_ = (directory / std::filesystem::u8path(baseName)).u8string();
}

EditedCopy::~EditedCopy() {
  std::error_code none;
  if (!isKept_) (void)std::filesystem::remove_all(std::filesystem::u8path(directory_), none);
}

bool EditedCopy::write(const std::string& bytes) {
  const OSSDirectoryCreateParam param{OSS_PARAM_LEVEL, directory_.c_str(), ownerAlone, 1};
  if (ossPathExists(directory_.c_str()) || ossDirectoryCreate(&param) != 0) return false;
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
  return platform::runCommand(editor() + " " + quoted(path_));
}

}  // namespace tool
