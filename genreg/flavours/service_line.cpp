#include "genreg/flavours/service_line.h"

#include <cstdlib>
#include <cstring>

#include "genreg/flavours/line_writer.h"
#include "genreg_codes.h"

namespace genreg {
namespace {

bool isProtocol(std::string_view word) {
  return word == "tcp" || word == "udp" || word == "ddp" || word == "divert";
}

// As strtol reads it; the five digits that a port has are read here in half the time.
std::uint16_t portOf(std::string_view text) {
  unsigned int port = 0;
  std::size_t at = 0;
  for (; at < text.size() && at < 5 && text[at] >= '0' && text[at] <= '9'; ++at) {
    port = 10 * port + static_cast<unsigned int>(text[at] - '0');
  }
  if (at > 0 && at == text.size()) return static_cast<std::uint16_t>(port);
  char copy[GENREG_LINE_SIZE];
  std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  return static_cast<std::uint16_t>(std::strtol(copy, nullptr, 10));
}

}  // namespace

ServiceLine parseServiceLine(std::string_view line) noexcept {
  ServiceLine out;
  std::string_view left = line;
  if (const void* hash = std::memchr(line.data(), '#', line.size()); hash != nullptr) {
    const auto at = static_cast<std::size_t>(static_cast<const char*>(hash) - line.data());
    out.hasComment = true;
    out.comment = line.substr(at + 1);
    left = line.substr(0, at);
  }
  out.hasService = GenRegNextToken(&out.name, &left) == 0;
  if (!out.hasService) return out;
  (void)GenRegNextToken(&out.endpoint, &left);
  const std::size_t slash = out.endpoint.find('/');
  if (slash == std::string_view::npos) {
    out.odd = out.endpoint.empty() ? GENREG_RC_SERVICES_NO_PORT : GENREG_RC_SERVICES_NO_SLASH;
    return out;
  }
  out.port = portOf(out.endpoint.substr(0, slash));
  out.protocol = out.endpoint.substr(slash + 1);
  out.rest = left;
  if (!isProtocol(out.protocol)) out.odd = GENREG_RC_SERVICES_BAD_PROTOCOL;
  return out;
}

}  // namespace genreg
