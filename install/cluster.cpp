#include "install/cluster.h"

#include <cstdio>
#include <mutex>

namespace install {
namespace {

constexpr unsigned int entryPointMissing = 0xFFFFFFFFu;
constexpr std::size_t pathSize = 1024;  // bytes of a key's path, with terminator

// The library's entry points. They are looked for once in the life of the process, by the first
// list that meets a cluster instance, whatever comes of it; two lists that meet theirs at once wait
// for each other.
const platform::ClusterEntryPoints& ossLoadClusterApi(const platform::Machine& machine) {
  static platform::ClusterEntryPoints entryPoints{};
  static std::once_flag tried;
  std::call_once(tried, [&] { platform::loadClusterLibrary(machine, &entryPoints); });
  return entryPoints;
}

// The error of a cluster call that failed; one that gives no reason has failed all the same.
unsigned int clusterError() {
  const unsigned int error = platform::GetLastError();
  return error != 0 ? error : entryPointMissing;
}

}  // namespace

ClusterContext::ClusterContext(const platform::Machine& machine) noexcept
    : api_(ossLoadClusterApi(machine)) {}

// A cluster whose key cannot be closed stays open.
ClusterContext::~ClusterContext() {
  if (key_ != nullptr) {
    if (api_.ClusterRegCloseKey == nullptr || api_.ClusterRegCloseKey(key_) != 0) return;
  }
  if (cluster_ != nullptr && api_.CloseCluster != nullptr) (void)api_.CloseCluster(cluster_);
}

unsigned int ClusterContext::open(const platform::Machine& machine) noexcept {
  if (api_.OpenCluster != nullptr) cluster_ = api_.OpenCluster(machine);
  if (cluster_ == nullptr) return clusterError();
  if (api_.GetClusterKey == nullptr) return entryPointMissing;
  key_ = api_.GetClusterKey(cluster_);
  return key_ != nullptr ? 0 : clusterError();
}

unsigned int ClusterContext::readProfile(const Kind& kind, const char* instanceName,
                                         char* buffer) const noexcept {
  buffer[0] = '\0';
  if (api_.ClusterRegOpenKey == nullptr || api_.ClusterRegQueryValue == nullptr) {
    return entryPointMissing;
  }
  char path[pathSize];
  (void)std::snprintf(path, sizeof path, "NUV\\ZOR\\%s\\%s", kind.profilesKey, instanceName);
  platform::ClusterKey key = nullptr;
  unsigned int error = api_.ClusterRegOpenKey(key_, path, &key);
  if (error != 0) return error;
  error = api_.ClusterRegQueryValue(key, kind.profileVariable, buffer, clusterPathSize);
  if (api_.ClusterRegCloseKey != nullptr) (void)api_.ClusterRegCloseKey(key);
  return error;
}

}  // namespace install
