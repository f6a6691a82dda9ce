#include "pattern.h"

#include <sstream>

namespace tool {

Pattern::Pattern(const std::string& pattern, Extent extent) : pattern_(pattern), extent_(extent) {
  for (char& letter : pattern_) letter = folded(letter);
  const bool isPlain = pattern_.find_first_of("*?") == std::string::npos;
  if (isPlain && extent == Part) pattern_ = "*" + pattern_ + "*";
}

char Pattern::folded(char letter) const {
  const bool isUpper = letter >= 'A' && letter <= 'Z';
  return extent_ == Part && isUpper ? static_cast<char>(letter - 'A' + 'a') : letter;
}

// A star takes as little as it can; on a mismatch the last one takes a character more.
bool Pattern::matches(const std::string& text) const {
  std::size_t at = 0;
  std::size_t in = 0;
  std::size_t star = std::string::npos;
  std::size_t resumed = 0;
  while (in < text.size()) {
    const char expected = at < pattern_.size() ? pattern_[at] : '\0';
    if (expected == '*') {
      star = at++;
      resumed = in;
    } else if (at < pattern_.size() && (expected == '?' || expected == folded(text[in]))) {
      ++at;
      ++in;
    } else if (star != std::string::npos) {
      at = star + 1;
      in = ++resumed;
    } else {
      return false;
    }
  }
  return pattern_.find_first_not_of('*', at) == std::string::npos;
}

bool Pattern::matchesWord(const std::string& text) const {
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (matches(word)) return true;
  }
  return false;
}

}  // namespace tool
