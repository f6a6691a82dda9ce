#include "proof/scenario.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <set>
#include <tuple>

namespace fs = std::filesystem;

namespace proof {

const Start starts[] = {
    {"clean", true},
    {"nothing", false},
    {"backup only", false, Start::Own, true},   // a crash between the renames
    {"linked backup", true, Start::Own, true},  // a crash behind the link
    {"stale backup", true, Start::Stale},
    {"leftover", true, Start::None, true},
    {"large", true, Start::None, false, 8000},
};

namespace {

const std::pair<Verb, Entry> steps[] = {
    {Verb::Add, {"new", 3}}, {Verb::Change, {"b", 22}}, {Verb::Delete, {"a"}},  {Verb::Get, {"b"}},
    {Verb::Scan, {}},        {Verb::Many, {"", 1}},     {Verb::Many, {"", 198}}};
struct Mode {
  std::uint64_t features;
  bool keeps;
};
const Mode modes[] = {{0, false}, {unverified, false}, {verified, false}, {0, true}};
const char* const verbNames[] = {"Add", "Change", "Delete", "Get", "Scan", "Many"};
const Records stale{{"stale", 9}};

// The report, by proof, flavour and operation.
struct Counts {
  unsigned long tried = 0;
  unsigned long failed = 0;
};
std::map<std::string, Counts> rows;

// Whether a combination exists and, in the short form, is one of those that differ most.
bool isWanted(const Scenario& scenario, bool isShort) {
  const bool isBinary = scenario.flavour == flavours::rows;
  const bool isLinked = scenario.start->registry && scenario.start->backup == Start::Own;
  if (scenario.before.empty() && scenario.verb != Verb::Add) return false;
  // Where no commit links, there is one kind of file system.
  if (lacking(Need::StandingName) != nullptr && (!scenario.links || isLinked)) return false;
  // The streams serve all flavours and all ways to commit alike.
  if (scenario.isLarge() && !(isBinary && scenario.links)) return false;
  if (scenario.reads() && scenario.features != 0) return false;
  if (scenario.keeps && !(scenario.reads() && scenario.isClean() && scenario.links)) return false;
  const bool isLong = scenario.verb == Verb::Many && scenario.entry.value > 1;
  if (isLong && !(scenario.isClean() && scenario.features == 0 && scenario.links)) return false;
  if (!scenario.links && (scenario.reads() || scenario.inPlace() || isLinked)) return false;
  if (!isShort) return true;
  if (scenario.isClean()) return scenario.features != verified && (scenario.links || isBinary);
  return isBinary && !scenario.isLarge() && scenario.features == 0;
}

void readAndKeep(Handle& handle) {
  handle.keepReads();
  (void)handle.run(Verb::Scan, {});
}

}  // namespace

void workIn(const std::string& place) {
  std::error_code stands;
  fs::create_directory(place, stands);
  directory = place;
  registry = place + "/r";
  backup = place + "/.r.bkp";
  lockFile = place + "/.r.lock";
  temporary = place + "/r.tmp";
  corrupt = place + "/r.cor";
}

bool operator<(const File& a, const File& b) {
  return std::tie(a.bytes, a.inode) < std::tie(b.bytes, b.inode);
}

Files files() {
  Files found;
  for (const auto& entry : fs::directory_iterator(directory)) {
    const std::string name = entry.path().generic_string();
    found[name] = {readFile(name), inodeOf(name)};
  }
  return found;
}

void restore(const Files& wanted) {
  for (const auto& entry : files()) fs::remove(entry.first);
  std::map<std::uint64_t, std::string> first;
  for (const auto& [name, file] : wanted) {
    const auto [twin, isFirst] = first.emplace(file.inode, name);
    if (isFirst) {
      writeFile(name, file.bytes);
    } else {
      fs::create_hard_link(twin->second, name);
    }
  }
}

Records Scenario::recordsBefore() const {
  if (!start->registry && start->backup != Start::Own) return {};
  Records records{{"a", 1}, {"b", 2}};
  for (int i = 0; i < start->more; ++i) records.push_back({"r" + std::to_string(i), 1 + i});
  return records;
}

Records Scenario::recordsAfter() const {
  Records records;
  for (const Entry& record : before) {
    const bool isNamed = record.name == entry.name;
    if (verb == Verb::Delete ? isNamed : verb == Verb::Many && record.name == "a") continue;
    records.push_back(isNamed && verb == Verb::Change ? entry : record);
    if (verb == Verb::Many && record.name == "b") records.back().value = 22;
  }
  if (verb == Verb::Add) records.push_back(entry);
  for (int i = 0; verb == Verb::Many && i < entry.value; ++i) {
    records.push_back(flavours::addedAt(i));
  }
  return records;
}

std::string Scenario::fileOf(const Records& records) const {
  std::string bytes;
  for (const Entry& record : records) bytes += flavour->stored(record);
  return bytes;
}

void Scenario::prepare() const {
  Files made;
  if (start->registry) made[registry] = {fileOf(before), Start::Own};
  if (start->backup == Start::Own) made[backup] = {fileOf(before), Start::Own};
  if (start->backup == Start::Stale) made[backup] = {fileOf(stale), Start::Stale};
  if (start->leftovers) {
    made[temporary] = {"unfinished", 3};
    made[corrupt] = {"older", 4};
  }
  witness.reset();
  witnessed.clear();
  restore(made);
  if (lacking(Need::StandingName) != nullptr) return;  // nor can a file go that somebody has open
  witness = flavour->open(registry, features);
  readAndKeep(*witness);
  witnessed = registry;
}

std::unique_ptr<Handle> Scenario::open() const {
  auto handle = flavour->open(registry, features);
  if (keeps) readAndKeep(*handle);
  return handle;
}

Code Scenario::run(Handle& handle, Disturbance disturbance) {
  disturb = std::move(disturbance);
  const Code code = handle.run(verb, entry);
  disturb = nullptr;
  return code;
}

std::vector<std::string> Scenario::calls() {
  std::vector<std::string> made;
  prepare();
  const Code code = run(*open(), [&](const std::string& call) {
    made.push_back(call);
    return 0;
  });
  expect(code == 0 && shows(after), "undisturbed");
  return made;
}

void Scenario::begin(std::string what) {
  where = std::move(what);
  count(1);
}

void Scenario::count(unsigned long tried) const { rows[row()].tried += tried; }

void Scenario::expect(bool holds, const std::string& what) const {
  if (holds || ++rows[row()].failed > 5) return;
  std::fprintf(stderr, "FAILED %s, features %s, %s%s: %s: %s\n", row().c_str(),
               std::to_string(features).c_str(), start->name, links ? "" : ", without hard links",
               what.c_str(), where.c_str());
}

bool Scenario::shows(const Records& records) const {
  return showsTo(*open(), records) && (witnessed != registry || showsTo(*witness, records));
}

bool Scenario::showsTo(Handle& handle, const Records& records) const {
  const bool stands = exists(registry) || exists(backup);
  const std::string bytes = readFile(exists(registry) ? registry : backup);
  if (!inPlace() && bytes != fileOf(records)) return false;
  Records found;
  std::size_t count = 0;
  const Code scanned = handle.scan(&count, &found);
  // Zeros where a power cut took what an append in place had not synced are damage, known as such.
  if (scanned == readFailed && inPlace() && bytes.back() == '\0') {
    return found == records && handle.repair() == 0 && showsTo(handle, records);
  }
  if (scanned != (stands ? 0 : GENREG_RC_OPEN_FAILED)) return false;
  // A text line without a record, as an unfinished append is, has no name.
  found.erase(std::remove_if(found.begin(), found.end(),
                             [](const Entry& record) { return record.name.empty(); }),
              found.end());
  if (found != records || records.empty()) return found == records;
  return handle.run(Verb::Get, records.back()) == 0 && handle.found() == records.back();
}

void Scenario::expectEither(const Records& first, const Records& second, Handle& handle) const {
  const bool isFirst = shows(first);
  const bool isEither = isFirst || shows(second);
  expect(isEither, "neither old nor new content");
  expect(!isEither || nextUpdateKeeps(handle, isFirst ? first : second), "the next update");
}

// A backup that cannot be proved to be the last commit's own is set aside for people; the stale one
// that a scenario starts with must be.
bool Scenario::nextUpdateKeeps(Handle& handle, const Records& records) const {
  Records longer = records;
  longer.push_back({"next", 9});
  if (handle.run(Verb::Add, longer.back()) != 0 || !shows(longer)) return false;
  const std::set<std::string> committed{fileOf(stale), fileOf(before), fileOf(after),
                                        fileOf(records)};
  bool staleStays = start->backup != Start::Stale;
  for (const auto& [name, file] : files()) {
    if (name == registry || name == corrupt) continue;
    // Appending in place neither needs nor clears a temporary file.
    if (features == unverified && name == temporary) continue;
    const bool setAside = name.rfind(registry + ".old", 0) == 0;
    if (!setAside || committed.count(file.bytes) == 0) return false;
    staleStays = staleStays || file.bytes == fileOf(stale);
  }
  return staleStays;
}

std::string Scenario::row() const {
  return std::string(proof) + "|" + flavour->name + "|" +
         verbNames[static_cast<std::size_t>(verb)] +
         (inPlace() ? " in place"
          : keeps   ? " kept"
                    : "");
}

bool isShort(int argc, char** argv) {
  return std::find(argv, argv + argc, std::string("--short")) != argv + argc;
}

std::vector<Scenario> everyScenario(const char* proof, bool isShort) {
  std::vector<Scenario> scenarios;
  for (const flavours::Row& flavour : flavours::rows) {
    for (const Mode& mode : modes) {
      for (const auto& [verb, entry] : steps) {
        for (const Start& start : starts) {
          for (const bool links : {true, false}) {
            const Scenario scenario{proof, &flavour, mode.features, verb,
                                    entry, &start,   links,         mode.keeps};
            if (isWanted(scenario, isShort)) scenarios.push_back(scenario);
          }
        }
      }
    }
  }
  return scenarios;
}

int sweepAll(int argc, char** argv, const char* proof,
             const std::function<void(Scenario& scenario)>& sweep) {
  for (Scenario& scenario : everyScenario(proof, isShort(argc, argv))) {
    const FaultHook hook([&](const std::string& call) {
      const int fault = scenario.disturb ? scenario.disturb(call) : 0;
      return fault == 0 && !scenario.links && call == "link" ? EPERM : fault;
    });
    sweep(scenario);
  }
  return finish();
}

int finish() {
  fs::remove_all(home);
  bool holds = true;
  for (const auto& [row, counts] : rows) {
    std::printf("%s|%lu|%lu\n", row.c_str(), counts.tried, counts.failed);
    holds = holds && counts.failed == 0;
  }
  return holds ? 0 : 1;
}

}  // namespace proof
