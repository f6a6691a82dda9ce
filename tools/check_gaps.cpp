#include "check_gaps.h"

#include <algorithm>
#include <string_view>

namespace tool {
namespace {

// The length of the record with its length field, or of the line with its newline, that stands at
// `at`.
std::size_t pieceAt(Kind kind, bool bigEndian, std::string_view bytes, std::size_t at) {
  const std::size_t left = bytes.size() - at;
  if (isText(kind)) return std::min(bytes.find('\n', at) - at, left - 1) + 1;
  constexpr std::size_t width = 4;
  if (left < width) return left;
  std::size_t length = 0;
  for (std::size_t i = 0; i < width; ++i) {
    const auto byte = static_cast<unsigned char>(bytes[at + (bigEndian ? i : width - 1 - i)]);
    length = length << 8 | byte;
  }
  return std::min(width + length, left);
}

// Where a line begins is known; a record may stand anywhere behind damage.
std::size_t find(Kind kind, std::string_view bytes, std::string_view piece, std::size_t from) {
  std::size_t at = bytes.find(piece, from);
  while (isText(kind) && at != bytes.npos && at != 0 && bytes[at - 1] != '\n') {
    at = bytes.find(piece, at + 1);
  }
  return at;
}

}  // namespace

std::vector<Gap> gapsOf(Kind kind, bool bigEndian, const std::string& original,
                        const std::string& repaired) {
  std::vector<Gap> gaps;
  std::size_t read = 0;
  for (std::size_t at = 0; at < repaired.size();) {
    const std::size_t length = pieceAt(kind, bigEndian, repaired, at);
    const std::string_view piece = std::string_view(repaired).substr(at, length);
    const std::size_t found = find(kind, original, piece, read);
    if (found == original.npos) return {};
    if (found != read) gaps.push_back({read, found - read});
    read = found + length;
    at += length;
  }
  if (read != original.size()) gaps.push_back({read, original.size() - read});
  return gaps;
}

}  // namespace tool
