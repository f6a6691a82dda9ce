#include "genreg/flavours/variable_line.h"

#include <cstring>

#include "genreg/flavours/line_writer.h"
#include "genreg_codes.h"

namespace genreg {
namespace {

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

// A tab, or two spaces in a row.
bool needsNormalizing(std::string_view text) {
  char before = 'x';
  for (const char byte : text) {
    if (byte == '\t' || byte == '\r' || (byte == ' ' && before == ' ')) return true;
    before = byte;
  }
  return false;
}

// Splits a normalised assignment.
Code split(std::string_view text, VariableLine& out) {
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos) return GENREG_RC_VARVAL_NO_EQUALS;
  std::string_view value = text.substr(equals + 1);
  if (!value.empty() && value.front() == ' ') value.remove_prefix(1);
  if (!value.empty() && value.front() == '"') {
    const std::size_t close = value.find('"', 1);
    if (close == std::string_view::npos) return GENREG_RC_VARVAL_OPEN_QUOTE;
    value = value.substr(0, close + 1);
  }
  out.name = text.substr(0, equals > 0 && text[equals - 1] == ' ' ? equals - 1 : equals);
  out.value = value;
  out.hasVariable = true;
  return GENREG_RC_OK;
}

}  // namespace

Code parseVariableLine(std::string_view line, char (&copy)[GENREG_LINE_SIZE],
                       VariableLine& out) noexcept {
  const std::size_t hash = line.find('#');
  out.hasComment = hash != std::string_view::npos;
  if (out.hasComment) out.comment = line.substr(hash + 1);
  std::string_view text = trimmed(line.substr(0, hash));
  if (needsNormalizing(text)) {
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    if (const Code code = GenRegNormalizeLine(copy); code != 0) return code;
    text = copy;
  }
  out.assignment = text;
  if (!text.empty()) out.odd = split(text, out);
  return GENREG_RC_OK;
}

}  // namespace genreg
