// An update stops before each call with which it changes a file or the directory.
// A crash: what the calls before it did stands, and the next update stops before each of its calls,
// too. The stop is simulated by refusing all later calls; that this leaves what a killed process
// leaves is tried with processes that are killed.
// A power cut: of the names changed since the last sync of the directory any may have been kept, of
// the bytes written to a file since its last sync none, all, half, or zeros in their place.
// In each state the library must show the old or the new content, and work.
#include <signal.h>

#include <algorithm>
#include <set>

#include "proof/recorded_calls.h"
#include "proof/scenario.h"

namespace {

using proof::File;
using proof::Files;
using proof::RecordedCall;
using proof::Records;
using proof::Scenario;
using proof::Verb;
using Kind = RecordedCall::Kind;
using Names = std::map<std::string, int>;

struct Content {
  std::string durable;
  std::vector<RecordedCall> pending;  // Write and Truncate since the last sync

  // What may be found of it.
  std::set<std::string> possible() const {
    const std::string all = written(pending.size());
    std::set<std::string> found{durable, all};
    for (std::size_t kept = 0; kept < pending.size(); ++kept) {
      const std::string before = written(kept);
      const std::string behind = written(kept + 1);
      found.insert(behind);
      if (behind.size() <= before.size())
        continue;  // the few bytes of a length reach the disk whole
      found.insert(behind.substr(0, before.size() + (behind.size() - before.size()) / 2));
      // The file has grown, its bytes have not come: none of these, or none of the later ones.
      for (const std::size_t end : {all.size(), std::min(behind.size(), all.size())}) {
        std::string hole = all;
        std::fill(hole.begin() + static_cast<std::ptrdiff_t>(std::min(before.size(), end)),
                  hole.begin() + static_cast<std::ptrdiff_t>(end), '\0');
        found.insert(hole);
      }
    }
    return found;
  }

  void sync() {
    durable = written(pending.size());
    pending.clear();
  }

 private:
  std::string written(std::size_t count) const {
    std::string bytes = durable;
    for (std::size_t i = 0; i < count; ++i) {
      const RecordedCall& call = pending[i];
      const auto end = static_cast<std::size_t>(call.offset) + call.bytes.size();
      if (call.kind == Kind::Truncate || bytes.size() < end) bytes.resize(end);
      bytes.replace(static_cast<std::size_t>(call.offset), call.bytes.size(), call.bytes);
    }
    return bytes;
  }
};

// A disk, by what of it is certain and what is not.
class Disk {
 public:
  Disk(const Names& initial, const Files& files) : names_(initial) {
    for (const File& file : files) contents_[initial.at(file.name)].durable = file.bytes;
  }

  void apply(const RecordedCall& call) {
    Content& content = contents_[call.file];
    if (call.kind == Kind::Write || call.kind == Kind::Truncate) {
      content.pending.push_back(call);
    } else if (call.kind == Kind::Sync) {
      content.sync();
    } else if (call.kind == Kind::SyncDirectory) {
      names_ = namesWith(~0ul);
      pending_.clear();
    } else {
      pending_.push_back(call);
    }
  }

  // Every state that may be found after the power cut.
  std::set<Files> states() const {
    std::set<Files> found;
    for (unsigned long kept = 0; kept < 1ul << pending_.size(); ++kept) {
      for (Files& state : statesWith(kept, false)) found.insert(std::move(state));
    }
    return found;
  }

  // The state that a machine shows that stays up.
  Files running() const { return statesWith(~0ul, true).front(); }

 private:
  // The names when, of the changes since the last sync, those at the set bits were kept.
  Names namesWith(unsigned long kept) const {
    Names names = names_;
    Names now = names_;  // as the running machine saw them
    for (std::size_t i = 0; i < pending_.size(); ++i) {
      const RecordedCall& call = pending_[i];
      const int file = call.kind == Kind::Create ? call.file : now.at(call.name);
      for (Names* each : {&now, &names}) {
        if (each == &names && (kept >> i & 1) == 0) continue;
        if (call.kind == Kind::Rename || call.kind == Kind::Unlink) each->erase(call.name);
        if (call.kind != Kind::Unlink) {
          (*each)[call.kind == Kind::Create ? call.name : call.target] = file;
        }
      }
    }
    return names;
  }

  std::vector<Files> statesWith(unsigned long kept, bool isRunning) const {
    std::vector<Files> built{{}};
    std::map<int, std::string> first;
    std::vector<Files> longer;
    for (const auto& [name, file] : namesWith(kept)) {
      const auto [known, isFirst] = first.emplace(file, name);
      longer.clear();
      Content content = contents_.at(file);
      if (isRunning) content.sync();
      for (const Files& each : built) {
        const auto twin =
            std::find_if(each.begin(), each.end(),
                         [&, of = known->second](const File& other) { return other.name == of; });
        std::set<std::string> bytes;
        if (isFirst) {
          bytes = content.possible();
        } else {
          bytes.insert(twin->bytes);
        }
        for (const std::string& some : bytes) {
          longer.push_back(each);
          longer.back().push_back({name, some, isFirst ? "" : known->second});
        }
      }
      built.swap(longer);
    }
    return built;
  }

