// Reads the text of a registry export, version 5.00, into a tree.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/registry_export/registry_tree.h"

namespace platform {

// What is wrong with an export, and where.
struct ExportFault {
  std::uint32_t line = 0;  // from 1
  const char* reason = nullptr;
};

// Fills `tree`, which must be fresh, and finishes it. `bytes` is the file's content: UTF-8, with or
// without its byte order mark, or UTF-16LE with it; half of a surrogate pair in the latter becomes
// U+FFFD. Returns false and the fault for anything that
// is not an export; the tree is then of no use.
bool readRegistryExport(std::string_view bytes, RegistryTree& tree, ExportFault& fault);

}  // namespace platform
