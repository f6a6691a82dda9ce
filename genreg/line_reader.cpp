#include "genreg/line_reader.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "genreg/core/diagnostics.h"
#include "platform/stream.h"

namespace genreg {
namespace {

// What one physical line gives to the logical line.
struct Physical {
  std::size_t length;      // bytes read
  std::size_t textLength;  // bytes before the newline, a carriage return and a NUL
  bool newline;
  bool holdsNul;
};

// Reads up to the next newline. fgets does not tell how many bytes it read; without a NUL among
// them that is the text's length, and only a text that does not end in a newline can hide one.
bool readPhysicalLine(char* at, std::size_t room, std::FILE* stream, const std::uint64_t* offset,
                      Physical& physical) noexcept {
  const int limit = static_cast<int>(std::min<std::size_t>(room, INT_MAX));
  if (std::fgets(at, limit, stream) == nullptr) return false;
  physical.length = std::strlen(at);
  physical.textLength = physical.length;
  physical.newline = physical.length > 0 && at[physical.length - 1] == '\n';
  physical.holdsNul = false;
  if (physical.newline) {
    --physical.textLength;
    if (physical.textLength > 0 && at[physical.textLength - 1] == '\r') --physical.textLength;
    return true;
  }
  if (offset == nullptr) return true;
  const std::int64_t now = platform::tellStream(stream);
  if (now < 0) return true;
  physical.length = std::min<std::size_t>(static_cast<std::uint64_t>(now) - *offset, room - 1);
  physical.holdsNul = physical.length > physical.textLength;
  return true;
}

}  // namespace

LineRead readLogicalLine(char* raw, char* text, std::size_t size, std::FILE* stream, bool join,
                         const std::uint64_t* offset) noexcept {
  LineRead read;
  for (;;) {
    char* at = raw + read.rawLength;
    const std::uint64_t start = offset == nullptr ? 0 : *offset + read.rawLength;
    Physical physical{};
    if (!readPhysicalLine(at, size - read.rawLength, stream, offset == nullptr ? nullptr : &start,
                          physical)) {
      break;
    }
    read.any = true;
    read.rawLength += physical.length;
    const bool backslash = physical.textLength > 0 && at[physical.textLength - 1] == '\\';
    const bool continues = backslash && physical.newline && join;
    // A backslash that nothing follows is dropped, one that ends a line only when it joins two.
    const std::size_t taken =
        physical.textLength - (backslash && (continues || !physical.newline) ? 1 : 0);
    std::memcpy(text + read.textLength, at, taken);
    read.textLength += taken;
    if (continues) continue;
    if (physical.newline) text[read.textLength++] = '\n';
    read.holdsNul = physical.holdsNul;
    read.complete = true;
    break;
  }
  text[read.textLength] = '\0';
  return read;
}

bool readLine(LineCursor& cursor, TextLine& line, bool join) noexcept {
  const LineRead read =
      readLogicalLine(line.raw, line.text, GENREG_LINE_SIZE, cursor.stream, join, &cursor.offset);
  if (!read.any) return false;
  const bool tail = cursor.insideLine;
  cursor.offset += read.rawLength;
  line.rawLength = read.rawLength;
  line.holdsNul = read.holdsNul;
  // A newline behind a NUL ends the line as well, though not its text.
  const bool rawEnded = line.raw[read.rawLength - 1] == '\n';
  line.ended = (read.textLength > 0 && line.text[read.textLength - 1] == '\n') ||
               (read.holdsNul && rawEnded);
  line.endOfFile = !line.ended && cursor.offset >= cursor.size;
  cursor.insideLine = !line.ended && !line.endOfFile;
  line.fragment = tail || cursor.insideLine;
  return true;
}

}  // namespace genreg

char* GenRegReadLine(char* buffer, char* line, std::uint64_t size, std::FILE* stream,
                     unsigned int* rc, bool join) noexcept {
  genreg::Routine routine(genreg::Function::readLine);
  unsigned int ignored = 0;
  unsigned int& code = rc == nullptr ? ignored : *rc;
  if (buffer == nullptr || line == nullptr || stream == nullptr || size == 0) {
    code = routine.exit(routine.fail(GENREG_RC_BAD_ARGUMENT, 10));
    return nullptr;
  }
  buffer[0] = '\0';
  const genreg::LineRead read =
      genreg::readLogicalLine(buffer, line, static_cast<std::size_t>(size), stream, join, nullptr);
  code = routine.exit(read.complete ? GENREG_RC_OK : GENREG_RC_NO_LINE);
  return read.any ? buffer : nullptr;
}
