// A service's start type, from where the service control manager keeps it in the registry.
#include "platform/service_control.h"

#include <cstring>

#include "platform/registry_export/registry_tree.h"
#include "sysservices/fault_hook.h"

namespace platform {
namespace {

const char* const servicesPath = "SYSTEM\\CurrentControlSet\\Services";

// Manager and service are the keys in which they are found.
RegistryKey keyOf(ServiceManager manager) { return reinterpret_cast<RegistryKey>(manager); }
RegistryKey keyOf(Service service) { return reinterpret_cast<RegistryKey>(service); }

}  // namespace

ServiceManager OpenSCManagerA(const Machine& machine) noexcept {
  if (ossFaultPoint("OpenSCManagerA", nullptr) > 0) return nullptr;
  return reinterpret_cast<ServiceManager>(findKey(localMachineKey(machine), servicesPath));
}

Service OpenServiceA(ServiceManager manager, const char* name) noexcept {
  if (*name == '\0' || std::strchr(name, '\\') != nullptr) return nullptr;
  return reinterpret_cast<Service>(findKey(keyOf(manager), name));
}

bool QueryServiceConfigA(Service service, std::uint32_t* startType) noexcept {
  const RegistryValue* const start = findValue(keyOf(service), "Start");
  if (start == nullptr || start->type != registryDword || start->data.size() != sizeof *startType) {
    return false;
  }
  *startType = 0;
  for (unsigned int i = 0; i < sizeof *startType; ++i) {
    *startType |= std::uint32_t{static_cast<unsigned char>(start->data[i])} << (8 * i);
  }
  return true;
}

void CloseServiceHandle(ServiceManager) noexcept {}
void CloseServiceHandle(Service) noexcept {}

}  // namespace platform
