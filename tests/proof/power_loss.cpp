// The power goes after any call of an update. What a file system may then show is built from the
// recorded calls: of the names changed since the last sync of the directory any may have been
// kept, of the bytes written to a file since its last sync none, all, half, or zeros in their
// place. On each such state the library must show the old or the new content, and work.
#include <filesystem>
#include <set>

#include "proof/recorded_calls.h"
#include "proof/subject.h"
#include "support/registry_fixture.h"

namespace {

using proof::Directory;
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
    std::set<std::string> found{durable};
    if (pending.empty()) return found;
    const std::string all = written(durable, pending.size());
    found.insert(all);
    for (std::size_t kept = 0; kept < pending.size(); ++kept) {
      const std::string before = written(durable, kept);
      const std::string behind = written(durable, kept + 1);
      found.insert(behind);
      if (behind.size() <= before.size()) continue;
      found.insert(behind.substr(0, before.size() + (behind.size() - before.size()) / 2));
      // The file has grown, its bytes have not come: none of these, or none of the later ones.
      std::string zeros = all;
      std::fill(zeros.begin() + static_cast<std::ptrdiff_t>(before.size()), zeros.end(), '\0');
      found.insert(zeros);
      std::string hole = all;
      std::fill(hole.begin() + static_cast<std::ptrdiff_t>(before.size()),
                hole.begin() + static_cast<std::ptrdiff_t>(behind.size()), '\0');
      found.insert(hole);
    }
    return found;
  }

  void sync() {
    durable = written(durable, pending.size());
    pending.clear();
  }

 private:
  std::string written(std::string bytes, std::size_t count) const {
    for (std::size_t i = 0; i < count; ++i) {
      const RecordedCall& call = pending[i];
      const std::size_t end = static_cast<std::size_t>(call.offset) + call.bytes.size();
      if (call.kind == Kind::Truncate || bytes.size() < end) bytes.resize(end);
      bytes.replace(static_cast<std::size_t>(call.offset), call.bytes.size(), call.bytes);
    }
    return bytes;
  }
};

// A disk, by what of it is certain and what is not.
class Disk {
 public:
  Disk(const Names& initial, const Directory::Files& files) : names_(initial) {
    for (const auto& [name, bytes] : files) contents_[initial.at(name)].durable = bytes;
  }

  void apply(const RecordedCall& call) {
    switch (call.kind) {
      case Kind::Write:
      case Kind::Truncate:
        contents_[call.file].pending.push_back(call);
        return;
      case Kind::Sync:
        contents_[call.file].sync();
        return;
      case Kind::SyncDirectory:
        names_ = namesWith(~0ul);
        pending_.clear();
        return;
      case Kind::Create:
        contents_[call.file] = {};
        pending_.push_back(call);
        return;
      case Kind::Rename:
      case Kind::Unlink:
        pending_.push_back(call);
        return;
    }
  }

  // Every state that may be found after the power cut.
  std::set<Directory::Files> states() const {
    std::set<Directory::Files> found;
    for (unsigned long kept = 0; kept < 1ul << pending_.size(); ++kept) {
      std::vector<Directory::Files> built{{}};
      for (const auto& [name, file] : namesWith(kept)) {
        std::vector<Directory::Files> longer;
        for (const std::string& bytes : contents_.at(file).possible()) {
          for (const Directory::Files& each : built) {
            longer.push_back(each);
            longer.back().emplace_back(name, bytes);
          }
        }
        built = std::move(longer);
      }
      found.insert(built.begin(), built.end());
    }
    return found;
  }

  // The state that a machine shows that stays up.
  Directory::Files running() const {
    Directory::Files files;
    for (const auto& [name, file] : namesWith(~0ul)) {
      Content content = contents_.at(file);
      content.sync();
      files.emplace_back(name, content.durable);
    }
    return files;
  }

