#include "genreg/line_reader.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "genreg/core/diagnostics.h"
#include "platform/byte_search.h"
#include "platform/stream.h"

namespace genreg {
namespace {

// One physical line: its bytes up to and including the newline, if it has one.
struct PhysicalLine {
  PhysicalLine(const char* raw, std::size_t limit) noexcept {
    const auto* end = static_cast<const char*>(std::memchr(raw, '\n', limit));
    newline = end != nullptr;
    length = newline ? static_cast<std::size_t>(end - raw) + 1 : limit;
    body = newline ? length - 1 : length;
    // A text ends at a NUL; what follows belongs to the raw text alone.
    if (const void* nul = std::memchr(raw, '\0', body); nul != nullptr) {
      body = static_cast<std::size_t>(static_cast<const char*>(nul) - raw);
      holdsNul = true;
    } else if (newline && body > 0 && raw[body - 1] == '\r') {
      --body;
    }
    backslash = body > 0 && raw[body - 1] == '\\';
  }

  bool textEnds() const noexcept { return newline && !holdsNul; }
  bool continues(bool join) const noexcept { return join && backslash && textEnds(); }

  std::size_t length = 0;
  std::size_t body = 0;  // bytes of text, without newline, carriage return, and what a NUL hides
  bool newline = false;
  bool holdsNul = false;
  bool backslash = false;
};

// The logical line of a raw text. Returns its length; `out` needs no more room than `raw`.
std::size_t logicalText(const char* raw, std::size_t rawLength, bool join, char* out) noexcept {
  std::size_t length = 0;
  for (std::size_t at = 0; at < rawLength;) {
    const PhysicalLine line(raw + at, rawLength - at);
    const bool continues = line.continues(join);
    // A backslash that nothing follows is dropped, one before a newline only when it joins two
    // lines.
    const std::size_t taken =
        line.body - (line.backslash && (continues || !line.textEnds()) ? 1 : 0);
    std::memcpy(out + length, raw + at, taken);
    length += taken;
    at += line.length;
    if (continues) continue;
    if (line.textEnds()) out[length++] = '\n';
    break;
  }
  out[length] = '\0';
  return length;
}

// Whether a raw text that ends in a newline ends there, or is continued by what follows.
bool endsHere(const char* raw, std::size_t length, bool join) noexcept {
  if (!join || length < 2) return true;
  const void* before = platform::findLastByte(raw, '\n', length - 1);
  const char* start = before == nullptr ? raw : static_cast<const char*>(before) + 1;
  return !PhysicalLine(start, length - static_cast<std::size_t>(start - raw)).continues(true);
}

}  // namespace

bool TextLine::whole() const noexcept {
  return !fragment && std::memchr(raw, '\0', rawLength) == nullptr;
}

char* TextLine::makeText(bool join) noexcept {
  (void)logicalText(raw, rawLength, join, text_);
  return text_;
}

char* TextLine::ownRaw() noexcept {
  if (raw != own_) std::memcpy(own_, raw, rawLength);
  raw = own_;
  own_[rawLength] = '\0';
  return own_;
}

bool TextLine::append(const char* bytes, std::size_t length) noexcept {
  if (rawLength + length > longestRaw) return false;
  std::memcpy(ownRaw() + rawLength, bytes, length);
  rawLength += length;
  return true;
}

bool LineCursor::next(TextLine& line, bool join) noexcept {
  std::size_t count = 0;
  const char* bytes = platform::peekStream(stream, &count);
  if (count == 0) return false;
  if (!take(line, join, bytes, count)) gather(line, join);
  const bool tail = insideLine;
  offset += line.rawLength;
  const bool newlineOnly = line.raw[0] == '\n' || line.raw[0] == '\r';
  const bool joined = join && cutBeforeNewline && newlineOnly;
  const bool ended = !line.unended() && endsHere(line.raw, line.rawLength, join) && !joined;
  line.endOfFile = !ended && offset >= size;
  insideLine = !ended && !line.endOfFile;
  cutBeforeNewline = insideLine && line.unended() && line.raw[line.rawLength - 1] == '\\';
  line.fragment = tail || insideLine;
  return true;
}

// A line that stands in the stream's buffer as a whole is used where it stands.
bool LineCursor::take(TextLine& line, bool join, const char* bytes, std::size_t count) noexcept {
  const std::size_t limit = std::min(count, longestRaw);
  for (std::size_t length = 0; length < limit;) {
    const void* newline = std::memchr(bytes + length, '\n', limit - length);
    if (newline == nullptr) return false;
    length = static_cast<std::size_t>(static_cast<const char*>(newline) - bytes) + 1;
    if (!endsHere(bytes, length, join)) continue;
    line.raw = bytes;
    line.rawLength = length;
    platform::skipStream(stream, length);
    return true;
  }
  return false;
}

// Any other line is put together: up to its end, the buffer's bound or the end of the file.
void LineCursor::gather(TextLine& line, bool join) noexcept {
  line.raw = line.own_;
  line.rawLength = 0;
  while (line.rawLength < longestRaw) {
    std::size_t count = 0;
    const char* bytes = platform::peekStream(stream, &count);
    if (count == 0) break;
    count = std::min(count, longestRaw - line.rawLength);
    const void* newline = std::memchr(bytes, '\n', count);
    if (newline != nullptr) {
      count = static_cast<std::size_t>(static_cast<const char*>(newline) - bytes) + 1;
    }
    std::memcpy(line.own_ + line.rawLength, bytes, count);
    line.rawLength += count;
    platform::skipStream(stream, count);
    if (newline != nullptr && endsHere(line.own_, line.rawLength, join)) break;
  }
}

}  // namespace genreg

// On a caller's stream, of which nothing more is known than that it can be read.
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
  code = GENREG_RC_OK;
  bool any = false;
  std::size_t length = 0;
  for (;;) {
    const int room = static_cast<int>(std::min<std::uint64_t>(size - length, INT_MAX));
    if (std::fgets(buffer + length, room, stream) == nullptr) {
      code = GENREG_RC_NO_LINE;
      break;
    }
    any = true;
    const std::size_t got = std::strlen(buffer + length);
    const genreg::PhysicalLine physical(buffer + length, got);
    length += got;
    if (!physical.continues(join)) break;
  }
  (void)genreg::logicalText(buffer, length, join, line);
  (void)routine.exit(code);
  return any ? buffer : nullptr;
}
