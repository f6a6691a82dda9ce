// What paths look like on this platform, beside ossPathSeparator.
#pragma once

namespace oss {

// A second separator that paths may be written with; ossPathSeparator again where there is none.
extern const char otherPathSeparator;

// Whether a path may begin with the letter of a drive and a colon.
extern const bool pathsHaveDrives;

}  // namespace oss
