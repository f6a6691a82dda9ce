// What the verbs of all kinds do with a registry. `Registry` is an Exact flavour that also has
//
//   static constexpr Kind kind;
//   static bool holdsEntry(const Record&);   // false for the blank and comment lines of a text
//   static Row rowOf(const Record&);         // how a list shows it
#pragma once

#include <charconv>
#include <cstdio>
#include <iostream>
#include <string>
#include <unordered_set>

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
  if (const unsigned int code = registry.OpenScan(); code != 0) {
    return reportCode(code, file, registry.getLastCause());
  }
  typename Registry::Record key{};
  typename Registry::Record record;
  unsigned int code = registry.GetNext(0, &key, &record);
  for (; code == 0; code = registry.GetNext(0, &key, &record)) visit(record);
  const unsigned int closed = registry.CloseScan();
  if (code == GENREG_RC_END) code = closed;
  return code == 0 ? int{exitDone} : reportCode(code, file, registry.getLastCause());
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

// How an update waits for the lock, as the words say. Empty when they say it well, else what is
// wrong.
template <typename Registry>
std::string takeWait(Registry& registry, const Words& words, std::uint64_t* request) {
  *request = words.noWait ? GENREG_LOCK_NOWAIT : GENREG_LOCK_WAIT;
  if (!words.wait) return {};
  if (words.noWait) return "--wait and --no-wait are given";
  std::uint64_t seconds = 0;
  const char* end = words.wait->data() + words.wait->size();
  const auto [stop, error] = std::from_chars(words.wait->data(), end, seconds);
  if (error != std::errc() || stop != end || seconds > UINT32_MAX) {
    return "'" + printable(*words.wait) + "': --wait takes whole seconds";
  }
  if (seconds == 0) *request = GENREG_LOCK_NOWAIT;
  (void)registry.setLockTimeout(1000 * seconds);
  return {};
}

