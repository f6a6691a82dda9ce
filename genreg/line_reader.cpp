#include "genreg/line_reader.h"

#include <climits>

#include "genreg/line_text.h"
#include "platform/byte_search.h"
#include "platform/stream_face.h"

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

// Whether a raw text that ends in a newline ends there, or is continued by what follows.
bool endsHere(const char* raw, std::size_t length, bool join) noexcept {
  if (!join || length < 2) return true;
  const void* before = platform::findLastByte(raw, '\n', length - 1);
  const char* start = before == nullptr ? raw : static_cast<const char*>(before) + 1;
  return !PhysicalLine(start, length - static_cast<std::size_t>(start - raw)).continues(true);
}

// How long the logical line at the start of a window is, of which at most `limit` bytes are looked
// at: up to the newline that ends it, or all of them. `lines` counts its newlines.
std::size_t lengthOfLine(const char* bytes, std::size_t limit, bool join, bool* ended,
                         unsigned int* lines) noexcept {
  *ended = false;
  *lines = 0;
  for (std::size_t length = 0; length < limit;) {
    const void* newline = std::memchr(bytes + length, '\n', limit - length);
    if (newline == nullptr) return limit;
    length = static_cast<std::size_t>(static_cast<const char*>(newline) - bytes) + 1;
    ++*lines;
    *ended = endsHere(bytes, length, join);
    if (*ended) return length;
  }
  return limit;
}

// What a frame's bytes are to a reader, the last of the file for all that is known here.
void describe(Frame& frame, bool join, bool ended, unsigned int lines) noexcept {
  frame.stored = ended ? frame.bytes.substr(0, frame.bytes.size() - 1) : frame.bytes;
  frame.unended = !ended;
  const bool joinsLines = lines > (ended ? 1u : 0u);
  const bool inBackslash = ended && !frame.stored.empty() && frame.stored.back() == '\\';
  frame.isJoined = join && (joinsLines || inBackslash);
}

}  // namespace

void describeLast(Frame& frame, bool join) noexcept {
  bool ended = false;
  unsigned int lines = 0;
  (void)lengthOfLine(frame.bytes.data(), frame.bytes.size(), join, &ended, &lines);
  describe(frame, join, ended, lines);
}

Code nextLine(File& file, bool join, Frame& frame) noexcept {
  bool ended = false;
  unsigned int lines = 0;
  std::size_t length =
      lengthOfLine(file.window(), std::min(file.windowSize(), longestRaw), join, &ended, &lines);
  if (!ended && file.windowSize() < longestRaw) {
    if (!file.more(longestRaw)) return GENREG_RC_NO_LINE;
    if (file.windowSize() == 0) return GENREG_RC_END;
    length =
        lengthOfLine(file.window(), std::min(file.windowSize(), longestRaw), join, &ended, &lines);
  }
  const bool inside = frame.goesOn;
  const bool newlineOnly = file.window()[0] == '\n' || file.window()[0] == '\r';
  if (join && frame.goesOnInBackslash && newlineOnly) ended = false;

  frame.bytes = {file.window(), length};
  frame.offset = file.offset();
  file.skip(length);
  describe(frame, join, ended, lines);
  frame.goesOn = !ended && !file.atEnd();
  frame.unended = !ended && !frame.goesOn;
  frame.isPiece = inside || frame.goesOn;
  frame.goesOnInBackslash = frame.goesOn && frame.bytes.back() == '\\';
  return GENREG_RC_OK;
}

void makeText(std::string_view raw, bool join, char* out) noexcept {
  std::size_t length = 0;
  for (std::size_t at = 0; at < raw.size();) {
    const PhysicalLine line(raw.data() + at, raw.size() - at);
    const bool continues = line.continues(join);
    // A backslash that nothing follows is dropped, one before a newline only when it joins two
    // lines.
    const std::size_t taken =
        line.body - (line.backslash && (continues || !line.textEnds()) ? 1 : 0);
    std::memcpy(out + length, raw.data() + at, taken);
    length += taken;
    at += line.length;
    if (continues) continue;
    if (line.textEnds()) out[length++] = '\n';
    break;
  }
  out[length] = '\0';
}

}  // namespace genreg

// On a caller's stream, of which nothing more is known than that it can be read.
char* GenRegReadLine(char* buffer, char* line, std::uint64_t size, std::FILE* stream,
                     unsigned int* rc, bool join) noexcept {
  genreg::Routine routine(genreg::Function::readLine);
  unsigned int ignored = 0;
  unsigned int& code = rc == nullptr ? ignored : *rc;
  if (buffer == nullptr || line == nullptr || stream == nullptr || size == 0) {
    code = routine.refuse(GENREG_RC_BAD_ARGUMENT, 10);
    return nullptr;
  }
  if (!platform::isOfThisRuntime(stream)) {
    code = routine.refuse(GENREG_RC_BAD_ARGUMENT, 20, genreg::text(genreg::foreignStream));
    return nullptr;
  }
  buffer[0] = '\0';
  code = GENREG_RC_OK;
  bool any = false;
  std::size_t length = 0;
  for (;;) {
    const int room = static_cast<int>(std::min<std::uint64_t>(size - length, INT_MAX));
    // For less than one byte of text nothing is read; not every runtime library takes such a call.
    if (room == 1) {
      any = true;
      break;
    }
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
  genreg::makeText({buffer, length}, join, line);
  (void)routine.end(code);
  return any ? buffer : nullptr;
}
