// What paths look like on this platform, beside ossPathSeparator.
#pragma once

#include <cstddef>

namespace oss {

// A second separator that paths may be written with; ossPathSeparator again where there is none.
extern const char otherPathSeparator;

// Whether a path may begin with the letter of a drive and a colon.
extern const bool pathsHaveDrives;

// Whether the byte at `at` belongs to the character before it: in some code pages the second byte
// of one may look like a separator.
bool isInsideCharacter(const char* path, std::size_t at) noexcept;

}  // namespace oss
