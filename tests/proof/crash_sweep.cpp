// An update stops before each call with which it changes a file or the directory.
// A crash: its process is killed, and that of the next update before each of its calls, too.
// A power cut: of the names changed since the last sync of the directory any may have been kept, of
// the bytes written to a file since its last sync none, all, half, or zeros in their place.
// In each state the library must show the old or the new content, and work.
#include <signal.h>

#include <algorithm>
#include <map>
#include <set>

#include "proof/gate.h"
#include "proof/scenario.h"

namespace {

using proof::Files;
using proof::Records;
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

// A disk, by what may be found on it after a power cut.
class Disk {
 public:
  Disk() { change(inodeOf(proof::directory)); }

  // A call was made, and `synced` by it.
  void change(std::uint64_t synced) {
    Names names;
    for (const auto& [name, file] : proof::files()) {
      names[name] = file.inode;
      Versions& versions = versions_[file.inode];
      if (versions.empty() || versions.back() != file.bytes) versions.push_back(file.bytes);
      if (file.inode == synced) versions.erase(versions.begin(), versions.end() - 1);
    }
    Names changed = names;  // a name that is gone has no file
    for (const auto& [name, inode] : now_) {
      if (changed.emplace(name, 0).first->second == inode) changed.erase(name);
    }
    now_ = names;
    for (Names kept : std::set<Names>(possible_)) {
      for (const auto& [name, inode] : changed) kept[name] = inode;
      possible_.insert(kept);
    }
    if (synced == inodeOf(proof::directory)) possible_ = {names};
  }

  std::set<Files> states() const {
    std::set<Files> found;
    for (const Names& names : possible_) {
      std::vector<Files> built{{}};
      for (const auto& [name, inode] : names) {
        if (inode != 0) built = withName(built, name, inode);
      }
      found.insert(built.begin(), built.end());
    }
    return found;
  }

 private:
  // With the name of a file in each state that it may be found in.
  std::vector<Files> withName(const std::vector<Files>& built, const std::string& name,
                              std::uint64_t inode) const {
    std::vector<Files> longer;
    for (const Files& each : built) {
      const auto twin = std::find_if(
          each.begin(), each.end(), [&](const auto& other) { return other.second.inode == inode; });
      const std::set<std::string> contents =
          twin == each.end() ? possible(versions_.at(inode)) : std::set{twin->second.bytes};
      for (const std::string& bytes : contents) {
        longer.push_back(each);
        longer.back()[name] = {bytes, inode};
      }
    }
    return longer;
  }

  Names now_;  // as the running machine sees them
  std::set<Names> possible_;
  std::map<std::uint64_t, Versions> versions_;
};

Code update(const Scenario& scenario) {
  return scenario.open()->run(scenario.verb, scenario.entry);
}

// Runs an update in a process that is killed before change `k`. False when it got to its end.
bool isKilled(Scenario& scenario, std::size_t k, const std::function<Code()>& update) {
  const int ended = inChild([&] {
    std::size_t calls = 0;
    proof::beforeChange = [&](std::uint64_t) {
      if (calls++ == k) killThisProcess();
    };
    return static_cast<int>(update() != 0);
  });
  scenario.expect(ended == 0 || ended == -SIGKILL, "no success");
  return ended == -SIGKILL;
}

// Of `stride` stops in the next update one is tried.
void crash(Scenario& scenario, std::size_t k, std::size_t stride) {
  const std::string where = "killed before change " + std::to_string(k);
  const auto crashed = [&] {
    scenario.prepare();
    return isKilled(scenario, k, [&] { return update(scenario); });
  };
  scenario.begin(where);
  scenario.expect(crashed(), "not killed");
  const Records content = scenario.shows(scenario.after) ? scenario.after : scenario.before;
  scenario.expectEither(content, content, *scenario.open());
  Records longer = content;
  longer.push_back({"other", 8});
  bool again = true;
  for (std::size_t j = k % stride; again; j += stride) {
    scenario.begin(where + " and, in the next update, " + std::to_string(j));
    (void)crashed();
    // A verified update is the one that sets aside and puts back most.
    again = isKilled(scenario, j, [&] {
      return scenario.flavour->open(proof::registry, 0)->run(Verb::Add, longer.back());
    });
    scenario.expectEither(longer, again ? content : longer, *scenario.open());
  }
}

void cutPower(Scenario& scenario, const Files& state, std::size_t calls, const Records& other) {
  std::string where = "after " + std::to_string(calls) + " calls:";
  for (const auto& [name, file] : state) {
    where += " " + name + " of " + std::to_string(file.bytes.size());
  }
  scenario.begin(where);
  proof::restore(state);
  scenario.expectEither(scenario.after, other, *scenario.open());
}

void sweep(Scenario& scenario, std::size_t stride) {
  if (scenario.reads()) return;
  scenario.prepare();
  Disk disk;
  std::size_t calls = 0;
  std::uint64_t synced = 0;  // by the last of them
  std::map<Files, std::size_t> cuts;
  const auto note = [&] {
    disk.change(synced);
    for (const Files& state : disk.states()) cuts.emplace(state, calls);
  };
  proof::beforeChange = [&](std::uint64_t next) {
    note();
    synced = next;
    ++calls;
  };
  scenario.expect(update(scenario) == 0, "undisturbed");
  proof::beforeChange = nullptr;
  note();
  scenario.proof = "power cuts";
  for (const auto& [state, done] : cuts) cutPower(scenario, state, done, scenario.before);
  for (const Files& state : disk.states()) cutPower(scenario, state, calls, scenario.after);
  scenario.proof = "crashes";
  // What stops in a large registry stops in the same states as in a small one.
  for (std::size_t k = 0; k < calls && !scenario.isLarge(); ++k) crash(scenario, k, stride);
}

}  // namespace

int main(int argc, char** argv) {
  const std::size_t stride = proof::isShort(argc, argv) ? 5 : 1;
  return proof::sweepAll(argc, argv, "crashes",
                         [&](Scenario& scenario) { sweep(scenario, stride); });
}
