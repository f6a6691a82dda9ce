// Profile directories that the cluster's registry keeps. Nothing here traces or logs.
#pragma once

#include <cstddef>

#include "platform/cluster_library.h"

namespace install {

constexpr std::size_t clusterPathSize = 260;  // bytes of a profile directory, with terminator

// What one kind of instances is called.
struct Kind {
  const char* service;
  const char* profilesKey;      // below a copy's key, and in the cluster's registry
  const char* profileVariable;  // the value with the profile directory
};

// The cluster, opened for one instance list at its first instance that needs it and closed with it.
class ClusterContext {
 public:
  explicit ClusterContext(const platform::Machine& machine) noexcept;
  ~ClusterContext();
  ClusterContext(const ClusterContext&) = delete;
  ClusterContext& operator=(const ClusterContext&) = delete;

  // Opens the cluster and its registry. Returns 0 or the cluster's error.
  unsigned int open(const platform::Machine& machine) noexcept;

  // Reads an instance's profile directory into `buffer` of at least clusterPathSize bytes; it is
  // empty after a failure, or when the directory does not fit the buffer. Returns 0 or the
  // cluster's error.
  unsigned int readProfile(const Kind& kind, const char* instanceName, char* buffer) const noexcept;

 private:
  const platform::ClusterEntryPoints& api_;
  platform::Cluster cluster_ = nullptr;
  platform::ClusterKey key_ = nullptr;
};

}  // namespace install
