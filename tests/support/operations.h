// One undisturbed run of each operation on a registry of the records a = 1 and b = 2.
#pragma once

#include "support/flavours.h"

inline const std::string oneAndTwo = frame(variable("a", 1)) + frame(variable("b", 2));

inline Code add(TestRegistry& registry) {
  return Operations<BinaryVariables>::add(registry, "new", 3);
}
inline Code change(TestRegistry& registry) {
  return Operations<BinaryVariables>::change(registry, "b", 22);
}
inline Code remove(TestRegistry& registry) {
  return Operations<BinaryVariables>::remove(registry, "a");
}
inline Code get(TestRegistry& registry) {
  const std::int64_t found = Operations<BinaryVariables>::get(registry, "b");
  return found < 0 ? static_cast<Code>(-found) : 0;
}
inline Code scan(TestRegistry& registry) {
  BinVarValRecord key{};
  BinVarValRecord record;
  Code code = registry.OpenScan();
  if (code != 0) return code;
  while (code == 0) code = registry.GetNext(0, &key, &record);
  const Code closed = registry.CloseScan();
  return code == GENREG_RC_END ? closed : code;
}
