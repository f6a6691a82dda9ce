// What the verbs print: columns for a terminal, JSON for programs.
#pragma once

#include <cstddef>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace tool {

// Objects keep their members in the order in which they were made.
using Json = nlohmann::ordered_json;

// Prints one JSON value, indented, and a newline. Bytes that are no UTF-8 become U+FFFD.
void printJson(const Json& value);

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

// An entry as a line of cells and as JSON.
struct Row {
  std::vector<std::string> cells;
  Json json;
};

// Entries that are printed in the end, one way or the other.
class Listing {
 public:
  void add(Row row) {
    table_.add(std::move(row.cells));
    all_.push_back(std::move(row.json));
  }
  bool empty() const { return all_.empty(); }
  void print(bool json) const { json ? printJson(all_) : table_.print(); }

 private:
  Table table_;
  Json all_ = Json::array();
};

}  // namespace tool
