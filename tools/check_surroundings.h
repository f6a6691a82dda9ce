// What stands beside a registry, whether an update makes it just now, and what the next one would
// run into.
#pragma once

#include "check_findings.h"
#include "file_content.h"
#include "sysservices/file_handle.h"

namespace tool {

// A file as a look finds it.
struct Seen {
  explicit Seen(const std::string& path);
  bool isSame(const Seen& other) const;

  bool isThere = false;
  int error = 0;  // why that is not known
  OSSFileInfo info{};
};

// One look at a registry and its companions. Nothing is opened.
struct Surroundings {
  explicit Surroundings(const RegistryFiles& files);
  bool isSame(const Surroundings& other) const;
  // The registry stands alone, under one name.
  bool isQuiet() const;
  // Names of the registry file that are not a commit's.
  std::uint64_t names() const;

  Seen registry;
  Seen lock;
  Seen temporary;
  Seen corrupt;
  Seen backup;
  bool isUpdating = false;
  bool isLockKnown = true;  // else it may be updating
};

// Looks until it is known whether what is seen is left over or an update's that runs: it is left
// over when three looks found the same and nobody had the update lock. That is asked for without
// waiting, on a lock file that is there, and only when it has been for a while: who ends an update
// just then, or begins one without waiting, would find the lock taken.
Surroundings lookAround(const RegistryFiles& files);

// Says what the next update does with what is left over, and what would make it fail.
void checkSurroundings(const RegistryFiles& files, const Surroundings& seen, const Checked& checked,
                       Findings& findings);

}  // namespace tool
