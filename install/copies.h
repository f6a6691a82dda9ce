// What the registry says of one installed copy. A copy is given by its name; the empty name is the
// copy of the older layout, recorded directly in the product's key (the default entry).
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/machine_registry.h"

namespace install {

inline constexpr char productPath[] = "SOFTWARE\\NUV\\ZOR";
inline constexpr char copiesPath[] = "SOFTWARE\\NUV\\ZOR\\INSTALLEDCOPIES";

constexpr std::size_t copyPathSize = 260;  // bytes of an installation directory, with terminator

// From version 9 on, every copy has a name: what stands in the old place then is no entry.
bool isListedAsDefault(std::uint64_t versionCode) noexcept;

// Reads a copy's version code. Gives 0; GENREG_RC_END when there is no default entry; or the
// registry's error for a copy with a name. Logs only the former.
unsigned int ossReadCopyVersion(const platform::Machine& machine, const char* copyName,
                                std::uint64_t* versionCode) noexcept;

// Reads a copy's installation directory, without a backslash at its end, into `buffer` of at least
// copyPathSize bytes. Results as above.
unsigned int ossGetCopyPath(const platform::Machine& machine, const char* copyName,
                            char* buffer) noexcept;

// Whether a copy has at least one ZEM profile.
bool ossCopyHasZemProfiles(const platform::Machine& machine, const char* copyName) noexcept;

}  // namespace install
