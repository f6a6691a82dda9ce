// The bytes of a file, as a look without the library sees them.
#pragma once

#include <cstddef>
#include <string>

namespace faces {

// The first bytes of a plain file, at most `most`. False when it is none or cannot be read: a pipe
// or a device would be emptied by a look, or never end.
bool readContent(const std::string& file, std::size_t most, std::string& bytes);

}  // namespace faces
