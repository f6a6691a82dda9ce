#include <cstdlib>
#include <new>
#include <utility>

#include "support/registry_fixture.h"

// On this thread, up to one that fails; 0: none does.
static thread_local long allocationsLeft = 0;

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  const bool fails = allocationsLeft > 0 && --allocationsLeft == 0;
  return fails ? nullptr : std::malloc(size == 0 ? 1 : size);
}
void* operator new(std::size_t size) {
  void* const memory = operator new(size, std::nothrow);
  return memory == nullptr ? throw std::bad_alloc() : memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

bool endsInTheMidst(long n, const std::function<void()>& work) {
  allocationsLeft = n;
  try {
    work();
  } catch (const std::exception&) {  // the caller looks at what it leaves behind
  }
  return std::exchange(allocationsLeft, 0) == 0;
}
