#include "output.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace tool {

void printJson(const Json& value) {
  const std::string text = value.dump(2, ' ', false, Json::error_handler_t::replace);
  std::printf("%s\n", text.c_str());
}

std::string printable(const char* text, std::size_t size) {
  return printable(std::string(text, ::strnlen(text, size)));
}

std::string printable(const std::string& text) {
  std::string shown = text;
  for (char& character : shown) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte == 0x7F) character = '?';
  }
  return shown;
}

void Table::print() const {
  std::vector<std::size_t> widths;
  for (const auto& row : rows_) {
    if (row.size() > widths.size()) widths.resize(row.size(), 0);
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  for (const auto& row : rows_) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line += row[i] + std::string(widths[i] - row[i].size() + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    std::printf("%s\n", line.c_str());
  }
}

}  // namespace tool
