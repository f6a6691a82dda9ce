#include "trial.h"

#include <cstdio>
#include <fstream>

#include "content_update.h"
#include "output.h"
#include "record_words.h"
#include "report.h"
#include "scratch.h"
#include "unified_diff.h"

namespace tool {
namespace {

// What a diff shows of a registry.
int shownContent(Kind kind, const Words& words, std::string& shown) {
  Content content;
  if (const int status = readContentOf(words.file, content); status != exitDone) return status;
  shown = isText(kind) ? content.bytes : "";
  if (isText(kind) || content.bytes.empty()) return exitDone;
  Store store(kind, words);
  if (store.status() != exitDone) return store.status();
  return store.forEach([&](const faces::NamedFields& record) {
    for (const std::string& cell : cellsOf(kind, record)) shown += cell + "\n";
  });
}

int copyContent(const std::string& from, const std::string& to) {
  Content content;
  if (const int status = readContentOf(from, content); status != exitDone) return status;
  if (!content.isThere) return exitDone;
  std::ofstream copy(to, std::ios::binary);
  copy.write(content.bytes.data(), static_cast<std::streamsize>(content.bytes.size()));
  copy.close();
  return copy ? int{exitDone}
              : reportFailure("a copy of " + printable(from) + " cannot be written");
}

}  // namespace

int runOnCopy(Kind kind, const Verb& verb, const Words& words) {
  const ScratchDirectory directory;
  Words trial = words;
  trial.file = directory.pathOf(words.file);
  const ShownAs shownAs(trial.file, words.file);
  trial.dryRun = trial.verbose = trial.exitChanged = false;
  std::string before;
  std::string after;
  int status = copyContent(words.file, trial.file);
  // A damaged registry has no listing; its copy says so.
  if (status == exitDone) status = shownContent(kind, words, before);
  if (status == exitDone) status = runVerb(kind, verb, trial);
  if (status == exitDone) status = shownContent(kind, trial, after);
  if (status != exitDone) return status;
  (void)std::fputs(unifiedDiff(before, after, printable(words.file)).c_str(), stdout);
  return reportChange(words, before != after);
}

int contentOfRecords(Kind kind, bool bigEndian, std::string& content,
                     const std::function<int(Store&)>& fill) {
  const ScratchDirectory directory;
  Words words;
  words.file = directory.pathOf("records");
  words.bigEndian = bigEndian;
  Store store(kind, words);
  if (store.status() != exitDone) return store.status();
  const int status = store.update([&] { return fill(store); });
  if (status != exitDone) return status;
  Content filled;
  const int read = readContentOf(words.file, filled);
  content = filled.bytes;
  return read;
}

}  // namespace tool
