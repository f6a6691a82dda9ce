#include "nearest.h"

#include <algorithm>
#include <vector>

namespace tool {
namespace {

constexpr std::size_t longestName = 64;  // beyond it nobody mistypes a name

char lower(char letter) { return letter >= 'A' && letter <= 'Z' ? char(letter + 32) : letter; }

// How many letters are added, left out, changed or swapped with the next, their case aside.
std::size_t distanceOf(const std::string& left, const std::string& right) {
  const std::size_t width = right.size() + 1;
  std::vector<std::size_t> cells((left.size() + 1) * width);
  const auto at = [&](std::size_t row, std::size_t column) -> std::size_t& {
    return cells[row * width + column];
  };
  for (std::size_t row = 0; row <= left.size(); ++row) at(row, 0) = row;
  for (std::size_t column = 0; column < width; ++column) at(0, column) = column;
  for (std::size_t row = 1; row <= left.size(); ++row) {
    for (std::size_t column = 1; column < width; ++column) {
      const char l = lower(left[row - 1]);
      const char r = lower(right[column - 1]);
      std::size_t best = at(row - 1, column - 1) + (l == r ? 0 : 1);
      best = std::min({best, at(row - 1, column) + 1, at(row, column - 1) + 1});
      const bool isSwapped =
          row > 1 && column > 1 && l == lower(right[column - 2]) && lower(left[row - 2]) == r;
      at(row, column) = isSwapped ? std::min(best, at(row - 2, column - 2) + 1) : best;
    }
  }
  return cells.back();
}

}  // namespace

Nearest::Nearest(std::string wanted)
    : wanted_(std::move(wanted)), distance_(wanted_.size() / 3 + 1) {}

void Nearest::consider(const std::string& name) {
  if (name.size() > longestName || wanted_.size() > longestName || name == wanted_) return;
  const bool begins = !wanted_.empty() && name.compare(0, wanted_.size(), wanted_) == 0;
  const std::size_t distance = begins ? 0 : distanceOf(wanted_, name);
  if (distance >= distance_) return;
  distance_ = distance;
  best_ = name;
}

}  // namespace tool
