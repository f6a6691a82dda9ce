// A line NAME PORT/PROTOCOL ALIASES # comment as views over the line itself. Comparing, filling a
// record and reporting what is odd all read these views.
#pragma once

#include <cstdint>
#include <string_view>

#include "genreg/core/diagnostics.h"

namespace genreg {

struct ServiceLine {
  bool hasComment = false;
  bool hasService = false;
  std::string_view comment;
  std::string_view name;
  std::string_view endpoint;  // the word behind the name
  std::string_view protocol;
  std::uint16_t port = 0;
  std::string_view rest;  // the aliases, from the first one's blanks on
  // GENREG_RC_SERVICES_NO_PORT, _NO_SLASH or _BAD_PROTOCOL: why the endpoint is none; else 0.
  Code odd = 0;
};

// Parses a line without its newline; the views live as long as it.
ServiceLine parseServiceLine(std::string_view line) noexcept;

}  // namespace genreg
