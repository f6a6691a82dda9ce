// What the verbs print for people; listing.h has what they print for programs, too.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

namespace tool {

// Text with everything that could disturb a terminal shown as "?"; of a field, at most `size`
// bytes.
std::string printable(const char* text, std::size_t size);
std::string printable(const std::string& text);

// Text in a colour, or as it is where `stream` is no terminal or the user wants no colours.
enum class Colour { Heading, Error, Hint };
std::string coloured(const std::string& text, Colour colour, std::FILE* stream);

// Lines of cells, printed with two blanks between columns that are as wide as their widest cell. On
// a terminal that is too narrow the last cell of a line is cut.
class Table {
 public:
  void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
  void print() const;

 private:
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace tool
