// The service control manager, as far as a service's start type goes. Nothing here throws or logs.
#pragma once

#include <cstdint>

#include "platform/machine_registry.h"

namespace platform {

// Start types of a service.
constexpr std::uint32_t serviceStartsAutomatically = 2;
constexpr std::uint32_t serviceDisabled = 4;

struct ServiceManagerObject;
using ServiceManager = const ServiceManagerObject*;
struct ServiceObject;
using Service = const ServiceObject*;

// Null when the manager cannot be reached. Lives no longer than the machine.
ServiceManager OpenSCManagerA(const Machine& machine) noexcept;

// Null when there is no such service.
Service OpenServiceA(ServiceManager manager, const char* name) noexcept;

// The start type of a service; false when it is not known.
bool QueryServiceConfigA(Service service, std::uint32_t* startType) noexcept;

void CloseServiceHandle(ServiceManager manager) noexcept;
void CloseServiceHandle(Service service) noexcept;

}  // namespace platform
