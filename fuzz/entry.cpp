// What libFuzzer calls; FUZZ_TARGET is the target's function.
#include "targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return FUZZ_TARGET(data, size);
}
