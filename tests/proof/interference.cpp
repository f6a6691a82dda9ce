// Before each call of an update another program, which knows nothing of its locks, does something
// to its files. Every committed record is then in the registry or in a file that people find, and
// so is what the other program wrote, unless it appended in the midst of the commit: then one of
// the two may stand for both, as if they had come one after the other.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "proof/scenario.h"

namespace {

using proof::Records;
using proof::registry;
using proof::Scenario;

const Entry foreign{"foreign", 7};

bool writeTo(const std::string& path, int flags, const std::string& bytes) {
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | flags, 0600);
  if (descriptor < 0) return false;
  const bool written =
      ::write(descriptor, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  return ::close(descriptor) == 0 && written;
}

struct Intruder {
  const char* does;
  bool writes;
  bool (*act)(const Scenario& scenario);  // false: there was nothing to do it to
};
const Intruder intruders[] = {
    // As ": >>NAME" does where there is no such file.
    {"creates the registry", false,
     [](const Scenario&) { return writeTo(registry(), O_CREAT | O_EXCL, ""); }},
    // As an editor saves.
    {"replaces the registry", true,
     [](const Scenario& scenario) {
       Records content = scenario.before();
       content.push_back(foreign);
       const std::string saved = registry() + "~";
       return exists(registry()) && writeTo(saved, O_CREAT, scenario.fileOf(content)) &&
              ::rename(saved.c_str(), registry().c_str()) == 0;
     }},
    {"appends to the registry", true,
     [](const Scenario& scenario) {
       return writeTo(registry(), O_APPEND, scenario.flavour->stored(foreign));
     }},
    {"removes the lock file", false,
     [](const Scenario&) { return ::unlink(proof::lockFile().c_str()) == 0; }},
};

class Sweep : proof::Trial {
 public:
  using Trial::Trial;

  void run() {
    const std::vector<std::string> made = calls();
    // The commit's first step, in place the look at the file before it: from there on either may be
    // the last.
    const bool inPlace = scenario_.inPlace();
    const auto first = std::find(made.begin(), made.end(), inPlace ? "write" : "link");
    const auto commit = static_cast<std::size_t>(first - made.begin()) - (inPlace ? 1 : 0);
    for (const Intruder& intruder : intruders) {
      for (std::size_t k = 0; k < made.size(); ++k) {
        // What another program appends right before an append in place is written over: it does not
        // take the lock that would keep the two apart.
        if (inPlace && k == commit + 1) continue;
        disturb(intruder, k, made[k], k >= commit);
      }
    }
  }

 private:
  void disturb(const Intruder& intruder, std::size_t k, const std::string& call, bool inCommit) {
    scenario_.prepare();
    bool acted = false;
    const Code code = Trial::run(*scenario_.open(), [&](std::size_t number, const std::string&) {
      if (number == k) acted = intruder.act(scenario_);
      return 0;
    });
    if (!acted) return;
    begin(std::string("another program ") + intruder.does + " before call " +
          std::to_string(k + 1) + " (" + call + "), code " + std::to_string(code));
    const auto next = scenario_.open();
    expect(next->run(proof::Verb::Add, {"next", 9}) == 0, "the next update");
    expect(next->run(proof::Verb::Scan, {}) == 0, "a scan");

    const bool ours = keeps(new_);
    const bool theirs = !intruder.writes || keeps({foreign});
    const bool either = intruder.writes && inCommit && (ours || (theirs && keeps(old_)));
    expect(ours || (code != 0 && keeps(old_)) || either, "a committed record is lost");
    expect(theirs || either, "what the other program wrote is undone");
    expect(!exists(proof::backup()), "a hidden backup stays");
  }

  // Whether each of the records is in some file that people find.
  bool keeps(const Records& records) const {
    std::string visible;
    for (const proof::File& file : proof::files()) {
      const bool hidden = std::filesystem::path(file.name).filename().string()[0] == '.';
      if (!hidden) visible += file.bytes + "\n";
    }
    return std::all_of(records.begin(), records.end(), [&](const Entry& record) {
      return visible.find(scenario_.flavour->stored(record)) != std::string::npos;
    });
  }
};

}  // namespace

int main(int argc, char** argv) {
  std::vector<Scenario> chosen;
  for (const Scenario& scenario : proof::scenarios(proof::isShort(argc, argv))) {
    // Each call of a large registry has its like in a small one.
    if (!scenario.reads() && scenario.start != proof::Start::Large) chosen.push_back(scenario);
  }
  return proof::sweepAll<Sweep>("other programs", chosen);
}
