#include "output.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/tool/terminal.h"

namespace tool {
namespace {

bool startsCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0u) != 0x80u; }

std::size_t charactersOf(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), startsCharacter));
}

// Cuts what stands behind byte `from` of a line of more than `most` characters.
void cut(std::string& line, std::size_t from, std::size_t most) {
  if (charactersOf(line) <= most) return;
  std::size_t end = 0;
  for (std::size_t left = most; end < line.size(); ++end) {
    if (startsCharacter(line[end]) && left-- <= 1) break;
  }
  line.resize(std::max(from, end));
  line += "\u2026";
}

}  // namespace

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

std::string coloured(const std::string& text, Colour colour, std::FILE* stream) {
  const char* const unwanted = std::getenv("NO_COLOR");
  const bool plain = unwanted != nullptr && *unwanted != '\0';
  if (plain || !platform::showsColours(stream)) return text;
  const char* const codes[] = {"1", "1;31", "1;32"};
  return std::string("\033[") + codes[static_cast<int>(colour)] + "m" + text + "\033[0m";
}

void Table::print() const {
  const std::size_t room = platform::terminalWidth(stdout);
  std::vector<std::size_t> widths;
  for (const auto& row : rows_) {
    if (row.size() > widths.size()) widths.resize(row.size(), 0);
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], charactersOf(row[i]));
    }
  }
  for (const auto& row : rows_) {
    std::string line;
    std::size_t last = 0;  // where the last cell begins
    for (std::size_t i = 0; i < row.size(); ++i) {
      last = line.size();
      line += row[i] + std::string(widths[i] - charactersOf(row[i]) + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    if (room != 0) cut(line, last, room);
    std::printf("%s\n", line.c_str());
  }
}

}  // namespace tool
