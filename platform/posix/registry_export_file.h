// Registry exports in files, each parsed once per process as long as its file stays the same.
#pragma once

#include <cstdint>
#include <string>

#include "platform/registry_export/registry_tree.h"

namespace platform {

// A registry, or why there is none.
struct ExportContent {
  SharedTree tree;         // empty when the export is refused
  unsigned int code = 0;   // OSS_RC_FILE_NOT_FOUND when there is no such file
  unsigned int point = 0;  // probe point of its log record
  std::uint32_t line = 0;  // from 1; 0 when no line is at fault
  std::string reason;
};

// Gives the registry in the file at `path`, all of it or a refusal. A tree is the caller's to keep:
// it stays as it is when the file changes. May be called from several threads, of which one reads
// while the others wait. Logs nothing; throws when there is no memory.
ExportContent loadRegistryExport(const std::string& path);

// Logs a refusal with path, line and reason.
void logRefusal(const std::string& path, const ExportContent& content) noexcept;

}  // namespace platform
