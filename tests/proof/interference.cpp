// Before each call of an update another program, which knows nothing of its locks, does something
// to its files. Every committed record is then in the registry or in a file that people find, and
// so is what the other program wrote, unless it appended in the midst of the commit: then one of
// the two may stand for both, as if they had come one after the other.
#include <algorithm>
#include <filesystem>
#include <fstream>

#include "proof/scenario.h"

namespace {

using proof::lockFile;
using proof::Records;
using proof::registry;
using proof::Scenario;

const Entry foreign{"foreign", 7};

struct Intruder {
  const char* does;
  const std::string& to;
  bool stands;  // it acts where the file is there, or where it is not
  bool writes;
  bool replaces;
  void (*act)(const Scenario& scenario);
};
const Intruder intruders[] = {
    // As ": >>NAME" does where there is no such file.
    {"creates", registry, false, false, false, [](const Scenario&) { writeFile(registry, ""); }},
    // As an editor saves.
    {"replaces", registry, true, true, true,
     [](const Scenario& scenario) {
       // In place it has read the file before, or it would have read an unfinished record.
       const bool early = scenario.inPlace();
       writeFile(registry + "~", (early ? scenario.fileOf(scenario.before) : readFile(registry)) +
                                     scenario.flavour->stored(foreign));
       std::filesystem::rename(registry + "~", registry);
     }},
    {"appends to", registry, true, true, false,
     [](const Scenario& scenario) {
       std::ofstream(registry, std::ios::app) << scenario.flavour->stored(foreign);
     }},
    {"removes", lockFile, true, false, false,
     [](const Scenario&) { std::filesystem::remove(lockFile); }},
};

// Whether each of the records is in some file that people find.
bool keeps(const Scenario& scenario, const Records& records) {
  std::string visible;
  for (const auto& [name, file] : proof::files()) {
    const bool hidden = name.find("/.") != std::string::npos;
    if (!hidden) visible += file.bytes + "\n";
  }
  return std::all_of(records.begin(), records.end(), [&](const Entry& record) {
    return visible.find(scenario.flavour->stored(record)) != std::string::npos;
  });
}

void disturb(Scenario& scenario, const Intruder& intruder, std::size_t k, bool inCommit) {
  scenario.prepare();
  bool acted = false;
  std::size_t calls = 0;
  const Code code = scenario.run(*scenario.open(), [&](const std::string&) {
    if (calls++ == k && exists(intruder.to) == intruder.stands) {
      acted = true;
      intruder.act(scenario);
    }
    return 0;
  });
  if (!acted) return;
  scenario.begin(std::string("another program ") + intruder.does + " " + intruder.to +
                 " before call " + std::to_string(k + 1) + ", code " + std::to_string(code));
  const auto next = scenario.open();
  scenario.expect(next->run(proof::Verb::Add, {"next", 9}) == 0, "the next update");
  scenario.expect(next->run(proof::Verb::Scan, {}) == 0, "a scan");

  const bool ours = keeps(scenario, scenario.after);
  const bool old = keeps(scenario, scenario.before);
  const bool theirs = !intruder.writes || keeps(scenario, {foreign});
  const bool excused = intruder.writes && (!intruder.replaces || scenario.inPlace());
  const bool either = excused && inCommit && (ours || (theirs && old));
  scenario.expect(ours || (code != 0 && old) || either, "a committed record is lost");
  scenario.expect(theirs || either, "what the other program wrote is undone");
  scenario.expect(!exists(proof::backup), "a hidden backup stays");
}

void sweep(Scenario& scenario) {
  // Each call of a large registry has its like in a small one.
  if (scenario.reads() || scenario.isLarge() || scenario.entry.value > 100) return;
  const std::vector<std::string> made = scenario.calls();
  // The commit's first step, in place the look at the file before it: from there on either may be
  // the last.
  const bool inPlace = scenario.inPlace();
  const auto first = std::find(made.begin(), made.end(), inPlace ? "write" : "link");
  const auto commit = static_cast<std::size_t>(first - made.begin()) - (inPlace ? 1 : 0);
  for (const Intruder& intruder : intruders) {
    for (std::size_t k = 0; k < made.size(); ++k) {
      // What another program appends right before an append in place is written over: it does not
      // take the lock that would keep the two apart.
      if (!inPlace || k != commit + 1) disturb(scenario, intruder, k, k >= commit);
    }
  }
}

}  // namespace

int main(int argc, char** argv) { return proof::sweepAll(argc, argv, "other programs", sweep); }
