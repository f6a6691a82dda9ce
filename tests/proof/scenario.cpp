#include "proof/scenario.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <map>
#include <tuple>

#include "bench/flavours.h"

namespace fs = std::filesystem;

namespace proof {
namespace {

template <typename Kind>
class HandleOf final : public Handle {
 public:
  explicit HandleOf(std::uint64_t wanted) {
    constexpr std::uint64_t mode = GENREG_VERIFY_UPDATES | GENREG_ALLOW_DUPLICATES;
    std::uint64_t& features = handle_.*Access::field();
    if (wanted != 0) features = (features & ~mode) | wanted;
  }

  using Handle::run;
  Code run(const Step& step, Record* found) override {
    const Entry entry{step.name, step.value, ""};
    typename Kind::Record record{};
    Kind::fill(record, entry);
    Records all;
    Code code = 0;
    switch (step.verb) {
      case Verb::Add:
        return handle_.Add(Kind::mask, &record);
      case Verb::Change:
        return handle_.Change(Kind::mask, &record, &record);
      case Verb::Delete:
        return handle_.Delete(Kind::mask, &record);
      case Verb::Get:
        code = handle_.Get(Kind::mask, &record, &found_);
        if (code == 0) *found = recordOf(found_);
        return code;
      case Verb::Scan:
        break;
    }
    return scan(&all);
  }

  Code openScan() override { return handle_.OpenScan(); }
  Code closeScan() override { return handle_.CloseScan(); }
  Code next(Record* found) override {
    const Entry any;
    typename Kind::Record key{};
    Kind::fill(key, any);
    const Code code = handle_.GetNext(0, &key, &found_);
    if (code == 0) *found = recordOf(found_);
    return code;
  }

 private:
  struct Access : Kind::Handle {
    static auto field() { return &Access::features; }
  };
  static Record recordOf(const typename Kind::Record& record) {
    const Entry entry = Kind::entryOf(record);
    return {entry.name, entry.value};
  }

  typename Kind::Handle handle_ = Kind::open(registry());
  typename Kind::Record found_{};
};

template <typename Kind>
constexpr Flavour flavourOf(const char* name) {
  return {name,
          [](std::uint64_t features) -> std::unique_ptr<Handle> {
            return std::make_unique<HandleOf<Kind>>(features);
          },
          [](const Record& record) {
            return Kind::stored({record.first, record.second, ""});
          }};
}

struct Mode {
  std::uint64_t features;  // 0: the flavour's own
  bool inPlace;
};
constexpr Mode modes[] = {{0, false}, {unverified, true}, {verified, false}};

constexpr Step steps[] = {{Verb::Add, "new", 3},
                          {Verb::Change, "b", 22},
                          {Verb::Delete, "a"},
                          {Verb::Get, "b"},
                          {Verb::Scan}};
const char* const verbNames[] = {"Add", "Change", "Delete", "Get", "Scan"};
const char* const startNames[] = {"clean",        "nothing",  "backup only",
                                  "stale backup", "leftover", "large"};
const Records stale{{"stale", 9}};

// Whether a combination exists and, unless all are wanted, is one of those that differ most.
bool isWanted(const Scenario& scenario, bool all) {
  const bool isBinary = scenario.flavour == flavours;
  const bool reads = scenario.step.verb == Verb::Get || scenario.step.verb == Verb::Scan;
  const bool isClean = scenario.start == Start::Clean;
  if (scenario.start == Start::Nothing && scenario.step.verb != Verb::Add) return false;
  // The streams serve all flavours alike.
  if (scenario.start == Start::Large && !isBinary) return false;
  if (reads && scenario.features != 0) return false;
  if (!scenario.links && (reads || scenario.inPlace)) return false;
  if (all) return true;
  if (isClean) return scenario.features != verified && (scenario.links || isBinary);
  return isBinary && scenario.start != Start::Large && scenario.features == 0;
}

std::string sibling(const char* prefix, const char* suffix) {
  const fs::path path = registry();
  return path.parent_path() / (prefix + path.filename().string() + suffix);
}

// One registry for the life of the program, in memory where the machine can.
struct Directory {
  Directory() {
    if (::mkdtemp(path.data()) == nullptr) std::abort();
    registry = path + "/r";
  }
  ~Directory() { fs::remove_all(path); }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;

