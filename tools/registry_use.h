// How the verbs use a registry: walking its records, and setting one without a second of its name.
#pragma once

#include <string>

#include "genreg.h"
#include "report.h"

namespace zorreg {

// Hands every record (of a text registry: every line) to `visit`; gives the exit status.
template <typename Record, typename Registry, typename Visit>
int forEachRecord(Registry& registry, const std::string& file, Visit visit) {
  if (const unsigned int code = registry.OpenScan(); code != 0) return reportCode(code, file);
  Record key{};
  Record record;
  unsigned int code = registry.GetNext(0, &key, &record);
  for (; code == 0; code = registry.GetNext(0, &key, &record)) visit(record);
  const unsigned int closed = registry.CloseScan();
  if (code == GENREG_RC_END) code = closed;
  return code == 0 ? exitDone : reportCode(code, file);
}

// Changes every record that matches `key` and is not equal to `record` under `exact`. Returns 0 or
// the code of what failed.
template <typename Record, typename Registry>
unsigned int changeOthers(Registry& registry, std::uint64_t mask, std::uint64_t exact, Record& key,
                          Record& record) {
  for (;;) {
    unsigned int code = registry.OpenScan();
    if (code != 0) return code;
    Record other;
    do {
      code = registry.GetNext(mask, &key, &other);
    } while (code == 0 && Registry::isEqual(exact, other, record));
    const unsigned int closed = registry.CloseScan();
    if (code == GENREG_RC_END) return closed;
    if (code == 0) code = registry.Change(exact, &other, &record);
    if (code != 0) return code;
  }
}

// Changes every record that matches `key`, or adds the record when none does: `merge` makes the new
// record of the one found, or of null. When another writer adds or deletes the record between the
// look and the update, it looks again, so that no record ever stands twice.
//
// A Change stops at a record that is as it should be already. Other programs may have stored the
// name several times; then the others are changed one value after the other, found by `exact`,
// which also selects the value.
template <typename Record, typename Registry, typename Merge>
int setRecord(Registry& registry, const std::string& file, std::uint64_t mask, std::uint64_t exact,
              Record& key, Merge merge) {
  for (;;) {
    Record found;
    unsigned int code = registry.Get(mask, &key, &found);
    const bool missing = code == GENREG_RC_NOT_FOUND || code == GENREG_RC_NO_FILE ||
                         code == GENREG_RC_OPEN_FOR_OPERATION;
    if (code != 0 && !missing) return reportCode(code, file);
    const bool known = code == 0;
    Record record = merge(known ? &found : nullptr);
    if (known) {
      code = registry.Change(mask, &key, &record);
    } else {
      const bool allowed = registry.unsetFeature(GENREG_ALLOW_DUPLICATES) == 0;
      code = registry.Add(mask, &record);
      if (allowed) (void)registry.setFeature(GENREG_ALLOW_DUPLICATES);
    }
    if (code == GENREG_RC_UNCHANGED) {
      code = changeOthers(registry, mask, exact, key, record);
    }
    if (code == 0) return exitDone;
    if (code != GENREG_RC_NOT_FOUND && code != GENREG_RC_DUPLICATE) return reportCode(code, file);
  }
}

}  // namespace zorreg
