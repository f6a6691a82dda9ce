// What paths look like on this platform, beside ossPathSeparator.
#pragma once

#include <cstring>

namespace oss {

// A second separator that paths may be written with; ossPathSeparator again where there is none.
extern const char otherPathSeparator;

// Whether a path may begin with the letter of a drive and a colon.
extern const bool pathsHaveDrives;

// Whether a path names a lock file: it ends in ".lock".
inline bool isLockFileName(const char* path) noexcept {
  static constexpr char suffix[] = ".lock";
  constexpr std::size_t suffixLength = sizeof suffix - 1;
  const std::size_t length = std::strlen(path);
  return length > suffixLength && std::strcmp(path + length - suffixLength, suffix) == 0;
}

}  // namespace oss
