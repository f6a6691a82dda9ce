#include "sysservices/memory.h"

#include <atomic>
#include <cstdlib>

#include "sysservices/fault_hook.h"
#include "sysservices/return_codes.h"

namespace {
std::atomic<std::size_t> blocksInUse{0};
}  // namespace

unsigned int _ossMemAlloc(void** address, int, std::size_t size, int, const char*, unsigned int) {
  if (address == nullptr) return OSS_RC_NULL_ARGUMENT;
  *address = ossFaultPoint("malloc", nullptr) == 0 ? std::malloc(size == 0 ? 1 : size) : nullptr;
  if (*address == nullptr) return OSS_RC_NO_MEMORY;
  blocksInUse.fetch_add(1, std::memory_order_relaxed);
  return OSS_RC_OK;
}

unsigned int _ossMemFree(void** address, int, int, const char*, unsigned int) {
  if (address == nullptr) return OSS_RC_NULL_ARGUMENT;
  if (*address == nullptr) return OSS_RC_OK;
  const int fault = ossFaultPoint("free", nullptr);
  std::free(*address);
  *address = nullptr;
  blocksInUse.fetch_sub(1, std::memory_order_relaxed);
  return fault == 0 ? OSS_RC_OK : OSS_RC_SYSTEM_ERROR;
}

std::size_t ossMemBlocksInUse() { return blocksInUse.load(std::memory_order_relaxed); }
