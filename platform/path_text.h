// Paths between UTF-8 and the spelling in which the system services take them.
#pragma once

#include <string>

namespace platform {

// The path that `utf8` names, as the services spell it. False when `utf8` is none where it must be.
bool pathFromUtf8(const char* utf8, std::string& path);

// A text that the services spelled, as UTF-8.
std::string utf8FromSystem(const char* text);

}  // namespace platform
