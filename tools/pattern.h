// A text that others are searched for; "*" stands for any characters, "?" for one.
#pragma once

#include <string>

namespace tool {

class Pattern {
 public:
  // Part: without "*" and "?" it matches every text that holds it; the case of letters is the same.
  // Whole: it matches whole texts, letters as they are.
  enum Extent { Part, Whole };
  explicit Pattern(const std::string& pattern, Extent extent = Part);
  bool matches(const std::string& text) const;
  // Whether it matches one of the words of the text, which have blanks between them.
  bool matchesWord(const std::string& text) const;

 private:
  char folded(char letter) const;

  std::string pattern_;
  Extent extent_;
};

}  // namespace tool
