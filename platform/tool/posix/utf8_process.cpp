// The system knows bytes; they are UTF-8 wherever people look at them.
#include "platform/tool/utf8_process.h"

#include <algorithm>
#include <cstdlib>

namespace platform {

Utf8Process::Utf8Process(int count, char** words)
    : words_(words + std::min(count, 1), words + count) {}
Utf8Process::~Utf8Process() = default;

bool runCommand(const std::string& command) {
  return std::system(command.c_str()) == 0;  // NOLINT(concurrency-mt-unsafe,cert-env33-c)
}

}  // namespace platform
