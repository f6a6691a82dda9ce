// Of many names the one that was perhaps meant by another.
#pragma once

#include <string>

namespace tool {

// Keeps the most similar of the names that it is shown: one that it begins, the same in other
// letters, or with at most a third of the letters added, left out, changed or swapped.
class Nearest {
 public:
  explicit Nearest(std::string wanted);
  void consider(const std::string& name);
  // Empty when no name was similar.
  const std::string& text() const { return best_; }

 private:
  std::string wanted_;
  std::string best_;
  std::size_t distance_;  // of the best; names must be nearer
};

}  // namespace tool
