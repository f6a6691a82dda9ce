// One undisturbed run of each operation on a registry of the records a = 1 and b = 2.
#pragma once

#include "support/registry_fixture.h"

constexpr std::uint64_t byName = BINVARVAL_VARIABLE;
constexpr std::uint64_t verified = GENREG_VERIFY_UPDATES | GENREG_ALLOW_DUPLICATES;
constexpr std::uint64_t unverified = GENREG_ALLOW_DUPLICATES;

struct Operation {
  const char* name;
  std::uint64_t features;
  bool startsEmpty;  // there is no registry file before
  unsigned int (*run)(TestRegistry& registry);
};

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
inline unsigned int scan(TestRegistry& registry) {
  BinVarValRecord key{};
  BinVarValRecord record;
  unsigned int code = registry.OpenScan();
  if (code != 0) return code;
  while (code == 0) code = registry.GetNext(0, &key, &record);
  const unsigned int closed = registry.CloseScan();
  return code == GENREG_RC_END ? closed : code;
}
