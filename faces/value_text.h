// Values as texts: whether one is UTF-8, and how a message quotes one.
#pragma once

#include <string>
#include <string_view>

namespace faces {

// Strictly: no overlong form, no surrogate, nothing behind U+10FFFF.
bool isUtf8(std::string_view text) noexcept;

// In single quotes, cut where it is long, "?" for what is no UTF-8 or no terminal shows.
std::string inQuotes(std::string_view value);

}  // namespace faces
