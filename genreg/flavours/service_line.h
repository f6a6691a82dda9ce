// A line NAME PORT/PROTOCOL ALIASES # comment as views over the line itself. Comparing, filling a
// record and reporting what is odd all read these views.
#pragma once

#include <cstdint>
#include <string_view>

#include "genreg/core/diagnostics.h"
#include "genreg/flavours/protocols.h"
#include "genreg/line_text.h"

namespace genreg {

// What a plain line says of its service.
struct ServiceHead {
  std::string_view name;
  std::string_view protocol;
  std::string_view rest;        // what stands behind these: aliases and comment
  std::string_view portDigits;  // one to five

  // Only for whoever asks: multiplying digits takes as long as all the rest.
  std::uint16_t port() const noexcept {
    unsigned int number = 0;
    for (const char digit : portDigits)
      number = 10 * number + static_cast<unsigned int>(digit - '0');
    return static_cast<std::uint16_t>(number);
  }
};

// Reads the head of a plain line: a name, digits, a slash and a known protocol, ended by a blank, a
// "#" or the line's end. False for any other line. Most of a search is this.
inline bool readServiceHead(std::string_view line, ServiceHead& head) noexcept {
  const char* const end = line.data() + line.size();
  const char* const nameEnd = skipWord(line.data(), end, ' ');
  const char* const port = skipBlanks(nameEnd, end);
  const char* at = port;
  while (at < end && *at >= '0' && *at <= '9') ++at;
  if (nameEnd == line.data() || port == nameEnd || at == port || at - port > 5 || at == end ||
      *at != '/') {
    return false;
  }
  const char* const wordEnd = skipWord(at + 1, end, ' ');
  head.name = viewOf(line.data(), nameEnd);
  head.protocol = viewOf(at + 1, wordEnd);
  head.rest = viewOf(wordEnd, end);
  head.portDigits = viewOf(port, at);
  return (wordEnd == end || isBlank(*wordEnd) || *wordEnd == '#') && isProtocol(head.protocol);
}

struct ServiceLine {
  bool hasService = false;
  std::string_view name;
  std::string_view endpoint;  // the word behind the name, of a line that is not plain
  std::string_view protocol;
  std::uint16_t port = 0;
  std::string_view rest;  // what stands behind these: aliases and comment
  // GENREG_RC_SERVICES_NO_PORT, _NO_SLASH or _BAD_PROTOCOL: why the endpoint is none; else 0.
  Code odd = 0;

  // The rest, taken apart: the aliases' words, and the text behind the line's first "#".
  struct Tail {
    std::string_view aliases;
    std::string_view comment;
    bool hasComment;
  };
  Tail tail() const noexcept;
};

// Parses a line without its newline; the views live as long as it.
ServiceLine parseServiceLine(std::string_view line) noexcept;

}  // namespace genreg
