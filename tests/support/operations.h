// One undisturbed run of each operation on a registry of the records a = 1 and b = 2.
#pragma once

#include "support/registry_fixture.h"

inline unsigned int add(TestRegistry& registry) {
  BinVarValRecord record = variable("new", 3);
  return registry.Add(byName, &record);
}
inline unsigned int change(TestRegistry& registry) {
  BinVarValRecord key = variable("b");
  BinVarValRecord record = variable("b", 22);
  return registry.Change(byName, &key, &record);
}
inline unsigned int remove(TestRegistry& registry) {
  BinVarValRecord key = variable("a");
  return registry.Delete(byName, &key);
}
inline unsigned int get(TestRegistry& registry) {
  BinVarValRecord key = variable("b");
  BinVarValRecord record;
  return registry.Get(byName, &key, &record);
}
template <typename Record = BinVarValRecord, typename Registry>
unsigned int scan(Registry& registry) {
  Record key{};
  Record record;
  unsigned int code = registry.OpenScan();
  if (code != 0) return code;
  while (code == 0) code = registry.GetNext(0, &key, &record);
  const unsigned int closed = registry.CloseScan();
  return code == GENREG_RC_END ? closed : code;
}
