// What stands behind the handle of an instance list, and the steps of walking one.
//
// A list walks the subkeys of INSTALLEDCOPIES that have a profiles key of its kind, and in each the
// instances; then those of the default entry. profilesKey is the current copy's, null when the list
// has ended or cannot go on.
#pragma once

#include <cstddef>
#include <cstdint>

#include "genreg/core/diagnostics.h"
#include "install/cluster_profile.h"
#include "install/instance_kind.h"
#include "ossinstall.h"
#include "platform/machine_registry.h"
#include "platform/service_control.h"

namespace install {

constexpr std::int32_t defaultEntryIndex = -1;

// Bytes of a key's name, with terminator: 255 UTF-16 units take at most three bytes each.
constexpr std::size_t keyNameSize = 766;

struct OSSInstanceList_t {
  platform::Machine* machine;
  platform::RegistryKey profilesKey;
  platform::RegistryKey copiesKey;          // INSTALLEDCOPIES; null when it is missing or exhausted
  platform::ServiceManager serviceManager;  // may be null
  OSSClusterContext_t* cluster;             // null until an instance needs it
  std::uint32_t instanceIndex;              // of the next subkey of profilesKey
  std::int32_t
      copyIndex;  // of the next subkey of copiesKey; defaultEntryIndex at the default entry
  Kind kind;
  char copyName[sizeof OSSInstanceInfo_t::copyName];  // of the current copy
};

// Moves to the next copy that has a profiles key. Returns 0 or the registry's error.
unsigned int ossNextCopyWithProfiles(OSSInstanceList_t& list) noexcept;

// Fills the record with the next instance. Returns 0, GENREG_RC_END, or another code.
unsigned int nextInstance(OSSInstanceList_t& list, OSSInstanceInfo_t& record) noexcept;

// Fills the record with the instance of that name in the current copy, and goes beyond it when that
// has worked or its profile alone could not be read. `record.instanceName` is filled already.
unsigned int readInstance(genreg::Routine& routine, OSSInstanceList_t& list,
                          const char* instanceName, OSSInstanceInfo_t& record) noexcept;

}  // namespace install
