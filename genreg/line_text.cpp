#include "genreg/line_text.h"

#include <cstring>

#include "genreg/core/diagnostics.h"
#include "genreg/core/record_buffer.h"
#include "genreg_text.h"
#include "platform/stream_face.h"

namespace genreg {
namespace {

constexpr bool isBlankToFold(char byte) { return byte == '\t' || byte == '\n' || byte == '\r'; }

// The normalised form of `text`, whose foldable blanks are spaces by now; returns its length.
std::size_t foldSpaces(const char* text, char* out) noexcept {
  std::size_t length = 0;
  for (const char* from = text; *from != '\0';) {
    if (*from == '"') {
      const char* close = std::strchr(from + 1, '"');
      const std::size_t quoted =
          close == nullptr ? std::strlen(from) : static_cast<std::size_t>(close - from) + 1;
      std::memcpy(out + length, from, quoted);
      length += quoted;
      from += quoted;
    } else if (*from == ' ') {
      from += std::strspn(from, " ");
      if (length > 0) out[length++] = ' ';
    } else {
      out[length++] = *from++;
    }
  }
  while (length > 0 && out[length - 1] == ' ') --length;
  return length;
}

}  // namespace

unsigned int GenRegNormalizeLine(char* text) noexcept {
  Routine routine(Function::normalizeLine);
  if (text == nullptr) return routine.refuse(GENREG_RC_NO_ARGUMENT, 10);
  const std::size_t size = std::strlen(text) + 1;
  RecordBuffer copy;
  if (const unsigned int code = copy.reserve(size); code != 0) {
    (void)routine.failFrom(probeMemAlloc, code, GENREG_RC_WORK_ALLOC, 20);
    return routine.answer(code);
  }
  for (char* byte = text; *byte != '\0'; ++byte) {
    if (isBlankToFold(*byte)) *byte = ' ';
  }
  auto* out = static_cast<char*>(copy.data());
  const std::size_t length = foldSpaces(text, out);
  std::memcpy(text, out, length);
  text[length] = '\0';
  const unsigned int freed = copy.release();
  if (freed != 0) (void)routine.failFrom(probeMemFree, freed, GENREG_RC_WORK_FREE, 30);
  return routine.answer(freed);
}

void GenRegMakePrintable(char* text) noexcept {
  const Routine routine(Function::makePrintable);
  if (text == nullptr) return;
  for (; *text != '\0'; ++text) {
    const auto byte = static_cast<unsigned char>(*text);
    if ((byte < 0x20 && byte != '\t') || byte >= 0x7F) *text = '.';
  }
}

}  // namespace genreg

unsigned int GenRegWriteLine(char* line, std::uint64_t width, std::FILE* stream) noexcept {
  genreg::Routine routine(genreg::Function::writeLine);
  constexpr std::uint64_t narrowest = 3;  // a break takes two characters of the width
  if (line == nullptr || width < narrowest) {
    return routine.refuse(GENREG_RC_BAD_ARGUMENT, 10);
  }
  if (stream == nullptr) return routine.refuse(GENREG_RC_BAD_ARGUMENT, 20);
  if (!platform::isOfThisRuntime(stream)) {
    return routine.refuse(GENREG_RC_BAD_ARGUMENT, 25, genreg::text(genreg::foreignStream));
  }
  constexpr std::size_t longest = GENREG_LINE_SIZE - 1;
  char folded[GENREG_LINE_SIZE];
  std::size_t length = 0;
  for (;; ++line) {
    if ((length + 1) % width == 0) {
      if (length + 2 > longest) return routine.refuse(GENREG_RC_BAD_ARGUMENT, 30);
      folded[length++] = '\\';
      folded[length++] = '\n';
    }
    if (*line == '\0') break;
    if (length + 1 > longest) return routine.refuse(GENREG_RC_BAD_ARGUMENT, 35);
    folded[length++] = *line;
  }
  folded[length] = '\0';
  (void)std::fputs(folded, stream);
  return GENREG_RC_OK;
}
