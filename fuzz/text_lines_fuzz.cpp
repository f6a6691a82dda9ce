// The bytes are a text file; its first byte switches the joining of continued lines on.
//   - The raw texts of all logical lines, one after the other, are the file.
//   - A record that was parsed can be written and is the same record when it is read again.
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "genreg.h"
#include "targets.h"

namespace {

// A flavour that shows its line hooks.
template <typename Flavour>
class Parser : public Flavour {
 public:
  Parser() : Flavour("fuzz", nullptr) {}
  unsigned int unpack(void* record, char* line) { return this->UnpackRecord.text(record, line); }
  unsigned int pack(void* record, char* text) { return this->PackRecord.text(record, text); }
};

bool same(const char* left, const char* right) {
  if (left == nullptr || right == nullptr) return left == right;
  return std::strcmp(left, right) == 0;
}

void checkVariable(const char* raw, char* line) {
  static Parser<GenRegVarVal> parser;
  VarValRecord record;
  if (parser.unpack(&record, line) != 0) return;
  if ((record.Contains & VARVAL_HAS_VARIABLE) == 0) return;
  char text[GENREG_LINE_SIZE];
  (void)std::snprintf(text, sizeof text, "%s", raw);
  if (parser.pack(&record, text) != 0) return;
  require(std::strlen(text) < sizeof text && std::strchr(text, '\n')[1] == '\0');
  // Blanks between quotes stay as they are, so those around a quoted "=" may not be the same again;
  // the engine's verification refuses such a change.
  if (std::strchr(line, '"') != nullptr) return;
  VarValRecord again;
  require(parser.unpack(&again, text) == 0);
  require(same(record.Variable, again.Variable) && same(record.Value, again.Value));
}

void checkService(char* line) {
  static Parser<GenRegServices> parser;
  ServiceEntryRecord record;
  if (parser.unpack(&record, line) != 0) return;
  if ((record.Contains & SERVICES_HAS_SERVICE) == 0) return;
  if ((record.Contains & SERVICES_BAD_PORT) != 0 || record.port == 0) return;
  char text[GENREG_LINE_SIZE] = "";
  if (parser.pack(&record, text) != 0) return;
  ServiceEntryRecord again;
  require(parser.unpack(&again, text) == 0);
  require(same(record.name, again.name) && same(record.protocol, again.protocol));
  require(record.port == again.port);
  for (std::size_t i = 0; record.aliases != nullptr && record.aliases[i] != nullptr; ++i) {
    require(same(record.aliases[i], again.aliases[i]));
  }
}

}  // namespace

int fuzzTextLines(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const bool join = (data[0] & 1) != 0;
  std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
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
    checkVariable(raw, line);
    checkService(line);
  }
  const bool holdsNul = bytes.find('\0') != std::string::npos;
  require(holdsNul || together == bytes);
  return 0;
}
