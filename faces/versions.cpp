#include "faces/versions.h"

#include <algorithm>
#include <cstdio>

#include "ossinstall.h"

namespace faces {

// The library takes empty and larger parts, too.
bool parseDotted(const std::string& text, std::uint64_t& code) {
  std::size_t parts = 0;
  for (std::size_t at = 0; at <= text.size(); ++parts) {
    const std::size_t dot = std::min(text.find('.', at), text.size());
    const std::string part = text.substr(at, dot - at);
    const bool number = !part.empty() && part.size() <= 5 &&
                        part.find_first_not_of("0123456789") == std::string::npos;
    if (!number || std::stoul(part) > 0xFFFF) return false;
    at = dot + 1;
  }
  return parts <= 4 && ossVersionStringToCode(text.c_str(), &code) == 0;
}

std::string versionText(std::uint64_t code) {
  char text[24] = "";
  (void)ossVersionCodeToString(code, text, sizeof text);
  return text;
}

std::string versionHexadecimal(std::uint64_t code) {
  char text[24];
  (void)std::snprintf(text, sizeof text, "0x%016llX", static_cast<unsigned long long>(code));
  return text;
}

}  // namespace faces
