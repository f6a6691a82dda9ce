#include "sysservices/fault_hook.h"

#include <atomic>

namespace {
std::atomic<OSSFaultHook> installedHook{nullptr};
std::atomic<void*> installedContext{nullptr};
}  // namespace

void ossSetFaultHook(OSSFaultHook hook, void* context) {
  installedContext.store(context, std::memory_order_relaxed);
  installedHook.store(hook, std::memory_order_release);
}

int ossFaultPoint(const char* operation, const char* path) {
  const OSSFaultHook hook = installedHook.load(std::memory_order_acquire);
  if (hook == nullptr) return 0;
  return hook(operation, path, installedContext.load(std::memory_order_relaxed));
}
