// An update stops before each call with which it changes a file or the directory.
// A crash: what the calls before it did stands, and the next update stops before each of its calls,
// too. The stop is simulated by refusing all later calls; that this leaves what a killed process
// leaves is tried with processes that are killed.
// A power cut: of the names changed since the last sync of the directory any may have been kept, of
// the bytes written to a file since its last sync none, all, half, or zeros in their place.
// In each state the library must show the old or the new content, and work.
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <set>

#include "proof/gate.h"
#include "proof/scenario.h"

namespace {

using proof::File;
using proof::Files;
using proof::Gate;
using proof::Records;
using proof::Report;
using proof::Scenario;
using proof::Verb;
using Names = std::map<std::string, std::uint64_t>;
using Versions = std::vector<std::string>;  // of one file; the first is on the disk

// What may be found of a file.
std::set<std::string> possible(const Versions& versions) {
  const std::string& all = versions.back();
  std::set<std::string> found(versions.begin(), versions.end());
  for (std::size_t i = 1; i < versions.size(); ++i) {
    const std::size_t before = versions[i - 1].size();
    const std::size_t behind = versions[i].size();
    // The few bytes that are written over others reach the disk as a whole.
    if (behind <= before) continue;
    found.insert(versions[i].substr(0, before + (behind - before) / 2));
    // The file has grown, its bytes have not come: none of these, or none of the later ones.
    for (const std::size_t end : {behind, all.size()}) {
      std::string hole = all;
      const auto from = std::min(before, hole.size());
      const auto to = std::clamp(end, from, hole.size());
      found.insert(hole.replace(from, to - from, to - from, '\0'));
    }
  }
  return found;
}

// A disk, by what of it is certain and what is not.
class Disk {
 public:
  explicit Disk(const Files& files) : now_(namesOf(files)), names_(now_) {
    for (const File& file : files) versions_[file.file] = {file.bytes};
    struct stat status {};
    (void)::stat(proof::registry().substr(0, proof::registry().rfind('/')).c_str(), &status);
    directory_ = status.st_ino;
  }

  // A call was made, and `synced` by it.
  void change(const Files& files, std::uint64_t synced) {
    const Names behind = namesOf(files);
    Names change;  // a name that is gone has no file
    for (const auto& [name, file] : now_) change[name] = behind.count(name) != 0 ? file : 0;
    for (const auto& [name, file] : behind) change[name] = file;
    for (const auto& [name, file] : now_) {
      if (change.at(name) == file) change.erase(name);
    }
    if (!change.empty()) changes_.push_back(change);
    for (const File& file : files) {
      Versions& versions = versions_[file.file];
      if (versions.empty() || versions.back() != file.bytes) versions.push_back(file.bytes);
      if (file.file == synced) versions.erase(versions.begin(), versions.end() - 1);
    }
    now_ = behind;
    if (synced != directory_) return;
    names_ = now_;
    changes_.clear();
  }

  // Every state that may be found after a power cut.
  std::set<Files> states() const {
    std::set<Files> found;
    for (unsigned long kept = 0; kept < 1ul << changes_.size(); ++kept) {
      std::vector<Files> built{{}};
      std::map<std::uint64_t, std::size_t> first;  // where each file's first name is
      for (const auto& [name, file] : namesWith(kept)) {
        const auto [at, isFirst] = first.emplace(file, built.front().size());
        std::vector<Files> longer;
        for (const Files& each : built) {
          const Versions same = isFirst ? Versions{} : Versions{each[at->second].bytes};
          for (const std::string& bytes : possible(isFirst ? versions_.at(file) : same)) {
            longer.push_back(each);
            longer.back().push_back({name, bytes, file});
          }
        }
        built.swap(longer);
      }
      found.insert(built.begin(), built.end());
    }
    return found;
  }

 private:
  static Names namesOf(const Files& files) {
    Names names;
    for (const File& file : files) names[file.name] = file.file;
    return names;
  }
  // The names when, of the changes since the last sync, those at the set bits were kept.
  Names namesWith(unsigned long kept) const {
    Names names = names_;
    for (std::size_t i = 0; i < changes_.size(); ++i) {
      if ((kept >> i & 1) == 0) continue;
      for (const auto& [name, file] : changes_[i]) {
        names[name] = file;
        if (file == 0) names.erase(name);
      }
    }
    return names;
  }