template <typename Registry>
int repair(Registry& registry, const Words& words) {
  std::uint64_t request = 0;
  if (const std::string wrong = takeWait(registry, words, &request); !wrong.empty()) {
    return reportUsage(wrong);
  }
  if (request == GENREG_LOCK_NOWAIT) (void)registry.setLockTimeout(1);
  GenRegRepairReport report{};
  const unsigned int code = registry.RepairRegistry(words.dropUnreadable, &report);
  if (code != 0) return reportCode(code, words.file, registry.getLastCause());
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

// Runs `work`, which gives an exit status, in one update: what it reads no other writer changes,
// and what it does is committed as a whole, or not at all. `mayCreate`: the directory, too.
template <typename Registry, typename Work>
int update(Registry& registry, const Words& words, bool mayCreate, Work work) {
  std::uint64_t request = 0;
  if (const std::string wrong = takeWait(registry, words, &request); !wrong.empty()) {
    return reportUsage(wrong);
  }
  if (mayCreate) request |= GENREG_LOCK_CREATE_DIR;
  unsigned int code = registry.BeginUpdate(request);
  if (code != 0) return reportCode(code, words.file, registry.getLastCause());
  if (const int status = work(); status != exitDone) {
    (void)registry.AbandonUpdate();
    return status;
  }
  code = registry.CommitUpdate();
  return code == 0 ? exitDone : reportCode(code, words.file, registry.getLastCause());
}

// A verb that runs `work` so.
template <typename Registry, int (*work)(Registry&, const Words&), bool mayCreate>
int updating(Registry& registry, const Words& words) {
  return update(registry, words, mayCreate, [&] { return work(registry, words); });
}

// The outcome of one operation.
template <typename Registry>
int outcome(Registry& registry, unsigned int code, const Words& words) {
  return code == 0 ? int{exitDone} : reportCode(code, words.file, registry.getLastCause());
}

// In an update, changes the one record that matches `key` to what `merge`(found, merged) makes of
// it. Returns 0, also when it is so already; what findOnly and `merge` give; or what failed.
template <typename Registry, typename Merge>
unsigned int changeOnly(Registry& registry, std::uint64_t mask, typename Registry::Record& key,
                        Merge merge) {
  typename Registry::Record found;
  typename Registry::Record merged;
  unsigned int code = findOnly(registry, mask, key, found);
  if (code == 0) code = merge(found, merged);
  if (code != 0 || Registry::isSame(found, merged)) return code;
  return registry.Change(asFound, &found, &merged);
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

// While it lives, the registry compares as its flavour does, which finds names by an index.
template <typename Registry>
class PlainComparison {
 public:
  explicit PlainComparison(Registry& registry) : registry_(registry) {
    registry_.compareExactly(false);
  }
  ~PlainComparison() { registry_.compareExactly(true); }
  PlainComparison(const PlainComparison&) = delete;
  PlainComparison& operator=(const PlainComparison&) = delete;

 private:
  Registry& registry_;
};

// Whether what the words say of a record's presence and value holds; reports what does not.
// `value`: of the record found, null when there is none.
inline int checkCondition(const Words& words, const std::string* value) {
  const std::string name = printable(words.name);
  if (value != nullptr && words.ifAbsent) return reportConflict(name + " is there already");
  if (value == nullptr && (words.ifPresent || words.ifValue)) {
    return reportCode(GENREG_RC_NOT_FOUND, words.file);
  }
  if (words.ifValue && *words.ifValue != *value) {
    return reportConflict(name + " is " + printable(*value) + ", not " + printable(*words.ifValue));
  }
  return exitDone;
}

// In an update, with the flavour's own comparison: adds a record, which must be the only one of its
// key, or gives the one that matches its new form. The operation's code.
template <typename Registry>
unsigned int storeOnly(Registry& registry, std::uint64_t mask, typename Registry::Record* key,
                       typename Registry::Record& record) {
  const bool allowed = registry.unsetFeature(GENREG_ALLOW_DUPLICATES) == 0;
  const unsigned int code =
      key == nullptr ? registry.Add(mask, &record) : registry.Change(mask, key, &record);
  if (allowed) (void)registry.setFeature(GENREG_ALLOW_DUPLICATES);
  return code;
}

// In an update, changes every record that matches `key` to what `merge` makes of it, or adds what
// it makes of null when none matches. Records that another program stored under one name are
// changed one after the other, and each keeps what is its own; with `single` there are none. The
// words' conditions are about the first, of which `valueOf` gives the value.
template <typename Registry, typename ValueOf, typename Merge>
int setRecord(Registry& registry, const Words& words, bool single, std::uint64_t mask,
              typename Registry::Record& key, ValueOf valueOf, Merge merge) {
  using Record = typename Registry::Record;
  const PlainComparison plain(registry);
  Record found;
  unsigned int code = registry.Get(mask, &key, &found);
  const bool isThere = code == 0;
  if (!isThere && code != GENREG_RC_NOT_FOUND && code != GENREG_RC_NO_FILE &&
      code != GENREG_RC_OPEN_FOR_OPERATION) {
    return outcome(registry, code, words);
  }
  const std::string value = isThere ? valueOf(found) : "";
  if (const int status = checkCondition(words, isThere ? &value : nullptr); status != exitDone) {
    return status;
  }
  Record merged = merge(isThere ? &found : nullptr);
  if (!isThere)
    return outcome(registry, storeOnly<Registry>(registry, mask, nullptr, merged), words);
  if (single && isWhollyShown(found)) {
    if (Registry::isSame(found, merged)) return exitDone;
    code = storeOnly<Registry>(registry, mask, &key, merged);
    if (code != GENREG_RC_UNCHANGED) return outcome(registry, code, words);
  }
  registry.compareExactly(true);
  for (;;) {
    code = findUnmerged(registry, mask, key, merge, found, merged);
    if (code == GENREG_RC_UNCHANGED) return exitDone;
    if (code == 0) code = registry.Change(asFound, &found, &merged);
    if (code != 0) return outcome(registry, code, words);
  }
}

// Whether no two records have one identity, which `identityOf` gives; false when that cannot be
// known.
template <typename Registry, typename IdentityOf>
bool isWithoutRepeats(Registry& registry, IdentityOf identityOf) {
  std::unordered_set<std::string> seen;
  typename Registry::Record key{};
  typename Registry::Record record;
  bool once = true;
  if (registry.OpenScan() != 0) return false;
  unsigned int code = 0;
  while (once && (code = registry.GetNext(0, &key, &record)) == 0) {
    once = !Registry::holdsEntry(record) || seen.insert(identityOf(record)).second;
  }
  (void)registry.CloseScan();
  return once && code == GENREG_RC_END;
}

// In an update, hands every line of standard input to `setLine`(line, words) with words like the
// given ones; it gives what is wrong with the line, or nothing, and then the exit status. Blank
// lines and those that begin with "#" are passed over.
template <typename SetLine>
int importLines(const Words& given, SetLine setLine) {
  std::string line;
  for (unsigned long number = 1; std::getline(std::cin, line); ++number) {
    std::string where = "standard input, line " + std::to_string(number);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const std::size_t start = line.find_first_not_of(" \t");
    if (start == std::string::npos || line[start] == '#') continue;
    Words words = given;
    std::string wrong;
    const int status = setLine(line.substr(start), words, wrong);
    if (!wrong.empty()) return reportUsage(where.append(": ").append(wrong));
    if (status != exitDone) {
      (void)reportRefusal(where, "is not imported, nor is any other");
      return status;
    }
  }
  if (std::ferror(stdin) != 0 || std::cin.bad()) {
    return reportFailure("standard input cannot be read");
  }
  return exitDone;
}

}  // namespace zorreg
