// The bytes are a text file; its first byte switches the joining of continued lines on.
//   - The raw texts of all logical lines, one after the other, are the file.
//   - A record that was read can be written, in the look of its line or in that of the file's
//     lines, and is the same record when it is read again.
#include <cstring>
#include <memory>
#include <string>

#include "faces/line_layout.h"
#include "faces/line_parser.h"
#include "genreg.h"
#include "targets.h"

namespace {

template <typename Reshape>
void check(const faces::LineParser& parser, const faces::LineLayout& layout, Reshape reshaped,
           const std::string& line) {
  faces::LineParser::Line read = parser.parse(line);
  if (read.fields.text("Comment").empty()) read.fields.remove("Comment");  // to be taken away
  for (std::string written : {line, std::string()}) {
    const std::string replaced = written;
    if (!read.isEntry || read.isOdd || parser.format(read.fields, written) != 0) continue;
    require(parser.parse(written).fields.all() == read.fields.all());
    const std::string shown = reshaped(layout, replaced, written);
    if (shown.size() > GENREG_LINE_SIZE - 2) continue;  // it is refused when it is to be stored
    require(parser.parse(shown).fields.all() == read.fields.all());
  }
}

}  // namespace

int fuzzTextLines(const std::uint8_t* data, std::size_t size) {
  static const faces::LineParser variables("var");
  static const faces::LineParser services("services");
  if (size < 2) return 0;
  const bool join = (data[0] & 1) != 0;
  std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  const faces::LineLayout profile = faces::layoutOfProfile(bytes);
  const faces::LineLayout columns = faces::layoutOfServices(bytes);
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(
      ::fmemopen(bytes.data(), bytes.size(), "r"), std::fclose);
  if (stream == nullptr) return 0;
  std::string together;
  char raw[GENREG_LINE_SIZE];
  char line[GENREG_LINE_SIZE];
  unsigned int code = 0;
  while (GenRegReadLine(raw, line, sizeof raw, stream.get(), &code, join) != nullptr) {
    require(std::strlen(line) <= std::strlen(raw));
    together += raw;
    const std::string bare(line, std::strcspn(line, "\n"));
    // Blanks around a quoted "=" may not be the same again; an update that finds so is refused.
    if (bare.find('"') == bare.npos) check(variables, profile, faces::reshapedProfile, bare);
    check(services, columns, faces::reshapedServices, bare);
  }
  require(bytes.find('\0') != std::string::npos || together == bytes);
  return 0;
}
