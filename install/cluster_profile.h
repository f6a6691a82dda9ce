// Profile directories that the cluster's registry keeps. Nothing here traces or logs.
#pragma once

#include <cstddef>

#include "install/instance_kind.h"
#include "platform/cluster_library.h"

namespace install {

constexpr std::size_t clusterPathSize = 260;  // bytes of a profile directory, with terminator

// The cluster, opened for one instance list at its first instance that needs it.
struct OSSClusterContext_t {
  platform::ClusterKey clusterKey;
  platform::Cluster cluster;
};

// Opens the cluster. Returns 0 and the context; OSS_RC_NO_MEMORY; or the cluster's error.
unsigned int ossOpenClusterContext(const platform::Machine& machine,
                                   OSSClusterContext_t** context) noexcept;

// Reads an instance's profile directory into `buffer` of at least clusterPathSize bytes; it is
// empty after a failure, or when the directory does not fit the buffer. Returns 0 or the cluster's
// error.
unsigned int ossReadClusterProfile(const platform::Machine& machine,
                                   const OSSClusterContext_t& context, const char* instanceName,
                                   Kind kind, char* buffer) noexcept;

// Closes key and cluster and releases the context. Returns 0 or the cluster's error.
unsigned int ossCloseClusterContext(const platform::Machine& machine,
                                    OSSClusterContext_t* context) noexcept;

}  // namespace install
