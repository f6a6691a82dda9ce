// A directory of one run of the tool, for its owner alone, that goes with all that is in it unless
// it is kept.
#pragma once

#include <string>

namespace tool {

class ScratchDirectory {
 public:
  // Throws a std::runtime_error when none can be made.
  ScratchDirectory();
  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  // In it, a file of the same name as another one.
  std::string pathOf(const std::string& file) const;
  void keep() noexcept { isKept_ = true; }

 private:
  std::string path_;
  bool isKept_ = false;
};

}  // namespace tool
