// A service's start type, from the service control manager.
#include "platform/service_control.h"

#include "platform/windows/machine.h"

namespace platform {

ServiceManager OpenSCManagerA(const Machine&) noexcept {
  if (ossFaultPoint("OpenSCManagerA", nullptr) > 0) return nullptr;
  return asOurs<ServiceManager>(::OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
}

Service OpenServiceA(ServiceManager manager, const char* name) noexcept {
  return asOurs<Service>(::OpenServiceA(asSystems<SC_HANDLE>(manager), name, SERVICE_QUERY_CONFIG));
}

// A configuration whose texts do not fit is one that is not known.
bool QueryServiceConfigA(Service service, std::uint32_t* startType) noexcept {
  constexpr DWORD room = 568;  // bytes, its texts included
  alignas(QUERY_SERVICE_CONFIGA) BYTE buffer[room];
  auto* const configuration = reinterpret_cast<QUERY_SERVICE_CONFIGA*>(buffer);
  DWORD needed = 0;
  if (::QueryServiceConfigA(asSystems<SC_HANDLE>(service), configuration, room, &needed) == 0) {
    return false;
  }
  *startType = configuration->dwStartType;
  return true;
}

void CloseServiceHandle(ServiceManager manager) noexcept {
  (void)::CloseServiceHandle(asSystems<SC_HANDLE>(manager));
}
void CloseServiceHandle(Service service) noexcept {
  (void)::CloseServiceHandle(asSystems<SC_HANDLE>(service));
}

}  // namespace platform
