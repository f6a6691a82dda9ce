#include "scratch.h"

#include <filesystem>
#include <random>
#include <stdexcept>

#include "sysservices/file_system.h"

namespace tool {

namespace fs = std::filesystem;

ScratchDirectory::ScratchDirectory() {
  constexpr std::uint32_t ownerAlone = 0700;  // from its birth
  std::random_device random;
  const std::string name = "zorreg-" + std::to_string(random()) + std::to_string(random());
  path_ = (fs::temp_directory_path() / name).u8string();
  const OSSDirectoryCreateParam param{OSS_PARAM_LEVEL, path_.c_str(), ownerAlone, 1};
  if (ossPathExists(path_.c_str()) || ossDirectoryCreate(&param) != 0) {
    throw std::runtime_error("the directory '" + path_ + "' cannot be made");
  }
}

ScratchDirectory::~ScratchDirectory() {
  std::error_code ignored;
  if (!isKept_) (void)fs::remove_all(fs::u8path(path_), ignored);
}

std::string ScratchDirectory::pathOf(const std::string& file) const {
  return (fs::u8path(path_) / fs::u8path(file).filename()).u8string();
}

}  // namespace tool
