#include "proof/subject.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>

#include "support/stored_record.h"

namespace fs = std::filesystem;

namespace proof {
namespace {

// How a flavour's records carry a name and a value: `mask` matches the name alone.
struct BinaryVariables {
  using Class = GenRegBinVarVal;
  using Record = BinVarValRecord;
  static constexpr std::uint64_t mask = BINVARVAL_VARIABLE;
  static Record record(const char* name, int value, const char*) { return variable(name, value); }
  static std::pair<std::string, int> tell(const Record& record) {
    return {record.Variable, record.Value};
  }
};

struct Global {
  using Class = GlobalReg;
  using Record = GlobalRegRecord;
  static constexpr std::uint64_t mask = 0x2;
  static Record record(const char* name, int, const char* value) {
    Record record{};
    record.RecordType = GLOBALREG_RECORD_VARIABLE;
    record.FieldMask = 0x7;
    std::strcpy(record.Variable.Service, "zor");
    std::strcpy(record.Variable.Variable, name);
    std::strcpy(record.Variable.Value, value);
    return record;
  }
  static std::pair<std::string, int> tell(const Record& record) {
    return {record.Variable.Variable, std::atoi(record.Variable.Value)};
  }
};

struct Profile {
  using Class = GenRegVarVal;
  using Record = VarValRecord;
  static constexpr std::uint64_t mask = VARVAL_VARIABLE;
  static Record record(const char* name, int, const char* value) { return assignment(name, value); }
  static std::pair<std::string, int> tell(const Record& record) {
    if (record.Contains != VARVAL_HAS_VARIABLE) return {"?", 0};
    return {record.Variable, std::atoi(record.Value)};
  }
};

struct Services {
  using Class = GenRegServices;
  using Record = ServiceEntryRecord;
  static constexpr std::uint64_t mask = SERVICES_NAME;
  static Record record(const char* name, int value, const char*) {
    Record record{};
    record.Contains = SERVICES_HAS_SERVICE;
    record.name = name;
    record.port = htons(static_cast<std::uint16_t>(value));
    record.protocol = "tcp";
    return record;
  }
  static std::pair<std::string, int> tell(const Record& record) {
    if (record.Contains != SERVICES_HAS_SERVICE) return {"?", 0};
    return {record.name, ntohs(record.port)};
  }
};

template <typename Class>
struct Opened : Class {
  Opened() : Class(Directory::registry().c_str(), nullptr) {}
};
template <>
struct Opened<GlobalReg> : GlobalReg {};  // finds its registry in the environment

template <typename Kind>
class HandleOf : public Handle, private Opened<typename Kind::Class> {
 public:
  explicit HandleOf(std::uint64_t wanted) {
    constexpr std::uint64_t mode = GENREG_VERIFY_UPDATES | GENREG_ALLOW_DUPLICATES;
    if (wanted != 0) this->features = (this->features & ~mode) | wanted;
  }

  unsigned int run(const Step& step) override {
    const std::string value = std::to_string(step.value);
    typename Kind::Record record = Kind::record(step.name, step.value, value.c_str());
    typename Kind::Record found;
    Records all;
    switch (step.verb) {
      case Verb::Add:
        return this->Add(Kind::mask, &record);
      case Verb::Change:
        return this->Change(Kind::mask, &record, &record);
      case Verb::Delete:
        return this->Delete(Kind::mask, &record);
      case Verb::Get:
        return this->Get(Kind::mask, &record, &found);
      case Verb::Scan:
        break;
    }
    return scan(&all);
  }

