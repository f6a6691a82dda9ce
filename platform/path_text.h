// Paths between UTF-8 and the encoding in which the system services take them.
#pragma once

#include <string>

namespace platform {

// The path that `utf8` spells, in the system's encoding. False when that cannot spell it exactly,
// or `utf8` is none where it must be.
bool pathFromUtf8(const char* utf8, std::string& path);

// A text in the system's encoding, as UTF-8.
std::string utf8FromSystem(const char* text);

}  // namespace platform
