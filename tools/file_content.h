// A registry's file and those beside it, its bytes and its lines, as a look without the library
// sees them.
#pragma once

#include <cstdint>
#include <string>

#include "faces/content.h"

namespace tool {

// The names of one registry's files, as the library gives them.
struct RegistryFiles {
  explicit RegistryFiles(const std::string& file);
  // The file that holds the registry now: its own, or what a crashed commit left as the backup.
  const std::string& content() const;

  unsigned int code = 0;  // why there are no names; 0 when there are
  std::string registry;
  std::string temporary;
  std::string corrupt;
  std::string lock;
  std::string backup;
};

using faces::readContent;

// A physical line.
struct TextLine {
  std::uint64_t number;  // from 1
  std::string bytes;     // without its newline and the carriage return before it
  bool ended;            // by a newline
  bool holdsNul() const { return bytes.find('\0') != std::string::npos; }
  bool isTooLong() const;  // for the library
};

template <typename Visit>
void forEachLine(const std::string& text, Visit visit) {
  std::uint64_t number = 1;
  for (std::size_t at = 0; at < text.size(); ++number) {
    const std::size_t newline = text.find('\n', at);
    const std::size_t end = newline < text.size() ? newline : text.size();
    const bool returned = newline == end && end > at && text[end - 1] == '\r';
    visit(TextLine{number, text.substr(at, end - at - (returned ? 1 : 0)), newline == end});
    at = end + 1;
  }
}

}  // namespace tool