  Names names_;
  std::vector<RecordedCall> pending_;
  std::map<int, Content> contents_;
};

// What is left of a lock file says which files there were; they are others each time.
Files withoutLock(Files files) {
  for (File& file : files) {
    if (file.name == proof::lockFile()) file.bytes.clear();
  }
  return files;
}

struct Form {
  std::size_t killed;  // of how many stops one is tried with a killed process, too
  std::size_t again;   // of how many stops of the next update one is tried
};

class Sweep : proof::Trial {
 public:
  Sweep(const Scenario& scenario, const Form& form, proof::Report& crashes, proof::Report& cuts)
      : Trial(scenario, crashes), form_(form), cuts_(cuts) {}

  void run() {
    const FaultHook surroundings = scenario_.surroundings();
    scenario_.prepare();
    const Files start = proof::files();
    std::vector<RecordedCall> calls;
    Names initial;
    {
      const proof::Recording recording;
      expect(scenario_.open()->run(scenario_.step) == 0, [] { return "undisturbed"; });
      calls = recording.calls();
      initial = recording.initial();
    }
    const Files end = proof::files();
    Disk disk(initial, start);
    for (std::size_t done = 0;; ++done) {
      for (const Files& state : disk.states()) cutPower(state, done, done == calls.size());
      if (done == calls.size()) break;
      disk.apply(calls[done]);
    }
    expect(disk.running() == end, [] { return "a call that changes files was not recorded"; });
    for (std::size_t k = 0; k < calls.size(); ++k) crash(k);
  }

 private:
  using Step = proof::Step;

  void cutPower(const Files& state, std::size_t calls, bool returned) {
    if (!judged_.insert({state, returned}).second) return;
    cuts_.count(scenario_);
    proof::restore(state);
    const auto where = [&](const char* what) {
      return [=, &state] {
        std::string text = std::string(what) + " after " + std::to_string(calls) + " calls:";
        for (const File& file : state) {
          text += " " + file.name.substr(file.name.rfind('/') + 1) + " of " +
                  std::to_string(file.bytes.size()) + (file.twin.empty() ? "" : " (link)");
        }
        return text;
      };
    };
    const Records* content = returned ? shown({&new_}) : shown({&old_, &new_});
    cuts_.expect(content != nullptr, scenario_, where("neither old nor new content"));
    cuts_.expect(content == nullptr || nextUpdateKeeps(*scenario_.open(), *content), scenario_,
                 where("the next update"));
  }

  // Runs the scenario's step up to call `k`; what the registry then shows.
  const Records* stopBefore(std::size_t k) {
    scenario_.prepare();
    {
      const proof::Recording recording(k);
      (void)scenario_.open()->run(scenario_.step);
    }
    return shown({&old_, &new_});
  }

  void crash(std::size_t k) {
    const auto where = [=](const char* what, std::size_t j) {
      return [=] {
        return std::string(what) + " after a stop before change " + std::to_string(k) +
               " and, in the next update, " + std::to_string(j);
      };
    };
    report_.count(scenario_);
    const Records* content = stopBefore(k);
    expect(content != nullptr, where("the content", 0));
    if (k % form_.killed == 0) beKilled(k);
    // A verified update is the one that sets aside and puts back most.
    const Step other{Verb::Add, "other", 8};
    for (std::size_t j = k % form_.again; content != nullptr; j += form_.again) {
      content = stopBefore(k);
      if (content == nullptr) break;  // reported above
      Records longer = *content;
      longer.emplace_back(other.name, other.value);
      bool ended = false;
      {
        const proof::Recording recording(j);
        const Code code = scenario_.flavour->open(0)->run(other);
        ended = recording.hasEnded();
        expect(ended || code == 0, where("no success", j));
      }
      report_.count(scenario_);
      const Records* now = ended ? shown({content, &longer}) : shown({&longer});
      expect(now != nullptr, where("the content", j));
      expect(now == nullptr || nextUpdateKeeps(*scenario_.open(), *now),
             where("the next update", j));
      if (!ended) break;
    }
  }

  // The same stop by a signal leaves the same files.
  void beKilled(std::size_t k) {
    const Files left = withoutLock(proof::files());
    scenario_.prepare();
    const int ended = inChild([&] {
      const proof::Recording recording(k, proof::End::Killed);
      return scenario_.open()->run(scenario_.step) == 0 ? 0 : 1;
    });
    expect(ended == -SIGKILL && withoutLock(proof::files()) == left,
           [=] { return "a process killed before change " + std::to_string(k); });
    report_.count(scenario_);
  }

  const Form form_;
  proof::Report& cuts_;
  std::set<std::pair<Files, bool>> judged_;
};

}  // namespace

int main(int argc, char** argv) {
  const bool isShort = proof::isShort(argc, argv);
  proof::Report crashes("crashes");
  proof::Report cuts("power cuts");
  for (const Scenario& scenario : proof::scenarios(!isShort)) {
    if (scenario.step.verb == Verb::Get || scenario.step.verb == Verb::Scan) continue;
    // What stops in a large registry stops in the same states as in a small one.
    const bool isLarge = scenario.start == proof::Start::Large;
    Sweep(scenario, isShort || isLarge ? Form{7, 5} : Form{1, 1}, crashes, cuts).run();
  }
  const bool survived = crashes.finish();
  return cuts.finish() && survived ? 0 : 1;
}
