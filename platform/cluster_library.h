// The cluster library, taken from the system when it is first needed. Nothing here throws or logs.
#pragma once

#include <cstddef>

#include "platform/machine_registry.h"

namespace platform {

// UTF-16 units of a value that is read, with its terminator if it has one.
constexpr std::size_t longestClusterValue = 257;

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
  unsigned int (*ClusterRegOpenKey)(ClusterKey parent, const char* path, ClusterKey* key) noexcept;
  unsigned int (*ClusterRegCloseKey)(ClusterKey key) noexcept;
  // Stores the value's text in `text` of `size` bytes: the empty one when it does not fit.
  // registryMoreData for a value that is longer than longestClusterValue.
  unsigned int (*ClusterRegQueryValue)(ClusterKey key, const char* name, char* text,
                                       std::size_t size) noexcept;
};

// Fills what the library has; null entry points and GetLastError when it cannot be loaded.
void loadClusterLibrary(const Machine& machine, ClusterEntryPoints* entryPoints) noexcept;

// The error of this thread's last failed call among those that say so above.
unsigned int GetLastError() noexcept;

}  // namespace platform