  unsigned int scan(Records* found) override {
    typename Kind::Record key = Kind::record("", 0, "");
    typename Kind::Record record;
    unsigned int code = this->OpenScan();
    if (code != 0) return code;
    while ((code = this->GetNext(0, &key, &record)) == 0) found->push_back(Kind::tell(record));
    const unsigned int closed = this->CloseScan();
    return code == GENREG_RC_END ? closed : code;
  }
};

template <typename Kind>
std::unique_ptr<Handle> openHandle(std::uint64_t features) {
  return std::make_unique<HandleOf<Kind>>(features);
}

std::string sibling(const char* prefix, const char* suffix) {
  const fs::path registry = Directory::registry();
  return registry.parent_path() / (prefix + registry.filename().string() + suffix);
}
std::string backup() { return sibling(".", ".bkp"); }
std::string temporary() { return sibling("", ".tmp"); }
std::string corrupt() { return sibling("", ".cor"); }

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

}  // namespace

const Flavour flavours[4] = {
    {"binary", openHandle<BinaryVariables>,
     [](const std::string& name, int value) { return frame(variable(name, value)); }},
    {"global", openHandle<Global>,
     [](const std::string& name, int value) {
       return framed(stored(4, 0x7, {text("zor"), text(name), text(std::to_string(value))}));
     }},
    {"profile", openHandle<Profile>,
     [](const std::string& name, int value) {
       return name + " = " + std::to_string(value) + "\n";
     }},
    {"services", openHandle<Services>,
     [](const std::string& name, int value) {
       return name + "\t\t" + std::to_string(value) + "/tcp\n";
     }},
};

std::string Flavour::fileOf(const Records& records) const {
  std::string bytes;
  for (const auto& [key, value] : records) bytes += stored(key, value);
  return bytes;
}

Records after(Records records, const Step& step) {
  const auto named = [&](const auto& record) { return record.first == step.name; };
  if (step.verb == Verb::Add) records.emplace_back(step.name, step.value);
  if (step.verb == Verb::Change) {
    std::find_if(records.begin(), records.end(), named)->second = step.value;
  }
  if (step.verb == Verb::Delete) {
    records.erase(std::find_if(records.begin(), records.end(), named));
  }
  return records;
}

Records Scenario::before() const {
  if (start == Start::Nothing) return {};
  Records records{{"a", 1}, {"b", 2}};
  for (int i = 0; start == Start::Large && i < 8000; ++i) {
    records.emplace_back("r" + std::to_string(i), 1 + i);
  }
  return records;
}

std::string Scenario::operation() const {
  return verbNames[static_cast<std::size_t>(step.verb)] + std::string(inPlace ? " in place" : "");
}

std::string Scenario::title() const {
  return std::string(flavour->name) + " " + operation() + ", features " + std::to_string(features) +
         ", " + startNames[static_cast<std::size_t>(start)];
}

namespace {

// Whether a combination exists and, unless all are wanted, is one of those that differ most.
bool isWanted(const Flavour& flavour, const Mode& mode, Verb verb, Start start, bool all) {
  const bool isBinary = &flavour == flavours;
  const bool reads = verb == Verb::Get || verb == Verb::Scan;
  if (start == Start::Nothing && verb != Verb::Add) return false;
  if (start == Start::Large && !isBinary) return false;  // the streams serve all flavours alike
  if (reads && mode.features != 0) return false;
  if (all) return true;
  if (start == Start::Clean) return mode.features != verified;
  return isBinary && start != Start::Large && mode.features == 0;
}

}  // namespace

std::vector<Scenario> scenarios(bool all) {
  std::vector<Scenario> made;
  for (const Flavour& flavour : flavours) {
    for (const Mode& mode : modes) {
      for (const Step& step : steps) {
        for (std::size_t i = 0; i < std::size(startNames); ++i) {
          const auto start = static_cast<Start>(i);
          if (!isWanted(flavour, mode, step.verb, start, all)) continue;
          const bool inPlace = mode.inPlace && step.verb == Verb::Add;
          made.push_back({&flavour, mode.features, inPlace, start, step});
        }
      }
    }
  }
  return made;
}

const std::string& Directory::registry() {
  // One registry for the life of the program, in memory where the machine can.
  static const std::string path = [] {
    std::string made =
        fs::exists("/dev/shm") ? "/dev/shm/zorgenreg-proof-XXXXXX" : "/tmp/zorgenreg-proof-XXXXXX";
    if (::mkdtemp(made.data()) == nullptr) std::abort();
    made += "/r";
    (void)::setenv("ZOR_GLOBAL_REG_PATHNAME", made.c_str(), 1);
    return made;
  }();
  return path;
}

Directory::Directory() { (void)registry(); }
Directory::~Directory() { fs::remove_all(fs::path(registry()).parent_path()); }

Directory::Files Directory::files() const {
  Files found;
  for (const auto& entry : fs::directory_iterator(fs::path(registry()).parent_path())) {
    found.emplace_back(entry.path(), readFile(entry.path()));
  }
  std::sort(found.begin(), found.end());
  return found;
}

void Directory::restore(const Files& files) const {
  for (const auto& entry : fs::directory_iterator(fs::path(registry()).parent_path())) {
    (void)::unlink(entry.path().c_str());
  }
  for (const auto& [name, bytes] : files) writeFile(name, bytes);
}

void Directory::prepare(const Scenario& scenario) const {
  const Start start = scenario.start;
  Files files;
  if (start != Start::Nothing) {
    files.emplace_back(start == Start::BackupOnly ? backup() : registry(),
                       scenario.flavour->fileOf(scenario.before()));
  }
  if (start == Start::StaleBackup) {
    files.emplace_back(backup(), scenario.flavour->stored("stale", 9));
  }
  if (start == Start::BackupOnly || start == Start::TemporaryAndOld) {
    files.emplace_back(temporary(), "unfinished");
    files.emplace_back(corrupt(), "older");
  }
  restore(files);
}

std::string Directory::committed() const {
  return readFile(exists(registry()) ? registry() : backup());
}

Report::Report(const char* proof, int argc, char** argv) : proof_(proof) {
  for (int i = 1; i < argc; ++i) short_ = short_ || std::strcmp(argv[i], "--short") == 0;
}

Report::Row& Report::rowOf(const Scenario& scenario) {
  const std::string operation = scenario.operation();
  for (Row& row : rows_) {
    if (row.flavour == scenario.flavour->name && row.operation == operation) return row;
  }
  rows_.push_back({scenario.flavour->name, operation, 0, 0});
  return rows_.back();
}

void Report::count(const Scenario& scenario, unsigned long tried) {
  rowOf(scenario).tried += tried;
}

void Report::expect(bool holds, const Scenario& scenario,
                    const std::function<std::string()>& what) {
  if (holds) return;
  Row& row = rowOf(scenario);
  if (++row.failed <= 5) {
    std::fprintf(stderr, "FAILED %s: %s: %s\n", proof_, scenario.title().c_str(), what().c_str());
  }
}

int Report::finish() const {
  unsigned long failed = 0;
  for (const Row& row : rows_) {
    std::printf("%s|%s|%s|%lu|%lu\n", proof_, row.flavour.c_str(), row.operation.c_str(), row.tried,
                row.failed);
    failed += row.failed;
  }
  return failed == 0 ? 0 : 1;
}

bool read(const Scenario& scenario, const Directory& directory, Records* found) {
  const unsigned int code = scenario.open()->scan(found);
  if (code == 0 && !found->empty()) {
    return scenario.open()->run({Verb::Get, found->back().first.c_str()}) == 0;
  }
  if (code != GENREG_RC_OPEN_FAILED) return code == 0;
  return !exists(Directory::registry()) && directory.committed().empty();
}

bool nextUpdateKeeps(const Scenario& scenario, const Directory& directory, Handle& handle,
                     const std::string& content) {
  if (handle.run({Verb::Add, "next", 9}) != 0) return false;
  std::string names;
  for (const auto& [name, bytes] : directory.files()) {
    if (name == Directory::registry()) {
      if (bytes != content + scenario.flavour->stored("next", 9)) return false;
      // Appending in place neither needs nor clears a temporary file.
    } else if (name != corrupt() && !(scenario.features == unverified && name == temporary())) {
      return false;
    }
  }
  return true;
}

}  // namespace proof
