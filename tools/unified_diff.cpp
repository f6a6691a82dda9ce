// The linear-space search for a shortest edit script from both ends, with a bound: a part that has
// not met by then is divided where the search has got furthest.
#include "unified_diff.h"

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zorreg {
namespace {

using Lines = std::vector<std::string_view>;

// Each with its newline, if it has one.
Lines linesOf(std::string_view text) {
  Lines lines;
  while (!text.empty()) {
    const std::size_t newline = text.find('\n');
    const std::size_t size = newline == std::string_view::npos ? text.size() : newline + 1;
    lines.push_back(text.substr(0, size));
    text.remove_prefix(size);
  }
  return lines;
}

// One side: its lines as numbers, equal where the lines are, and which of them the other lacks.
struct Side {
  std::vector<std::size_t> numbers;  // of the lines that are compared
  std::vector<std::size_t> places;   // and which lines those are
  std::vector<bool> changed;         // of all lines
};

// Part of both sides: [left, leftEnd) and [right, rightEnd) of the compared lines.
struct Part {
  std::int64_t left, leftEnd, right, rightEnd;
};

class Comparison {
 public:
  Comparison(const Lines& before, const Lines& after) {
    std::unordered_map<std::string_view, std::size_t> numbers;
    std::vector<bool> inBefore;
    std::vector<bool> inAfter;
    const auto count = [&](const Lines& lines, std::vector<bool>& seen) {
      for (const std::string_view line : lines) {
        const std::size_t number = numbers.emplace(line, numbers.size()).first->second;
        if (number >= seen.size()) seen.resize(number + 1);
        seen[number] = true;
      }
    };
    count(before, inBefore);
    count(after, inAfter);
    inBefore.resize(numbers.size());
    inAfter.resize(numbers.size());
    // A line that the other side lacks is changed, whatever the rest.
    const auto fill = [&](const Lines& lines, const std::vector<bool>& other, Side& side) {
      side.changed.resize(lines.size());
      for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::size_t number = numbers.find(lines[i])->second;
        side.changed[i] = !other[number];
        if (side.changed[i]) continue;
        side.numbers.push_back(number);
        side.places.push_back(i);
      }
    };
    fill(before, inAfter, left_);
    fill(after, inBefore, right_);
    const auto most = static_cast<std::size_t>(2 * searchLimit + 3);
    forward_.resize(most);
    backward_.resize(most);
    compare();
  }

  const std::vector<bool>& removed() const { return left_.changed; }
  const std::vector<bool>& added() const { return right_.changed; }

 private:
  static constexpr std::int64_t searchLimit = 512;  // changes after which a search gives up

  bool isSame(std::int64_t left, std::int64_t right) const {
    return left_.numbers[static_cast<std::size_t>(left)] ==
           right_.numbers[static_cast<std::size_t>(right)];
  }

  void compare() {
    std::vector<Part> parts{{0, static_cast<std::int64_t>(left_.numbers.size()), 0,
                             static_cast<std::int64_t>(right_.numbers.size())}};
    while (!parts.empty()) {
      Part part = parts.back();
      parts.pop_back();
      while (part.left < part.leftEnd && part.right < part.rightEnd &&
             isSame(part.left, part.right)) {
        ++part.left, ++part.right;
      }
      while (part.left < part.leftEnd && part.right < part.rightEnd &&
             isSame(part.leftEnd - 1, part.rightEnd - 1)) {
        --part.leftEnd, --part.rightEnd;
      }
      if (part.left == part.leftEnd || part.right == part.rightEnd) {
        mark(part);
        continue;
      }
      const auto [left, right] = divide(part);
      parts.push_back({part.left, left, part.right, right});
      parts.push_back({left, part.leftEnd, right, part.rightEnd});
    }
  }

  void mark(const Part& part) {
    for (std::int64_t i = part.left; i < part.leftEnd; ++i) {
      left_.changed[left_.places[static_cast<std::size_t>(i)]] = true;
    }
    for (std::int64_t i = part.right; i < part.rightEnd; ++i) {
      right_.changed[right_.places[static_cast<std::size_t>(i)]] = true;
    }
  }

  // How far down the left side each search has got on a diagonal, which is left - right relative
  // to where the search began.
  std::int64_t& at(std::vector<std::int64_t>& reached, std::int64_t diagonal) {
    return reached[static_cast<std::size_t>(diagonal + searchLimit + 1)];
  }

  // A point on a shortest way through the part, which begins and ends with lines that differ; it is
  // neither the part's begin nor its end.
  std::pair<std::int64_t, std::int64_t> divide(const Part& part) {
    const std::int64_t n = part.leftEnd - part.left;
    const std::int64_t m = part.rightEnd - part.right;
    const std::int64_t delta = n - m;
    at(forward_, 1) = 0;
    at(backward_, 1) = 0;
    for (std::int64_t d = 0;; ++d) {
      std::int64_t best = -1;
      std::pair<std::int64_t, std::int64_t> furthest;
      for (std::int64_t k = -d; k <= d; k += 2) {
        const bool down = k == -d || (k != d && at(forward_, k - 1) < at(forward_, k + 1));
        std::int64_t x = down ? at(forward_, k + 1) : at(forward_, k - 1) + 1;
        while (x < n && x - k < m && x >= 0 && x - k >= 0 &&
               isSame(part.left + x, part.right + x - k)) {
          ++x;
        }
        at(forward_, k) = x;
        const std::int64_t y = x - k;
        if (x <= n && y >= 0 && y <= m && x + y > best) {
          best = x + y;
          furthest = {part.left + x, part.right + y};
        }
        const std::int64_t other = delta - k;
        const bool met = delta % 2 != 0 && other > -d && other < d && x <= n && y >= 0 && y <= m &&
                         x + at(backward_, other) >= n;
        if (met) return {part.left + x, part.right + y};
      }
      for (std::int64_t k = -d; k <= d; k += 2) {
        const bool down = k == -d || (k != d && at(backward_, k - 1) < at(backward_, k + 1));
        std::int64_t x = down ? at(backward_, k + 1) : at(backward_, k - 1) + 1;
        while (x < n && x - k < m && x >= 0 && x - k >= 0 &&
               isSame(part.leftEnd - 1 - x, part.rightEnd - 1 - (x - k))) {
          ++x;
        }
        at(backward_, k) = x;
        const std::int64_t y = x - k;
        const std::int64_t other = delta - k;
        const bool met = delta % 2 == 0 && other >= -d && other <= d && x <= n && y >= 0 &&
                         y <= m && x + at(forward_, other) >= n;
        if (met) return {part.leftEnd - x, part.rightEnd - y};
      }
      if (d == searchLimit) return furthest;
    }
  }

  Side left_;
  Side right_;
  std::vector<std::int64_t> forward_;
  std::vector<std::int64_t> backward_;
};

// Lines that are printed together: [left, leftEnd) of the one text, [right, rightEnd) of the other.
class Hunks {
 public:
  Hunks(const Lines& before, const Lines& after, const Comparison& comparison)
      : before_(before), after_(after), comparison_(comparison) {}

  std::string print() {
    std::string all;
    std::size_t i = 0;
    std::size_t j = 0;
    while (nextChange(i, j)) {
      const std::size_t lead = std::min(i, context);
      i -= lead, j -= lead;
      all += printHunk(i, j);
    }
    return all;
  }

 private:
  static constexpr std::size_t context = 3;

  bool isRemoved(std::size_t i) const { return i < before_.size() && comparison_.removed()[i]; }
  bool isAdded(std::size_t j) const { return j < after_.size() && comparison_.added()[j]; }

  // Passes over lines that are the same; false when that was all.
  bool nextChange(std::size_t& i, std::size_t& j) const {
    while (!isRemoved(i) && !isAdded(j)) {
      if (i == before_.size()) return false;
      ++i, ++j;
    }
    return true;
  }

  std::string printHunk(std::size_t& i, std::size_t& j) const {
    const std::size_t left = i;
    const std::size_t right = j;
    std::string lines;
    for (;;) {
      while (isRemoved(i)) print('-', before_[i++], lines);
      while (isAdded(j)) print('+', after_[j++], lines);
      std::size_t same = 0;
      while (i + same < before_.size() && !isRemoved(i + same) && !isAdded(j + same) &&
             same <= 2 * context) {
        ++same;
      }
      const bool ends = same > 2 * context || i + same == before_.size();
      const bool isLast = ends && !isRemoved(i + same) && !isAdded(j + same);
      const std::size_t shown = isLast ? std::min(same, context) : same;
      for (std::size_t k = 0; k < shown; ++k) print(' ', before_[i + k], lines);
      i += shown, j += shown;
      if (isLast) break;
    }
    return "@@ -" + range(left, i) + " +" + range(right, j) + " @@\n" + lines;
  }

  static void print(char mark, std::string_view line, std::string& lines) {
    lines += mark;
    lines += line;
    if (line.back() != '\n') lines += "\n\\ No newline at end of file\n";
  }

  // An empty range is named by the line before it.
  static std::string range(std::size_t first, std::size_t end) {
    const std::size_t count = end - first;
    const std::string start = std::to_string(count == 0 ? first : first + 1);
    return count == 1 ? start : start + "," + std::to_string(count);
  }

  const Lines& before_;
  const Lines& after_;
  const Comparison& comparison_;
};

}  // namespace

std::string unifiedDiff(const std::string& before, const std::string& after,
                        const std::string& name) {
  if (before == after) return {};
  const Lines left = linesOf(before);
  const Lines right = linesOf(after);
  const Comparison comparison(left, right);
  return "--- " + name + "\n+++ " + name + "\n" + Hunks(left, right, comparison).print();
}

}  // namespace zorreg
