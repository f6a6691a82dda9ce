#include "scratch.h"

#include <filesystem>
#include <random>

namespace tool {

namespace fs = std::filesystem;

ScratchDirectory::ScratchDirectory() {
  std::random_device random;
  // A name that is taken is somebody else's.
  do {
    path_ = (fs::temp_directory_path() / ("zorreg-" + std::to_string(random()))).u8string();
  } while (!fs::create_directory(fs::u8path(path_)));
  fs::permissions(fs::u8path(path_), fs::perms::owner_all);
}

ScratchDirectory::~ScratchDirectory() {
  std::error_code ignored;
  fs::remove_all(fs::u8path(path_), ignored);
}

std::string ScratchDirectory::pathOf(const std::string& file) const {
  return (fs::u8path(path_) / fs::u8path(file).filename()).u8string();
}

}  // namespace tool
