#include "trial.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "content_update.h"
#include "output.h"
#include "record_words.h"
#include "report.h"
#include "scratch.h"
#include "unified_diff.h"

namespace tool {
namespace {

// What a diff shows of a registry of these bytes: of a binary one all that can be read.
std::string shownContent(Kind kind, const Words& words, const std::string& bytes) {
  if (isText(kind) || bytes.empty()) return bytes;
  std::string shown;
  Store store(kind, words);
  if (store.status() != exitDone || store.registry().scan() != 0) return shown;
  faces::NamedFields record;
  while (store.registry().next(record) == 0) {
    for (const std::string& cell : cellsOf(kind, record)) shown.append(cell).append("\n");
  }
  return shown;
}

int writeCopy(const Content& content, const std::string& file) {
  if (!content.isThere) return exitDone;
  std::ofstream copy(std::filesystem::u8path(file), std::ios::binary);
  copy.write(content.bytes.data(), static_cast<std::streamsize>(content.bytes.size()));
  copy.close();
  return copy ? int{exitDone} : reportFailure("a copy of the registry cannot be written");
}

// Runs the verb on a copy, which is gone when this returns; gives its exit status, the diff, and
// whether anything would be changed.
int tryOn(Kind kind, const Verb& verb, const Words& words, std::string& diff, bool& isChanged) {
  const ScratchDirectory directory;
  Words trial = words;
  trial.file = directory.pathOf(words.file);
  const ShownAs shownAs(trial.file, words.file);
  trial.dryRun = trial.verbose = trial.exitChanged = false;
  Content before;
  Content after;
  int status = readContentOf(words.file, before);
  if (status == exitDone) status = writeCopy(before, trial.file);
  if (status != exitDone) return status;
  const std::string shownBefore = shownContent(kind, trial, before.bytes);
  status = runVerb(kind, verb, trial);
  if (status == exitDone) status = readContentOf(trial.file, after);
  if (status != exitDone) return status;
  isChanged = before != after;
  diff = unifiedDiff(shownBefore, shownContent(kind, trial, after.bytes), printable(words.file));
  return exitDone;
}

}  // namespace

int runOnCopy(Kind kind, const Verb& verb, const Words& words) {
  std::string diff;
  bool isChanged = false;
  const int status = tryOn(kind, verb, words, diff, isChanged);
  if (status != exitDone) return status;
  (void)std::fwrite(diff.data(), 1, diff.size(), stdout);
  return reportChange(words, isChanged);
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
