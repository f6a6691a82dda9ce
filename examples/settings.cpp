// Opens a registry of settings, adds one, finds it, and lists all.
#include <cstdio>
#include <cstring>

#include "genreg.h"

int main() {
  unsigned int code = 0;
  GenRegBinVarVal registry("settings.reg", &code);
  if (code != 0) return 1;

  BinVarValRecord record{};
  std::strcpy(record.Variable, "Timeout");
  record.Value = 30;
  code = registry.Add(BINVARVAL_VARIABLE, &record);  // locked, synced, verified, renamed into place
  if (code != 0) return 1;

  BinVarValRecord found{};
  code = registry.Get(BINVARVAL_VARIABLE, &record, &found);
  if (code == 0) std::printf("%s is %d\n", found.Variable, static_cast<int>(found.Value));

  if (registry.OpenScan() != 0) return 1;
  while (registry.GetNext(0, &record, &found) == 0) std::printf("- %s\n", found.Variable);
  return registry.CloseScan() == 0 ? 0 : 1;
}
