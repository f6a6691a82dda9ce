// A service's start type, from the service control manager.
#include "platform/service_control.h"

#include "platform/windows/machine.h"

namespace platform {
namespace {

constexpr std::size_t longestName = 257;  // of a service, in UTF-16 units, terminator included

}  // namespace

ServiceManager OpenSCManagerA(const Machine&) noexcept {
  if (ossFaultPoint("OpenSCManagerA", nullptr) > 0) return nullptr;
  return asOurs<ServiceManager>(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
}

Service OpenServiceA(ServiceManager manager, const char* name) noexcept {
  const oss::Wide<longestName> wide(name, oss::Spelled::Text);
  return asOurs<Service>(
      ::OpenServiceW(asSystems<SC_HANDLE>(manager), wide.get(), SERVICE_QUERY_CONFIG));
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
