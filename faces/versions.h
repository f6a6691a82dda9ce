// Version codes as people write them: up to four numbers below 65536 with dots between them.
#pragma once

#include <cstdint>
#include <string>

namespace faces {

bool parseDotted(const std::string& text, std::uint64_t& code);
std::string versionText(std::uint64_t code);
// All 64 bits of a code, "0x0009000100000000".
std::string versionHexadecimal(std::uint64_t code);

}  // namespace faces
