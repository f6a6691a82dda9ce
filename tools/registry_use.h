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

// The first record that matches `key` and is not yet what `merge` makes of it. Returns 0 with the
// two in `found` and `merged`; GENREG_RC_UNCHANGED when every match is as it should be;
// GENREG_RC_NOT_FOUND when nothing matches; or what failed.
template <typename Record, typename Registry, typename Merge>
unsigned int findUnmerged(Registry& registry, std::uint64_t mask, Record& key, Merge merge,
                          Record& found, Record& merged) {
  unsigned int code = registry.OpenScan();
  if (code != 0) return code;
  bool any = false;
  for (;;) {
    code = registry.GetNext(mask, &key, &found);
    if (code != 0) break;
    any = true;
    merged = merge(&found);
    if (!Registry::isSame(found, merged)) break;
  }
  const unsigned int closed = registry.CloseScan();
  if (code == GENREG_RC_END) code = any ? GENREG_RC_UNCHANGED : GENREG_RC_NOT_FOUND;
  return code == 0 ? closed : code;
}

// Changes every record that matches `key` to what `merge` makes of it, or adds what it makes of
// null when none matches. `exact` also selects the value: records that another program stored under
// one name are changed one value after the other, and each keeps what is its own.
//
// When another writer adds or deletes the record between the look and the update, it looks again,
// so that no record ever stands twice; but a record that can be read and not changed is no such
// race.
template <typename Record, typename Registry, typename Merge>
int setRecord(Registry& registry, const std::string& file, std::uint64_t mask, std::uint64_t exact,
              Record& key, Merge merge) {
  constexpr int rounds = 8;  // lost races
  for (int round = 0;;) {
    Record found;
    Record merged;
    unsigned int code = findUnmerged(registry, mask, key, merge, found, merged);
    if (code == GENREG_RC_UNCHANGED) return exitDone;
    if (code == 0) {
      code = registry.Change(exact, &found, &merged);
      if (code == GENREG_RC_UNCHANGED) {
        // Two records of one name and value, one of which is as it should be: only an update
        // without the verification pass goes on behind such a one.
        (void)registry.unsetFeature(GENREG_VERIFY_UPDATES);
        code = registry.Change(exact, &found, &merged);
        (void)registry.setFeature(GENREG_VERIFY_UPDATES);
      }
      if (code == 0 || code == GENREG_RC_UNCHANGED) continue;
    } else if (code == GENREG_RC_NOT_FOUND || code == GENREG_RC_OPEN_FAILED) {
      merged = merge(static_cast<const Record*>(nullptr));
      const bool allowed = registry.unsetFeature(GENREG_ALLOW_DUPLICATES) == 0;
      code = registry.Add(mask, &merged);
      if (allowed) (void)registry.setFeature(GENREG_ALLOW_DUPLICATES);
      if (code == 0) return exitDone;
    }
    const bool raced = code == GENREG_RC_NOT_FOUND || code == GENREG_RC_DUPLICATE;
    if (!raced || ++round == rounds) return reportCode(code, file);
  }
}

}  // namespace zorreg
