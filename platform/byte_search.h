// The search that one platform's runtime library has and the other's lacks.
#pragma once

#include <cstddef>
#include <cstring>

namespace platform {

// The last of `count` bytes that equals `byte`, or null.
inline const void* findLastByte(const void* bytes, char byte, std::size_t count) noexcept {
#ifdef _WIN32
  const auto* const first = static_cast<const char*>(bytes);
  for (const char* at = first + count; at > first;) {
    if (*--at == byte) return at;
  }
  return nullptr;
#else
  return ::memrchr(bytes, byte, count);
#endif
}

}  // namespace platform
