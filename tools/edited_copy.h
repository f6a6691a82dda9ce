// A private copy of a text that a person changes in an editor.
#pragma once

#include <string>

#include "scratch.h"

namespace tool {

// A file of the same name as another one, that goes unless it is kept.
class EditedCopy {
 public:
  explicit EditedCopy(const std::string& file) : path_(directory_.pathOf(file)) {}

  const std::string& path() const { return path_; }
  bool write(const std::string& bytes);
  bool read(std::string& bytes) const;
  void keep() { directory_.keep(); }

  // Runs the editor that $VISUAL, else $EDITOR names, else vi, on the file, by the system's shell.
  // Whether it ended well.
  bool runEditor() const;
  // How a message names it.
  static std::string editor();

 private:
  ScratchDirectory directory_;
  std::string path_;
};

}  // namespace tool
