// What a stream's terminal can show, if it has one.
#pragma once

#include <cstddef>
#include <cstdio>

namespace platform {

// How many characters fit a line of the stream's terminal; 0 when it has none or cannot show UTF-8.
std::size_t terminalWidth(std::FILE* stream) noexcept;

bool isTerminal(std::FILE* stream) noexcept;

// Whether the stream goes to a terminal that knows the usual sequences for colours.
bool showsColours(std::FILE* stream) noexcept;

}  // namespace platform
