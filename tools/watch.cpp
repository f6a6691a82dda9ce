// zorreg KIND FILE watch: what is committed, as it is committed.
#include <cstdio>
#include <map>
#include <utility>

#include "content_update.h"
#include "entries.h"
#include "file_content.h"
#include "file_verbs.h"
#include "genreg.h"
#include "platform/tool/file_watch.h"
#include "record_json.h"
#include "record_words.h"
#include "report.h"

namespace tool {
namespace {

// By identity and, where several have one, by their order.
using Key = std::pair<std::string, std::size_t>;

std::map<Key, std::size_t> indexOf(const std::vector<Entry>& entries) {
  std::map<Key, std::size_t> index;
  std::map<std::string, std::size_t> counts;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    index.emplace(Key(entries[i].identity, counts[entries[i].identity]++), i);
  }
  return index;
}

std::vector<Key> keysOf(const std::vector<Entry>& entries,
                        const std::map<Key, std::size_t>& index) {
  std::vector<Key> keys(entries.size());
  for (const auto& [key, i] : index) keys[i] = key;
  return keys;
}

void print(Kind kind, bool json, const char* change, const Entry& entry, const Entry* before) {
  if (json) {
    Json line{{"change", change}, {"record", jsonOf(kind, entry.record)}};
    if (before != nullptr) line["before"] = jsonOf(kind, before->record);
    std::printf("%s\n", line.dump(-1, ' ', false, Json::error_handler_t::replace).c_str());
    return;
  }
  std::string line = change;
  line.resize(std::size_t{9}, ' ');
  for (const std::string& cell : cellsOf(kind, entry.record)) {
    if (!cell.empty()) line += cell + "  ";
  }
  line.erase(line.find_last_not_of(' ') + 1);
  std::printf("%s\n", line.c_str());
}

void printChanges(Kind kind, const std::vector<Entry>& before, const std::vector<Entry>& after,
                  bool json) {
  const std::map<Key, std::size_t> old = indexOf(before);
  const std::map<Key, std::size_t> now = indexOf(after);
  const std::vector<Key> oldKeys = keysOf(before, old);
  for (std::size_t i = 0; i < before.size(); ++i) {
    if (now.count(oldKeys[i]) == 0) print(kind, json, "removed", before[i], nullptr);
  }
  const std::vector<Key> nowKeys = keysOf(after, now);
  for (std::size_t i = 0; i < after.size(); ++i) {
    const auto found = old.find(nowKeys[i]);
    const Entry* was = found == old.end() ? nullptr : &before[found->second];
    if (was == nullptr) {
      print(kind, json, "added", after[i], nullptr);
    } else if (was->record.all() != after[i].record.all()) {
      print(kind, json, "changed", after[i], was);
    }
  }
}

// What the registry holds now; false, after a report, when that cannot be known.
bool read(const Words& words, Kind kind, std::vector<Entry>& entries, std::string& complaint) {
  const std::string content = RegistryFiles(words.file).content();
  const std::string reason = reasonAgainst(content, kind, words.bigEndian);
  Entries found;
  if (reason.empty()) found = readEntries(kind, words);
  const bool failed = found.code != 0 && found.code != GENREG_RC_NO_FILE;
  const std::string said = failed ? found.cause : reason;
  // What stays as it is is reported once.
  const bool isNews = said != complaint;
  complaint = said;
  if (reason.empty() && !failed) {
    entries = std::move(found.all);
    return true;
  }
  if (isNews && failed) (void)reportCode(found.code, words.file, found.cause);
  if (isNews && !failed) (void)reportRefusal(words.file, reason);
  return false;
}

}  // namespace

int watch(Kind kind, const Words& words) {
  const RegistryFiles files(words.file);
  if (files.code != 0) return reportCode(files.code, words.file);
  const std::string reason = reasonAgainst(files.content(), kind, words.bigEndian);
  if (!reason.empty()) return reportRefusal(words.file, reason);
  // Damage may be mended while it is watched; what cannot even be opened is a mistake.
  Content content;
  if (const int status = readContentOf(words.file, content); status != exitDone) return status;
  platform::FileWatch watch(words.file);
  std::vector<Entry> before;
  std::string complaint;
  bool isKnown = read(words, kind, before, complaint);
  std::fprintf(stderr, "watching %s\n", printable(words.file).c_str());
  while (watch.wait() != platform::FileWatch::Event::Stopped) {
    std::vector<Entry> after;
    if (!read(words, kind, after, complaint)) continue;
    // What was there before a damage that the watch began with is not known.
    if (isKnown) printChanges(kind, before, after, words.json);
    if (std::fflush(stdout) != 0) break;  // the tool reports it
    before = std::move(after);
    isKnown = true;
  }
  return exitDone;
}

}  // namespace tool
