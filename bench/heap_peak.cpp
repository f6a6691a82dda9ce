// Preloaded into a process, counts what its heap holds, to the byte: the system's own figures of
// resident memory are too coarse for operations that need a few kilobytes.
#include <malloc.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}

namespace {

std::size_t held = 0;  // not for several threads
std::size_t most = 0;

void* took(void* block) {
  held += ::malloc_usable_size(block);
  most = std::max(most, held);
  return block;
}

}  // namespace

extern "C" {

// What the heap held at most since the last call beyond what it held at that call.
std::size_t heapPeak() {
  static std::size_t start = 0;
  const std::size_t peak = most - start;
  start = most = held;
  return peak;
}

void* malloc(std::size_t size) { return took(__libc_malloc(size)); }
void* calloc(std::size_t count, std::size_t size) {
  std::size_t bytes = 0;
  if (__builtin_mul_overflow(count, size, &bytes)) return nullptr;
  void* block = malloc(bytes);
  return block == nullptr ? nullptr : std::memset(block, 0, bytes);
}
void free(void* block) {
  held -= ::malloc_usable_size(block);
  __libc_free(block);
}
void* realloc(void* block, std::size_t size) {
  void* moved = malloc(size);
  if (moved == nullptr || block == nullptr) return moved;
  std::memcpy(moved, block, std::min(size, ::malloc_usable_size(block)));
  free(block);
  return moved;
}
void* memalign(std::size_t alignment, std::size_t size) {
  return took(__libc_memalign(alignment, size));
}
void* aligned_alloc(std::size_t alignment, std::size_t size) { return memalign(alignment, size); }
int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  *block = memalign(alignment, size);
  return *block == nullptr ? ENOMEM : 0;
}
}
