// Memory of what stands behind the opaque handles.
#pragma once

#include <new>
#include <utility>

#include "sysservices/fault_hook.h"
#include "sysservices/return_codes.h"

namespace install {

// A new object, or null when there is no memory.
template <typename Object, typename... Arguments>
Object* allocate(Arguments&&... arguments) noexcept {
  if (ossFaultPoint("calloc", nullptr) > 0) return nullptr;
  return new (std::nothrow) Object(std::forward<Arguments>(arguments)...);
}

// Returns 0, or the code of a fault hook; the object is gone either way.
template <typename Object>
unsigned int release(Object* object) noexcept {
  const int fault = ossFaultPoint("free", nullptr);
  delete object;
  return fault == 0 ? OSS_RC_OK : OSS_RC_SYSTEM_ERROR;
}

}  // namespace install
