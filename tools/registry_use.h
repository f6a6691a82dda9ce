// What the verbs of all kinds do with a registry. `Registry` is an Exact flavour that also has
//
//   static constexpr Kind kind;
//   static bool holdsEntry(const Record&);   // false for the blank and comment lines of a text
//   static Row rowOf(const Record&);         // how a list shows it
#pragma once

#include <string>

#include "exact_registry.h"
#include "file_content.h"
#include "genreg.h"
#include "kinds.h"
#include "output.h"
#include "report.h"
#include "verbs.h"

namespace zorreg {

// A verb that runs `work` on the registry, which is not touched when it is of another kind.
template <typename Registry, int (*work)(Registry&, const Words&)>
int on(const Words& words) {
  const std::string reason =
      reasonAgainst(RegistryFiles(words.file).content(), Registry::kind, words.bigEndian);
  if (!reason.empty()) return reportRefusal(words.file, reason);
  Registry registry(words.file);
  if (words.bigEndian) (void)registry.setFeature(GENREG_BIG_ENDIAN_LENGTH);
  return registry.opened == 0 ? work(registry, words) : reportCode(registry.opened, words.file);
}

// Hands every record (of a text registry: every line) to `visit`; gives the exit status.
template <typename Registry, typename Visit>
int forEachRecord(Registry& registry, const std::string& file, Visit visit) {
  if (const unsigned int code = registry.OpenScan(); code != 0) return reportCode(code, file);
  typename Registry::Record key{};
  typename Registry::Record record;
  unsigned int code = registry.GetNext(0, &key, &record);
  for (; code == 0; code = registry.GetNext(0, &key, &record)) visit(record);
  const unsigned int closed = registry.CloseScan();
  if (code == GENREG_RC_END) code = closed;
  return code == 0 ? exitDone : reportCode(code, file);
}

// Lists the entries that `isWanted`; those before a damage, too, but no half an array.
template <typename Registry, typename IsWanted>
int listWhere(Registry& registry, const Words& words, Listing& listing, IsWanted isWanted) {
  const int status = forEachRecord(registry, words.file, [&](const auto& record) {
    if (Registry::holdsEntry(record) && isWanted(record)) listing.add(Registry::rowOf(record));
  });
  if (status == exitDone || !words.json) listing.print(words.json);
  return status;
}

template <typename Registry>
int list(Registry& registry, const Words& words) {
  Listing listing;
  return listWhere(registry, words, listing, [](const auto&) { return true; });
}

template <typename Registry>
int dump(Registry& registry, const Words& words) {
  return forEachRecord(registry, words.file, [&](auto& record) { registry.print(record); });
}

template <typename Registry>
int repair(Registry& registry, const Words& words) {
  GenRegRepairReport report{};
  const unsigned int code = registry.RepairRegistry(words.dropUnreadable, &report);
  if (code != 0) return reportCode(code, words.file);
  printRepair(words.file, RegistryFiles(words.file).corrupt, report, words.json);
  return exitDone;
}

// The one record that matches. Returns 0 with it in `found`; GENREG_RC_NOT_FOUND;
// GENREG_RC_AMBIGUOUS when there are more; or what failed.
template <typename Registry>
unsigned int findOnly(Registry& registry, std::uint64_t mask, typename Registry::Record& key,
                      typename Registry::Record& found) {
  unsigned int code = registry.OpenScan();
  if (code != 0) return code;
  code = registry.GetNext(mask, &key, &found);
  if (code == 0) {
    typename Registry::Record another;
    const unsigned int next = registry.GetNext(mask, &key, &another);
    if (next != GENREG_RC_END) code = next == 0 ? GENREG_RC_AMBIGUOUS : next;
  } else if (code == GENREG_RC_END) {
    code = GENREG_RC_NOT_FOUND;
  }
  const unsigned int closed = registry.CloseScan();
  return code == 0 ? closed : code;
}

constexpr int mostRounds = 8;  // lost races

// Changes the one record that matches `key` to what `merge`(found, merged) makes of it. A record
// that another writer changes between the look and the update is looked at again. Returns 0, also
// when it is so already; what findOnly and `merge` give; or what failed.
template <typename Registry, typename Merge>
unsigned int changeOnly(Registry& registry, std::uint64_t mask, typename Registry::Record& key,
                        Merge merge) {
  unsigned int code = 0;
  for (int round = 0; round < mostRounds; ++round) {
    typename Registry::Record found;
    typename Registry::Record merged;
    code = findOnly(registry, mask, key, found);
    if (code == 0) code = merge(found, merged);
    if (code != 0 || Registry::isSame(found, merged)) return code;
    code = registry.Change(asFound, &found, &merged);
    if (code != GENREG_RC_NOT_FOUND) return code;
  }
  return code;
}

// The first record that matches `key` and is not yet what `merge` makes of it. Returns 0 with the
// two in `found` and `merged`; GENREG_RC_UNCHANGED when every match is as it should be;
// GENREG_RC_NOT_FOUND when nothing matches; or what failed.
template <typename Registry, typename Merge>
unsigned int findUnmerged(Registry& registry, std::uint64_t mask, typename Registry::Record& key,
                          Merge merge, typename Registry::Record& found,
                          typename Registry::Record& merged) {
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
// null when none matches. Records that another program stored under one name are changed one after
// the other, and each keeps what is its own.
//
// When another writer adds, changes or deletes the record between the look and the update, it looks
// again, so that no record ever stands twice; but a record that can be read and not changed is no
// such race.
template <typename Registry, typename Merge>
int setRecord(Registry& registry, const std::string& file, std::uint64_t mask,
              typename Registry::Record& key, Merge merge) {
  using Record = typename Registry::Record;
  for (int round = 0;;) {
    Record found;
    Record merged;
    unsigned int code = findUnmerged(registry, mask, key, merge, found, merged);
    if (code == GENREG_RC_UNCHANGED) return exitDone;
    if (code == 0) {
      code = registry.Change(asFound, &found, &merged);
      if (code == 0) continue;
    } else if (code == GENREG_RC_NOT_FOUND || code == GENREG_RC_OPEN_FAILED) {
      merged = merge(static_cast<const Record*>(nullptr));
      const bool allowed = registry.unsetFeature(GENREG_ALLOW_DUPLICATES) == 0;
      code = registry.Add(mask, &merged);
      if (allowed) (void)registry.setFeature(GENREG_ALLOW_DUPLICATES);
      if (code == 0) return exitDone;
    }
    const bool raced = code == GENREG_RC_NOT_FOUND || code == GENREG_RC_DUPLICATE;
    if (!raced || ++round == mostRounds) return reportCode(code, file);
  }
}

}  // namespace zorreg
