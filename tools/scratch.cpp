#include "scratch.h"

#include <filesystem>
#include <random>

namespace tool {

namespace fs = std::filesystem;

ScratchDirectory::ScratchDirectory() {
  std::random_device random;
  // A name that is taken is somebody else's.
  do {
    path_ = (fs::temp_directory_path() / ("zorreg-" + std::to_string(random()))).string();
  } while (!fs::create_directory(path_));
  fs::permissions(path_, fs::perms::owner_all);
}

ScratchDirectory::~ScratchDirectory() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

std::string ScratchDirectory::pathOf(const std::string& file) const {
  return (fs::path(path_) / fs::path(file).filename()).string();
}

}  // namespace tool
