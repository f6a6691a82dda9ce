#include "report.h"

#include <cstdio>
#include <cstring>

#include "genreg.h"

namespace zorreg {

int reportCode(unsigned int code, const std::string& file) {
  const GenRegReturnCode* row = genRegFindReturnCode(code);
  std::fprintf(stderr, "zorreg: %s (0x%08X): %s\n", row == nullptr ? "unknown code" : row->name,
               code, row == nullptr ? "no meaning is known" : row->meaning);
  std::fprintf(stderr, "zorreg: file %s\n", file.c_str());
  const bool notFound = code == GENREG_RC_NOT_FOUND || code == GENREG_RC_NO_FILE;
  return notFound ? exitNotFound : exitFailed;
}

int reportUsage(const std::string& message) {
  std::fprintf(stderr, "zorreg: %s\n", message.c_str());
  return exitUsage;
}

std::string printable(const char* text, std::size_t size) {
  std::string shown(text, ::strnlen(text, size));
  for (char& character : shown) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte == 0x7F) character = '?';
  }
  return shown;
}

}  // namespace zorreg