 private:
  // The names when, of the changes since the last sync, those at the set bits were kept.
  Names namesWith(unsigned long kept) const {
    Names names = names_;
    Names now = names_;  // as the running machine saw them
    for (std::size_t i = 0; i < pending_.size(); ++i) {
      const RecordedCall& call = pending_[i];
      const bool keep = (kept >> i & 1) != 0;
      if (call.kind == Kind::Create) {
        now[call.name] = call.file;
        if (keep) names[call.name] = call.file;
        continue;
      }
      const int file = now.at(call.name);
      now.erase(call.name);
      if (keep) names.erase(call.name);
      if (call.kind != Kind::Rename) continue;
      now[call.target] = file;
      if (keep) names[call.target] = file;
    }
    return names;
  }

  Names names_;
  std::vector<RecordedCall> pending_;
  std::map<int, Content> contents_;
};

class Cut {
 public:
  Cut(const Scenario& scenario, const Directory& directory, proof::Report& report)
      : scenario_(scenario), directory_(directory), report_(report) {}

  void run() {
    directory_.prepare(scenario_);
    const Directory::Files files = directory_.files();
    std::vector<std::string> names;
    for (const auto& [name, bytes] : files) names.push_back(name);
    const std::string registry = Directory::registry();
    proof::Recording recording(registry.substr(0, registry.rfind('/')), names);
    report_.expect(scenario_.open()->run(scenario_.step) == 0, scenario_,
                   [] { return "undisturbed"; });
    const std::vector<RecordedCall> calls = recording.calls();

    Disk disk(recording.initial(), files);
    for (std::size_t done = 0;; ++done) {
      for (const Directory::Files& state : disk.states()) judge(state, done, done == calls.size());
      if (done == calls.size()) break;
      disk.apply(calls[done]);
    }
    directory_.prepare(scenario_);
    (void)scenario_.open()->run(scenario_.step);
    report_.expect(disk.running() == directory_.files(), scenario_,
                   [] { return "a call that changes files was not recorded"; });
  }

 private:
  void judge(const Directory::Files& state, std::size_t calls, bool returned) {
    if (!judged_.insert({state, returned}).second) return;
    report_.count(scenario_);
    directory_.restore(state);
    const auto where = [=](const char* what) {
      return [=] {
        std::string told = std::string(what) + " after " + std::to_string(calls) + " calls:";
        for (const auto& [name, bytes] : state) {
          told += " " + name.substr(name.rfind('/') + 1) + " of " + std::to_string(bytes.size());
        }
        return told;
      };
    };
    Records found;
    const bool works = read(scenario_, directory_, &found);
    const bool isNew = found == scenario_.afterwards();
    const bool isOld = !returned && found == scenario_.before();
    if (scenario_.inPlace && !returned && !(works && (isOld || isNew))) {
      expectCommittedStay(found, where("a torn append"));
      return;
    }
    report_.expect(works && (isOld || isNew), scenario_, where("neither old nor new content"));
    const auto handle = scenario_.open();
    const std::string content = directory_.committed();
    report_.expect(nextUpdateKeeps(scenario_, directory_, *handle, content), scenario_,
                   where("the next update"));
  }

  // An append in place that never returned may be torn. The records before it stay: the next
  // update is refused and changes nothing, or it keeps them.
  void expectCommittedStay(const Records& found, const std::function<std::string()>& where) {
    const std::string before = directory_.committed();
    const std::string old = scenario_.flavour->fileOf(scenario_.before());
    const Records records = scenario_.before();
    const bool shown = found.size() >= records.size() && found.size() <= records.size() + 1 &&
                       std::equal(records.begin(), records.end(), found.begin());
    const unsigned int code = scenario_.open()->run({Verb::Add, "next", 9});
    const std::string behind = directory_.committed();
    report_.expect(
        shown && (code == 0 || behind == before) && behind.compare(0, old.size(), old) == 0,
        scenario_, where);
  }

  const Scenario& scenario_;
  const Directory& directory_;
  proof::Report& report_;
  std::set<std::pair<Directory::Files, bool>> judged_;
};

}  // namespace

int main(int argc, char** argv) {
  const Directory directory;
  proof::Report report("power cuts", argc, argv);
  for (const Scenario& scenario : proof::scenarios(!report.isShort())) {
    if (scenario.step.verb == Verb::Get || scenario.step.verb == Verb::Scan) continue;
    Cut(scenario, directory, report).run();
  }
  return report.finish();
}
