// The cluster library, taken from the system when it is first needed, and the conversions between
// its 16-bit text and the system's 8-bit encoding. Nothing here throws or logs.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/machine_registry.h"

namespace platform {

struct ClusterObject;
using Cluster = const ClusterObject*;
struct ClusterKeyObject;
using ClusterKey = const ClusterKeyObject*;

// The library's entry points; each is null when the library or the entry point is missing. Errors
// are numbers as in machine_registry.h.
struct ClusterEntryPoints {
  // The cluster this machine belongs to; null with GetLastError on failure.
  Cluster (*OpenCluster)(const Machine& machine) noexcept;
  // False with GetLastError on failure.
  bool (*CloseCluster)(Cluster cluster) noexcept;
  // The root key of the cluster's registry; null with GetLastError on failure.
  ClusterKey (*GetClusterKey)(Cluster cluster) noexcept;
  unsigned int (*ClusterRegOpenKey)(ClusterKey parent, const char16_t* path,
                                    ClusterKey* key) noexcept;
  unsigned int (*ClusterRegCloseKey)(ClusterKey key) noexcept;
  // *size is the buffer's bytes, then the value's; text need not be terminated.
  unsigned int (*ClusterRegQueryValue)(ClusterKey key, const char16_t* name, void* data,
                                       std::uint32_t* size) noexcept;
};

// Fills what the library has; null entry points and GetLastError when it cannot be loaded.
void loadClusterLibrary(const Machine& machine, ClusterEntryPoints* entryPoints) noexcept;

// The error of this thread's last failed call among those that say so above.
unsigned int GetLastError() noexcept;

// Converts terminated text with its terminator; `size` counts the buffer's units. False when it
// does not fit or is not valid; the buffer's content is then undefined.
bool MultiByteToWideChar(const char* text, char16_t* buffer, std::size_t size) noexcept;
bool WideCharToMultiByte(const char16_t* text, char* buffer, std::size_t size) noexcept;

}  // namespace platform
