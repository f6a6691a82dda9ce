#include "proof/scenario.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <tuple>

namespace fs = std::filesystem;

namespace proof {
namespace {

constexpr std::uint64_t modes[] = {0, unverified, verified};

const std::pair<Verb, Entry> steps[] = {{Verb::Add, {"new", 3}},
                                        {Verb::Change, {"b", 22}},
                                        {Verb::Delete, {"a"}},
                                        {Verb::Get, {"b"}},
                                        {Verb::Scan, {}}};
const char* const verbNames[] = {"Add", "Change", "Delete", "Get", "Scan"};
const char* const startNames[] = {"clean",        "nothing",  "backup only", "linked backup",
                                  "stale backup", "leftover", "large"};
const Records stale{{"stale", 9}};

// Whether a combination exists and, in the short form, is one of those that differ most.
bool isWanted(const Scenario& scenario, bool isShort) {
  const bool isBinary = scenario.flavour == flavours::rows;
  const bool isClean = scenario.start == Start::Clean;
  if (scenario.start == Start::Nothing && scenario.verb != Verb::Add) return false;
  // The streams serve all flavours and all ways to commit alike.
  if (scenario.start == Start::Large && !(isBinary && scenario.links)) return false;
  if (scenario.reads() && scenario.features != 0) return false;
  const bool isLinked = scenario.start == Start::LinkedBackup;
  if (!scenario.links && (scenario.reads() || scenario.inPlace() || isLinked)) return false;
  if (!isShort) return true;
  if (isClean) return scenario.features != verified && (scenario.links || isBinary);
  return isBinary && scenario.start != Start::Large && scenario.features == 0;
}

std::string makeDirectory(std::string path) {
  path += "/zorgenreg-proof-XXXXXX";
  if (::mkdtemp(path.data()) == nullptr) std::abort();
  return path;
}

}  // namespace

Records Scenario::before() const {
  if (start == Start::Nothing) return {};
  Records records{{"a", 1}, {"b", 2}};
  for (int i = 0; start == Start::Large && i < 8000; ++i) {
    records.push_back({"r" + std::to_string(i), 1 + i});
  }
  return records;
}

Records Scenario::afterwards() const {
  Records records = before();
  const auto named = std::find_if(records.begin(), records.end(),
                                  [&](const Entry& record) { return record.name == entry.name; });
  if (verb == Verb::Add) records.push_back(entry);
  if (verb == Verb::Change) *named = entry;
  if (verb == Verb::Delete) records.erase(named);
  return records;
}

std::string Scenario::fileOf(const Records& records) const {
  std::string bytes;
  for (const Entry& record : records) bytes += flavour->stored(record);
  return bytes;
}

std::string Scenario::operation() const {
  return verbNames[static_cast<std::size_t>(verb)] + std::string(inPlace() ? " in place" : "");
}

std::string Scenario::title() const {
  return std::string(flavour->name) + " " + operation() + ", features " + std::to_string(features) +
         ", " + startNames[static_cast<std::size_t>(start)] + (links ? "" : ", without hard links");
}

std::unique_ptr<Handle> Scenario::open() const { return flavour->open(registry(), features); }

void Scenario::prepare() const {
  Files made;
  if (start != Start::Nothing) {
    made.push_back({start == Start::BackupOnly ? backup() : registry(), fileOf(before()), 1});
  }
  if (start == Start::LinkedBackup) made.push_back({backup(), "", 1});
  if (start == Start::StaleBackup) made.push_back({backup(), fileOf(stale), 2});
  if (start == Start::BackupOnly || start == Start::LinkedBackup ||
      start == Start::TemporaryAndOld) {
    made.push_back({temporary(), "unfinished", 3});
    made.push_back({corrupt(), "older", 4});
  }
  restore(made);
}

int Scenario::answer(const std::string& call) const { return !links && call == "link" ? EPERM : 0; }

std::vector<Scenario> scenarios(bool isShort) {
  std::vector<Scenario> made;
  for (const flavours::Row& flavour : flavours::rows) {
    for (const std::uint64_t features : modes) {
      for (const auto& [verb, entry] : steps) {
        for (std::size_t i = 0; i < 2 * std::size(startNames); ++i) {
          const auto start = static_cast<Start>(i / 2);
          const Scenario scenario{&flavour, features, i % 2 == 0, start, verb, entry};
          if (isWanted(scenario, isShort)) made.push_back(scenario);
        }
      }
    }
  }
  return made;
}

bool operator<(const File& a, const File& b) {
  return std::tie(a.name, a.bytes, a.file) < std::tie(b.name, b.bytes, b.file);
}

const std::string& registry() {
  // In memory where the machine can.
  static const struct Directory {
    ~Directory() { fs::remove_all(path); }
    std::string path = makeDirectory(fs::exists("/dev/shm") ? "/dev/shm" : "/tmp");
    std::string registry = path + "/r";
  } directory;
  return directory.registry;
}

std::string companion(const char* prefix, const char* suffix) {
  const fs::path path = registry();
  return path.parent_path() / (prefix + path.filename().string() + suffix);
}

Files files() {
  Files found;
  for (const auto& entry : fs::directory_iterator(fs::path(registry()).parent_path())) {
    struct stat status {};
    (void)::lstat(entry.path().c_str(), &status);
    found.push_back({entry.path(), readFile(entry.path()), status.st_ino});
  }
  std::sort(found.begin(), found.end());
  return found;
}

void restore(const Files& wanted) {
  for (const File& file : files()) (void)::unlink(file.name.c_str());
  std::map<std::uint64_t, std::string> first;
  for (const File& file : wanted) {
    const auto [twin, isFirst] = first.emplace(file.file, file.name);
    if (isFirst) {
      writeFile(file.name, file.bytes);
    } else if (::link(twin->second.c_str(), file.name.c_str()) != 0) {
      std::abort();
    }
  }
}

std::pair<unsigned long, unsigned long>& Report::rowOf(const Scenario& scenario) {
  return rows_[std::string(scenario.flavour->name) + "|" + scenario.operation()];
}

void Report::count(const Scenario& scenario, unsigned long tried) {
  rowOf(scenario).first += tried;
}

void Report::expect(bool holds, const Scenario& scenario, const std::string& what) {
  if (holds || ++rowOf(scenario).second > 5) return;
  std::fprintf(stderr, "FAILED %s: %s: %s\n", proof_, scenario.title().c_str(), what.c_str());
}

bool Report::finish() const {
  bool holds = true;
  for (const auto& [row, counts] : rows_) {
    std::printf("%s|%s|%lu|%lu\n", proof_, row.c_str(), counts.first, counts.second);
    holds = holds && counts.second == 0;
  }
  return holds;
}

bool isShort(int argc, char** argv) {
  return std::find(argv, argv + argc, std::string("--short")) != argv + argc;
}

Code Trial::run(Handle& handle, const Disturb& disturb) const {
  std::size_t made = 0;
  const FaultHook hook([&](const std::string& call) {
    const int fault = disturb(made++, call);
    return fault != 0 ? fault : scenario_.answer(call);
  });
  return handle.run(scenario_.verb, scenario_.entry);
}

std::vector<std::string> Trial::calls() const {
  std::vector<std::string> made;
  scenario_.prepare();
  const Code code = run(*scenario_.open(), [&](std::size_t, const std::string& call) {
    made.push_back(call);
    return 0;
  });
  expect(code == 0 && shows(new_), "undisturbed");
  return made;
}

bool Trial::shows(const Records& records) const {
  const bool stands = exists(registry()) || exists(backup());
  const std::string bytes = readFile(exists(registry()) ? registry() : backup());
  if (!scenario_.inPlace() && bytes != scenario_.fileOf(records)) return false;
  Records found;
  std::size_t count = 0;
  const auto handle = scenario_.open();
  const Code scanned = handle->scan(&count, &found);
  // Zeros where a power cut took what an append in place had not synced are damage, known as such.
  if (scanned == GENREG_RC_READ_FAILED && scenario_.inPlace() && bytes.back() == '\0') {
    return found == records && handle->repair() == 0 && shows(records);
  }
  if (scanned != (stands ? 0 : GENREG_RC_OPEN_FAILED)) return false;
  // A text line without a record, as an unfinished append is, has no name.
  found.erase(std::remove_if(found.begin(), found.end(),
                             [](const Entry& record) { return record.name.empty(); }),
              found.end());
  if (found != records || records.empty()) return found == records;
  return handle->run(Verb::Get, records.back()) == 0 && handle->found() == records.back();
}

void Trial::expectEither(const Records& first, const Records& second, Handle& handle) const {
  const bool isFirst = shows(first);
  const bool isEither = isFirst || shows(second);
  expect(isEither, "neither old nor new content");
  expect(!isEither || nextUpdateKeeps(handle, isFirst ? first : second), "the next update");
}

// A backup that cannot be proved to be the last commit's own is set aside for people; the stale one
// that a scenario starts with must be.
bool Trial::nextUpdateKeeps(Handle& handle, const Records& records) const {
  const Records* const committed[] = {&stale, &old_, &new_, &records};
  Records longer = records;
  longer.push_back({"next", 9});
  if (handle.run(Verb::Add, longer.back()) != 0 || !shows(longer)) return false;
  bool staleStays = scenario_.start != Start::StaleBackup;
  for (const File& file : files()) {
    if (file.name == registry() || file.name == corrupt()) continue;
    // Appending in place neither needs nor clears a temporary file.
    if (scenario_.features == unverified && file.name == temporary()) continue;
    const bool setAside = file.name.rfind(registry() + ".old", 0) == 0;
    const auto* const known =
        std::find_if(committed, std::end(committed),
                     [&](const Records* some) { return scenario_.fileOf(*some) == file.bytes; });
    if (!setAside || known == std::end(committed)) return false;
    staleStays = staleStays || known == committed;
  }
  return staleStays;
}

void Trial::begin(std::string where) {
  where_ = std::move(where);
  report_->count(scenario_);
}

void Trial::expect(bool holds, const char* what) const {
  if (!holds) report_->expect(false, scenario_, what + (": " + where_));
}

}  // namespace proof