  std::string path =
      fs::exists("/dev/shm") ? "/dev/shm/zorgenreg-proof-XXXXXX" : "/tmp/zorgenreg-proof-XXXXXX";
  std::string registry;
};

}  // namespace

const Flavour flavours[4] = {flavourOf<::flavours::BinaryVariables>("binary"),
                             flavourOf<::flavours::GlobalRegistry>("global"),
                             flavourOf<::flavours::ProfileVariables>("profile"),
                             flavourOf<::flavours::Services>("services")};

Code Handle::scan(Records* found) {
  Code code = openScan();
  if (code != 0) return code;
  for (Record record; (code = next(&record)) == 0;) {
    if (!record.first.empty()) found->push_back(record);
  }
  const Code closed = closeScan();
  return code == GENREG_RC_END ? closed : code;
}

std::string Flavour::fileOf(const Records& records) const {
  std::string bytes;
  for (const Record& record : records) bytes += stored(record);
  return bytes;
}

Records Scenario::before() const {
  if (start == Start::Nothing) return {};
  Records records{{"a", 1}, {"b", 2}};
  for (int i = 0; start == Start::Large && i < 8000; ++i) {
    records.emplace_back("r" + std::to_string(i), 1 + i);
  }
  return records;
}

Records Scenario::afterwards() const {
  Records records = before();
  const auto named = std::find_if(records.begin(), records.end(),
                                  [&](const Record& record) { return record.first == step.name; });
  if (step.verb == Verb::Add) records.emplace_back(step.name, step.value);
  if (step.verb == Verb::Change) named->second = step.value;
  if (step.verb == Verb::Delete) records.erase(named);
  return records;
}

std::string Scenario::operation() const {
  return verbNames[static_cast<std::size_t>(step.verb)] + std::string(inPlace ? " in place" : "");
}

std::string Scenario::title() const {
  return std::string(flavour->name) + " " + operation() + ", features " + std::to_string(features) +
         ", " + startNames[static_cast<std::size_t>(start)] + (links ? "" : ", without hard links");
}

void Scenario::prepare() const {
  Files made;
  const auto put = [&](const std::string& name, const std::string& bytes) {
    made.push_back({name, bytes, ""});
  };
  if (start != Start::Nothing) {
    put(start == Start::BackupOnly ? backup() : registry(), flavour->fileOf(before()));
  }
  if (start == Start::StaleBackup) put(backup(), flavour->fileOf(stale));
  if (start == Start::BackupOnly || start == Start::TemporaryAndOld) {
    put(temporary(), "unfinished");
    put(corrupt(), "older");
  }
  restore(made);
}

int Scenario::answer(const std::string& call) const { return !links && call == "link" ? EPERM : 0; }

FaultHook Scenario::surroundings() const {
  return FaultHook([this](const std::string& call) { return answer(call); });
}

std::vector<Scenario> scenarios(bool all) {
  std::vector<Scenario> made;
  for (const Flavour& flavour : flavours) {
    for (const Mode& mode : modes) {
      for (const Step& step : steps) {
        for (std::size_t i = 0; i < 2 * std::size(startNames); ++i) {
          const bool inPlace = mode.inPlace && step.verb == Verb::Add;
          const Scenario scenario{
              &flavour, mode.features, inPlace, i % 2 == 0, static_cast<Start>(i / 2), step};
          if (isWanted(scenario, all)) made.push_back(scenario);
        }
      }
    }
  }
  return made;
}

bool operator==(const File& a, const File& b) {
  return std::tie(a.name, a.bytes, a.twin) == std::tie(b.name, b.bytes, b.twin);
}
bool operator<(const File& a, const File& b) {
  return std::tie(a.name, a.bytes, a.twin) < std::tie(b.name, b.bytes, b.twin);
}

const std::string& registry() {
  static const Directory directory;
  return directory.registry;
}
std::string backup() { return sibling(".", ".bkp"); }
std::string lockFile() { return sibling(".", ".lock"); }
std::string temporary() { return sibling("", ".tmp"); }
std::string corrupt() { return sibling("", ".cor"); }
bool isVisible(const std::string& name) { return fs::path(name).filename().string()[0] != '.'; }

Files files() {
  Files found;
  for (const auto& entry : fs::directory_iterator(fs::path(registry()).parent_path())) {
    found.push_back({entry.path(), readFile(entry.path()), ""});
  }
  std::sort(found.begin(), found.end());
  std::map<ino_t, std::string> first;
  for (File& file : found) {
    struct stat status {};
    (void)::lstat(file.name.c_str(), &status);
    const auto [known, isFirst] = first.emplace(status.st_ino, file.name);
    if (!isFirst) file.twin = known->second;
  }
  return found;
}

void restore(const Files& wanted) {
  for (const auto& entry : fs::directory_iterator(fs::path(registry()).parent_path())) {
    (void)::unlink(entry.path().c_str());
  }
  for (const File& file : wanted) {
    if (file.twin.empty()) {
      writeFile(file.name, file.bytes);
    } else if (::link(file.twin.c_str(), file.name.c_str()) != 0) {
      std::abort();
    }
  }
}

Report::Row& Report::rowOf(const Scenario& scenario) {
  const std::string operation = scenario.operation();
  for (Row& row : rows_) {
    if (row.flavour == scenario.flavour->name && row.operation == operation) return row;
  }
  rows_.push_back({scenario.flavour->name, operation, 0, 0});
  return rows_.back();
}

void Report::expect(bool holds, const Scenario& scenario,
                    const std::function<std::string()>& what) {
  if (holds) return;
  if (++rowOf(scenario).failed <= 5) {
    std::fprintf(stderr, "FAILED %s: %s: %s\n", proof_, scenario.title().c_str(), what().c_str());
  }
}

bool Report::finish() const {
  bool holds = true;
  for (const Row& row : rows_) {
    std::printf("%s|%s|%s|%lu|%lu\n", proof_, row.flavour.c_str(), row.operation.c_str(), row.tried,
                row.failed);
    holds = holds && row.failed == 0;
  }
  return holds;
}

bool isShort(int argc, char** argv) {
  return std::find(argv, argv + argc, std::string("--short")) != argv + argc;
}

Trial::Trial(const Scenario& scenario, Report& report)
    : scenario_(scenario), report_(report), old_(scenario.before()), new_(scenario.afterwards()) {}

bool Trial::shows(const Records& records) const {
  const bool stands = exists(registry()) || exists(backup());
  const std::string bytes = readFile(exists(registry()) ? registry() : backup());
  if (!scenario_.inPlace && bytes != scenario_.flavour->fileOf(records)) return false;
  Records found;
  if (scenario_.open()->scan(&found) != (stands ? 0 : GENREG_RC_OPEN_FAILED)) return false;
  if (found != records) return false;
  Record last;
  return records.empty() ||
         (scenario_.open()->run({Verb::Get, records.back().first.c_str()}, &last) == 0 &&
          last == records.back());
}

const Records* Trial::shown(std::initializer_list<const Records*> candidates) const {
  const auto found = std::find_if(candidates.begin(), candidates.end(),
                                  [&](const Records* records) { return shows(*records); });
  return found == candidates.end() ? nullptr : *found;
}

// A backup that could not be proved to be the last commit's own is set aside for people. In the
// registry that a stale one stood beside, it must be.
bool Trial::nextUpdateKeeps(Handle& handle, Records records) const {
  const auto bytesOf = [&](const Records& some) { return scenario_.flavour->fileOf(some); };
  const std::string committed[] = {bytesOf(stale), bytesOf(old_), bytesOf(new_), bytesOf(records)};
  if (handle.run({Verb::Add, "next", 9}) != 0) return false;
  records.emplace_back("next", 9);
  if (!shows(records)) return false;
  bool staleStays = scenario_.start != Start::StaleBackup;
  for (const File& file : files()) {
    if (file.name == registry() || file.name == corrupt()) continue;
    // Appending in place neither needs nor clears a temporary file.
    if (scenario_.features == unverified && file.name == temporary()) continue;
    const bool setAside = file.name.rfind(registry() + ".old", 0) == 0;
    const auto* const known = std::find(committed, std::end(committed), file.bytes);
    if (!setAside || known == std::end(committed)) return false;
    staleStays = staleStays || known == committed;
  }
  return staleStays;
}

}  // namespace proof