  Names now_;  // as the running machine sees them
  Names names_;
  std::uint64_t directory_ = 0;
  std::vector<Names> changes_;
  std::map<std::uint64_t, Versions> versions_;
};

// Names and bytes of what a crash left. What is in a lock file is about files, which are others
// each time.
std::string leftBehind() {
  std::string left;
  for (const File& file : proof::files()) {
    left += file.name + "\n" + (file.name == proof::lockFile() ? "" : file.bytes) + "\n";
  }
  return left;
}

class Sweep : proof::Trial {
 public:
  // Of `stride` stops one is tried with a killed process, too, and of those in the next update one
  // is tried at all.
  Sweep(const Scenario& scenario, std::size_t stride, Report& crashes, Report& cuts)
      : Trial(scenario, crashes), stride_(stride), crashes_(&crashes), cuts_(&cuts) {}

  void run() {
    const FaultHook surroundings(
        [this](const std::string& call) { return scenario_.answer(call); });
    scenario_.prepare();
    Disk disk(proof::files());
    std::size_t calls = 0;
    std::map<Files, std::size_t> cuts;
    const auto note = [&] {
      for (const Files& state : disk.states()) cuts.emplace(state, calls);
    };
    note();
    {
      Gate gate;
      gate.passed = [&](std::uint64_t synced) {
        disk.change(proof::files(), synced);
        ++calls;
        note();
      };
      expect(step() == 0, "undisturbed");
    }
    report_ = cuts_;
    for (const auto& [state, done] : cuts) cutPower(state, done, old_);
    for (const Files& state : disk.states()) cutPower(state, calls, new_);
    report_ = crashes_;
    // What stops in a large registry stops in the same states as in a small one.
    if (scenario_.start == proof::Start::Large) return;
    for (std::size_t k = 0; k < calls; ++k) crash(k);
  }

 private:
  Code step() const { return scenario_.open()->run(scenario_.verb, scenario_.entry); }

  void cutPower(const Files& state, std::size_t calls, const Records& other) {
    std::string where = "after " + std::to_string(calls) + " calls:";
    for (const File& file : state) {
      where += " " + file.name.substr(file.name.rfind('/') + 1) + " of " +
               std::to_string(file.bytes.size());
    }
    begin(where);
    proof::restore(state);
    expectEither(new_, other, *scenario_.open());
  }

  void stopBefore(std::size_t k) const {
    scenario_.prepare();
    const Gate gate(k);
    (void)step();
  }

  void crash(std::size_t k) {
    const std::string where = "after a stop before change " + std::to_string(k);
    begin(where);
    stopBefore(k);
    const Records content = shows(new_) ? new_ : old_;
    if (k % stride_ == 0) beKilled(k);
    expectEither(content, content, *scenario_.open());
    bool ended = true;
    for (std::size_t j = k % stride_; ended; j += stride_) {
      begin(where + " and, in the next update, " + std::to_string(j));
      stopBefore(k);
      ended = crashAgain(j, content);
    }
  }

  // A verified update is the one that sets aside and puts back most. False when it got to its end.
  bool crashAgain(std::size_t j, const Records& content) {
    Records longer = content;
    longer.push_back({"other", 8});
    bool ended = false;
    {
      const Gate gate(j);
      const Code code =
          scenario_.flavour->open(proof::registry(), 0)->run(Verb::Add, longer.back());
      ended = gate.hasEnded();
      expect(ended || code == 0, "no success");
    }
    expectEither(longer, ended ? content : longer, *scenario_.open());
    return ended;
  }

  // The same stop by a signal leaves the same files.
  void beKilled(std::size_t k) {
    const std::string left = leftBehind();
    scenario_.prepare();
    const int ended = inChild([&] {
      const Gate gate(k, proof::End::Killed);
      return static_cast<int>(step() != 0);
    });
    expect(ended == -SIGKILL && leftBehind() == left, "a killed process leaves something else");
  }

  std::size_t stride_;
  Report* crashes_;
  Report* cuts_;
};

}  // namespace

int main(int argc, char** argv) {
  const bool isShort = proof::isShort(argc, argv);
  Report crashes("crashes");
  Report cuts("power cuts");
  for (const Scenario& scenario : proof::scenarios(isShort)) {
    if (!scenario.reads()) Sweep(scenario, isShort ? 5 : 1, crashes, cuts).run();
  }
  const bool survived = crashes.finish();
  return cuts.finish() && survived ? 0 : 1;
}
