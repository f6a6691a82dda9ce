// What the machine registry, the service manager and the cluster library share here.
#pragma once

#include <windows.h>

#include "sysservices/windows/system_call.h"
#include "sysservices/windows/wide_text.h"

namespace platform {

// The registries are the system's own: there is nothing to keep.
struct Machine {};

// Our opaque handles are the system's, under another name.
template <typename Ours, typename Systems>
Ours asOurs(Systems handle) noexcept {
  return reinterpret_cast<Ours>(handle);
}
template <typename Systems, typename Object>
Systems asSystems(const Object* handle) noexcept {
  return reinterpret_cast<Systems>(const_cast<Object*>(handle));
}

// What a test wants an operation to fail with, as a number of the system; 0 as a rule.
inline DWORD injectedError(const char* operation, const char* name) noexcept {
  const int fault = ossFaultPoint(operation, name);
  return fault > 0 ? oss::systemErrorOf(fault) : ERROR_SUCCESS;
}

}  // namespace platform
