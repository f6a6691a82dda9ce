#include "genreg/flavours/service_line.h"

#include <cstdlib>
#include <cstring>

#include "genreg/flavours/line_writer.h"
#include "genreg_codes.h"

namespace genreg {
namespace {

// As strtol reads it.
std::uint16_t portOf(std::string_view text) {
  char copy[GENREG_LINE_SIZE];
  std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  return static_cast<std::uint16_t>(std::strtol(copy, nullptr, 10));
}

// An endpoint that is not plain, with what is odd about it.
void takeEndpoint(ServiceLine& line) {
  (void)GenRegNextToken(&line.endpoint, &line.rest);
  const std::size_t slash = line.endpoint.find('/');
  if (slash == std::string_view::npos) {
    line.odd = line.endpoint.empty() ? GENREG_RC_SERVICES_NO_PORT : GENREG_RC_SERVICES_NO_SLASH;
    return;
  }
  line.port = portOf(line.endpoint.substr(0, slash));
  line.protocol = line.endpoint.substr(slash + 1);
  if (!isProtocol(line.protocol)) line.odd = GENREG_RC_SERVICES_BAD_PROTOCOL;
}

}  // namespace

ServiceLine parseServiceLine(std::string_view line) noexcept {
  ServiceLine out;
  ServiceHead head;
  if (readServiceHead(line, head)) {
    out.hasService = true;
    out.name = head.name;
    out.protocol = head.protocol;
    out.port = head.port();
    out.rest = head.rest;
    return out;
  }
  out.rest = line;
  out.hasService = GenRegNextToken(&out.name, &out.rest) == 0;
  if (out.hasService) takeEndpoint(out);
  return out;
}

ServiceLine::Tail ServiceLine::tail() const noexcept {
  const std::size_t hash = rest.find('#');
  const bool hasComment = hash != std::string_view::npos;
  return {rest.substr(0, hash), hasComment ? rest.substr(hash + 1) : std::string_view(),
          hasComment};
}

}  // namespace genreg
