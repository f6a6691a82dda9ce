#include "install/cluster_profile.h"

#include <cstdio>
#include <mutex>

#include "install/list_memory.h"

namespace install {
namespace {

constexpr unsigned int entryPointMissing = 0xFFFFFFFFu;
constexpr std::size_t wideSize = 514;    // UTF-16 units of a path or a name, with terminator
constexpr std::size_t valueUnits = 257;  // UTF-16 units of a profile directory, with terminator
constexpr std::size_t pathSize = 1024;   // bytes of a key's path, with terminator

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

unsigned int openCluster(const platform::ClusterEntryPoints& api, const platform::Machine& machine,
                         OSSClusterContext_t& context) {
  if (api.OpenCluster != nullptr) context.cluster = api.OpenCluster(machine);
  if (context.cluster == nullptr) return clusterError();
  if (api.GetClusterKey == nullptr) return entryPointMissing;
  context.clusterKey = api.GetClusterKey(context.cluster);
  return context.clusterKey != nullptr ? 0 : clusterError();
}

// An open key of the cluster's registry.
class OpenClusterKey {
 public:
  explicit OpenClusterKey(const platform::ClusterEntryPoints& api) : api_(api) {}
  ~OpenClusterKey() {
    if (key_ != nullptr && api_.ClusterRegCloseKey != nullptr) (void)api_.ClusterRegCloseKey(key_);
  }
  OpenClusterKey(const OpenClusterKey&) = delete;
  OpenClusterKey& operator=(const OpenClusterKey&) = delete;

  unsigned int open(platform::ClusterKey parent, const char16_t* path) {
    return api_.ClusterRegOpenKey(parent, path, &key_);
  }
  platform::ClusterKey get() const { return key_; }

 private:
  const platform::ClusterEntryPoints& api_;
  platform::ClusterKey key_ = nullptr;
};

}  // namespace

unsigned int ossOpenClusterContext(const platform::Machine& machine,
                                   OSSClusterContext_t** context) noexcept {
  auto* const made = allocateZeroed<OSSClusterContext_t>();
  if (made == nullptr) return OSS_RC_NO_MEMORY;
  const platform::ClusterEntryPoints& api = ossLoadClusterApi(machine);
  const unsigned int error = openCluster(api, machine, *made);
  if (error == 0) {
    *context = made;
    return 0;
  }
  if (made->cluster != nullptr && api.CloseCluster != nullptr) {
    (void)api.CloseCluster(made->cluster);
  }
  (void)release(made);
  return error;
}

unsigned int ossReadClusterProfile(const platform::Machine& machine,
                                   const OSSClusterContext_t& context, const char* instanceName,
                                   Kind kind, char* buffer) noexcept {
  buffer[0] = '\0';
  const platform::ClusterEntryPoints& api = ossLoadClusterApi(machine);
  if (api.ClusterRegOpenKey == nullptr || api.ClusterRegQueryValue == nullptr) {
    return entryPointMissing;
  }
  const KindNames& names = kindNames[kind];
  char path[pathSize];
  (void)std::snprintf(path, sizeof path, "NUV\\ZOR\\%s\\%s", names.profilesKey, instanceName);
  char16_t widePath[wideSize];
  char16_t wideName[wideSize];
  if (!platform::MultiByteToWideChar(path, widePath, wideSize) ||
      !platform::MultiByteToWideChar(names.profileVariable, wideName, wideSize)) {
    return entryPointMissing;
  }
  OpenClusterKey key(api);
  if (const unsigned int error = key.open(context.clusterKey, widePath); error != 0) return error;
  char16_t value[valueUnits + 1] = {};  // the last unit stays 0: stored text need not end in one
  std::uint32_t size = valueUnits * sizeof value[0];
  const unsigned int error = api.ClusterRegQueryValue(key.get(), wideName, value, &size);
  if (error == 0 && !platform::WideCharToMultiByte(value, buffer, clusterPathSize)) {
    buffer[0] = '\0';
  }
  return error;
}

unsigned int ossCloseClusterContext(const platform::Machine& machine,
                                    OSSClusterContext_t* context) noexcept {
  const platform::ClusterEntryPoints& api = ossLoadClusterApi(machine);
  unsigned int error = entryPointMissing;
  if (api.ClusterRegCloseKey != nullptr) error = api.ClusterRegCloseKey(context->clusterKey);
  if (error == 0 && api.CloseCluster != nullptr && !api.CloseCluster(context->cluster)) {
    error = clusterError();
  }
  (void)release(context);
  return error;
}

}  // namespace install
