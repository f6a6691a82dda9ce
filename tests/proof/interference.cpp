// Before each call of an update another program, which knows nothing of its locks, does something
// to its files. Every committed record is then in the registry or in a file that people find, and
// so is what the other program wrote, unless it wrote in the midst of the commit: then one of the
// two may stand for both, as if they had come one after the other.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "proof/scenario.h"

namespace {

using proof::Records;
using proof::registry;
using proof::Scenario;

const proof::Record foreign{"foreign", 7};

bool writeTo(const std::string& path, int flags, const std::string& bytes) {
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | flags, 0600);
  if (descriptor < 0) return false;
  const bool written =
      ::write(descriptor, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  return ::close(descriptor) == 0 && written;
}

// As ": >>NAME" does where there is no such file.
bool create(const Scenario&) { return writeTo(registry(), O_CREAT | O_EXCL, ""); }

// As an editor saves.
bool replace(const Scenario& scenario) {
  if (!exists(registry())) return false;
  Records content = scenario.before();
  content.push_back(foreign);
  const std::string saved = registry() + "~";
  return writeTo(saved, O_CREAT | O_EXCL, scenario.flavour->fileOf(content)) &&
         ::rename(saved.c_str(), registry().c_str()) == 0;
}

bool append(const Scenario& scenario) {
  return writeTo(registry(), O_APPEND, scenario.flavour->stored(foreign));
}

bool removeLock(const Scenario&) { return ::unlink(proof::lockFile().c_str()) == 0; }

struct Intruder {
  const char* does;
  bool (*act)(const Scenario& scenario);  // false: there was nothing to do it to
  bool writes;
};
constexpr Intruder intruders[] = {{"creates the registry", create, false},
                                  {"replaces the registry", replace, true},
                                  {"appends to the registry", append, true},
                                  {"removes the lock file", removeLock, false}};

class Sweep : proof::Trial {
 public:
  using Trial::Trial;

  void run() {
    std::vector<std::string> calls;
    scenario_.prepare();
    {
      const FaultHook hook([&](const std::string& call) {
        calls.push_back(call);
        return scenario_.answer(call);
      });
      expect(scenario_.open()->run(scenario_.step) == 0, [] { return "undisturbed"; });
    }
    // The first step of the commit, and in place the first that writes.
    const auto step =
        std::find(calls.rbegin(), calls.rend(), scenario_.inPlace ? "write" : "link").base();
    const auto commit = static_cast<std::size_t>(step - calls.begin()) - 1;
    for (const Intruder& intruder : intruders) {
      for (std::size_t k = 0; k < calls.size(); ++k) disturb(intruder, k, k >= commit);
    }
  }

 private:
  void disturb(const Intruder& intruder, std::size_t k, bool inCommit) {
    scenario_.prepare();
    Code code = 0;
    bool acted = false;
    std::string before;
    {
      std::size_t made = 0;
      const FaultHook hook([&](const std::string& call) {
        if (made++ == k) {
          acted = intruder.act(scenario_);
          before = call;
        }
        return scenario_.answer(call);
      });
      code = scenario_.open()->run(scenario_.step);
    }
    if (!acted) return;
    report_.count(scenario_);
    const auto where = [&](const char* what) {
      return [=, &intruder] {
        return std::string(what) + ": another program " + intruder.does + " before call " +
               std::to_string(k + 1) + " (" + before + "), code " + std::to_string(code);
      };
    };
    expect(scenario_.open()->run({proof::Verb::Add, "next", 9}) == 0, where("the next update"));
    Records found;
    expect(scenario_.open()->scan(&found) == 0, where("a scan"));

    const bool ours = keeps(new_);
    const bool theirs = !intruder.writes || keeps({foreign});
    // A commit that came after the other program's append or replacement, or before it.
    const bool either = intruder.writes && inCommit && (ours || (theirs && keeps(old_)));
    expect(ours || (code != 0 && keeps(old_)) || either, where("a committed record is lost"));
    expect(theirs || either, where("what the other program wrote is undone"));
    expect(!exists(proof::backup()), where("a hidden backup stays"));
  }

  // Whether each of the records is in some file that people find.
  bool keeps(const Records& records) const {
    const proof::Files all = proof::files();
    return std::all_of(records.begin(), records.end(), [&](const proof::Record& record) {
      const std::string bytes = scenario_.flavour->stored(record);
      return std::any_of(all.begin(), all.end(), [&](const proof::File& file) {
        return proof::isVisible(file.name) && file.bytes.find(bytes) != std::string::npos;
      });
    });
  }
};

}  // namespace

int main(int argc, char** argv) {
  proof::Report report("other programs");
  for (const Scenario& scenario : proof::scenarios(!proof::isShort(argc, argv))) {
    const bool reads =
        scenario.step.verb == proof::Verb::Get || scenario.step.verb == proof::Verb::Scan;
    // Each call of a large registry has its like in a small one.
    if (!reads && scenario.start != proof::Start::Large) Sweep(scenario, report).run();
  }
  return report.finish() ? 0 : 1;
}
