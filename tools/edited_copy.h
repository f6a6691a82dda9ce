// A private copy of a text that a person changes in an editor.
#pragma once

#include <string>

namespace tool {

// A file of that base name in a directory that is open to its owner alone. Both go with it unless
// it is kept.
class EditedCopy {
 public:
  explicit EditedCopy(const std::string& baseName);
  ~EditedCopy();
  EditedCopy(const EditedCopy&) = delete;
  EditedCopy& operator=(const EditedCopy&) = delete;

  const std::string& path() const { return path_; }
  bool write(const std::string& bytes);
  bool read(std::string& bytes) const;
  void keep() { isKept_ = true; }

  // Runs the editor that $VISUAL, else $EDITOR names, else vi, on the file, by the system's shell.
  // Whether it ended well.
  bool runEditor() const;
  // How a message names it.
  static std::string editor();

 private:
  std::string directory_;
  std::string path_;
  bool isKept_ = false;
};

}  // namespace tool
