// The cluster's registry as it is mounted in the machine's: the key "Cluster". Without that key the
// machine belongs to no cluster and there is no cluster library.
#include "platform/cluster_library.h"

#include <cstring>

#include "platform/registry_export/registry_tree.h"
#include "platform/registry_export/unicode.h"
#include "sysservices/fault_hook.h"

namespace platform {
namespace {

constexpr unsigned int moduleMissing = 126;

thread_local unsigned int lastError = 0;

// Cluster and cluster key are keys of the machine's registry.
RegistryKey keyOf(Cluster cluster) { return reinterpret_cast<RegistryKey>(cluster); }
RegistryKey keyOf(ClusterKey key) { return reinterpret_cast<RegistryKey>(key); }

RegistryKey mountedCluster(const Machine& machine) {
  return findKey(localMachineKey(machine), "Cluster");
}

Cluster openCluster(const Machine& machine) noexcept {
  const RegistryKey root = mountedCluster(machine);
  lastError = ossFaultPoint("OpenCluster", nullptr) > 0 || root == nullptr ? registryKeyMissing : 0;
  return lastError == 0 ? reinterpret_cast<Cluster>(root) : nullptr;
}

bool closeCluster(Cluster) noexcept { return true; }

ClusterKey getClusterKey(Cluster cluster) noexcept {
  lastError = ossFaultPoint("GetClusterKey", nullptr) > 0 ? registryKeyMissing : 0;
  return lastError == 0 ? reinterpret_cast<ClusterKey>(keyOf(cluster)) : nullptr;
}

unsigned int openKey(ClusterKey parent, const char* path, ClusterKey* key) noexcept {
  const RegistryKey found = findKey(keyOf(parent), path);
  if (found == nullptr) return registryKeyMissing;
  *key = reinterpret_cast<ClusterKey>(found);
  return 0;
}

unsigned int closeKey(ClusterKey) noexcept { return 0; }

unsigned int queryValue(ClusterKey key, const char* name, char* text, std::size_t size) noexcept {
  const RegistryValue* const value = findValue(keyOf(key), name);
  if (value == nullptr) return registryKeyMissing;
  if (!isRegistryText(value->type)) return registryNotText;
  if (utf16Length(value->data) > longestClusterValue) return registryMoreData;
  const std::size_t length = std::strlen(value->data.c_str());
  const bool fits = length < size;
  std::memcpy(text, fits ? value->data.c_str() : "", fits ? length + 1 : 1);
  return 0;
}

}  // namespace

void loadClusterLibrary(const Machine& machine, ClusterEntryPoints* entryPoints) noexcept {
  // A test counts here how often the library is looked for.
  if (ossFaultPoint("LoadLibraryA", "CLUSAPI.DLL") > 0 || mountedCluster(machine) == nullptr) {
    lastError = moduleMissing;
    return;
  }
  *entryPoints = {openCluster, closeCluster, getClusterKey, openKey, closeKey, queryValue};
}

unsigned int GetLastError() noexcept { return lastError; }

}  // namespace platform
