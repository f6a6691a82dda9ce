// Every system or stream call of every operation fails once, and from then on, in every way it can:
// the registry holds the old or the new content, nothing leaks, the same handle's next update
// works. So it is when another call fails while the first failure is dealt with, and when one fails
// in the update after one that kept failing or was killed.
#include <algorithm>
#include <cerrno>
#include <map>
#include <set>

#include "proof/scenario.h"
#include "sysservices/memory.h"

namespace {

using proof::Records;
using proof::Scenario;
using proof::Verb;

#ifndef EDQUOT
constexpr int EDQUOT = ENOSPC;  // not every system tells the two apart
#endif

// The errors that each call can give; the others give EIO.
const std::map<std::string, std::vector<int>> errors{
    {"malloc", {ENOMEM}},
    {"free", {EINVAL}},
    {"fopen", {ENOMEM}},
    {"open", {EACCES, EMFILE, EIO, ENOSPC, EINTR}},
    {"stat", {EACCES, EIO}},
    {"flock", {ENOLCK, EWOULDBLOCK, EINTR}},
    {"read", {EIO, EINTR, OSS_FAULT_SHORT}},
    {"write", {EIO, ENOSPC, EDQUOT, EINTR, OSS_FAULT_SHORT}},
    {"fsync", {EIO, ENOSPC, EINTR}},
    {"close", {EIO, ENOSPC}},
    {"fchmod", {EPERM, EROFS}},
    {"link", {EACCES, EIO, ENOSPC, EROFS, EPERM, EMLINK}},
    {"rename", {EACCES, EIO, ENOSPC, EROFS}},
    {"unlink", {EACCES, EIO, EROFS}},
};

// What differs in a registry of more than one buffer.
const std::set<std::string> bytesMovers{"read", "write", "fsync", "ftruncate"};

struct Fault {
  std::size_t k;  // of which call
  std::string call;
  int error;
  bool lasts;

  // What must be on the disk before the commit, or in place ever.
  bool keepsFromStoring() const {
    return (call == "write" || call == "fsync") && error > 0 && error != EINTR;
  }
};

// What an operation must leave as it was.
struct Possessions {
  std::size_t descriptors = openDescriptors();
  std::uint64_t blocks = ossMemBlocksInUse();

  void expectKept(const Scenario& scenario, Code code, bool freeFails = false) const {
    // A handle that keeps its reads may give them up, or index them.
    const std::size_t open = openDescriptors();
    scenario.expect(scenario.keeps ? open <= descriptors : open == descriptors,
                    "a descriptor leaked");
    // The hook that fails a free fails to count it, too.
    scenario.expect(ossMemBlocksInUse() == blocks || freeFails || scenario.keeps, "memory leaked");
    scenario.expect(code == 0 || genRegFindReturnCode(code) != nullptr, "no code of the registry");
  }
};

void fail(Scenario& scenario, const Fault& fault, bool storing) {
  scenario.begin("call " + std::to_string(fault.k + 1) + " (" + fault.call + ") fails " +
                 (fault.lasts ? "from then on" : "once") + " with " + std::to_string(fault.error));
  scenario.prepare();
  const std::string leftover = readFile(proof::temporary);
  const auto handle = scenario.open();
  const Possessions before;
  std::size_t calls = 0;
  const Code code = scenario.run(*handle, [&](const std::string& call) {
    const std::size_t number = calls++;
    const bool again = fault.lasts && number > fault.k && call == fault.call;
    return number == fault.k || again ? fault.error : 0;
  });
  before.expectKept(scenario, code, fault.call == "free");
  if (fault.keepsFromStoring()) {
    scenario.expect(code != 0, "success after a failure to store");
    const bool stays =
        exists(proof::temporary) && (leftover.empty() || readFile(proof::temporary) != leftover);
    scenario.expect(!storing || !stays, "what could not be stored stays");
  }
  const bool mayMiss = fault.lasts || !scenario.start->registry;
  scenario.expect(mayMiss || exists(proof::registry), "only the backup name stays");
  const bool repeats = fault.error == EINTR && fault.call != "close";
  scenario.expect(!repeats || code == 0, "an interrupted call must be repeated");
  scenario.expectEither(scenario.after, code == 0 ? scenario.after : scenario.before, *handle);
}

// Fails the call of a number, perhaps every such call from then on, in the way that is tried first.
struct Failing {
  std::size_t k;
  bool lasts = false;
  std::size_t calls = 0;
  std::string name = {};

  int operator()(const std::string& call) {
    const bool isFirst = calls++ == k;
    if (isFirst) name = call;
    if (!isFirst && !(lasts && call == name)) return 0;
    const auto known = errors.find(call);
    return known == errors.end() ? EIO : known->second.front();
  }
  bool came() const { return calls > k; }
  std::string shown() const {
    return "call " + std::to_string(k + 1) + " fails" + (lasts ? " from then on, " : ", ");
  }
};

// Another call of the same operation fails. False when there was none to fail.
bool failTwice(Scenario& scenario, Failing first, Failing second) {
  scenario.begin(first.shown() + second.shown());
  scenario.prepare();
  const auto handle = scenario.open();
  const Possessions before;
  const Code code = scenario.run(
      *handle, [&](const std::string& call) { return std::max(first(call), second(call)); });
  before.expectKept(scenario, code, first.name == "free" || second.name == "free");
  scenario.expectEither(scenario.after, code == 0 ? scenario.after : scenario.before, *handle);
  return second.came();
}

// A call of the next update fails, after one that kept failing or was killed instead.
bool failNext(Scenario& scenario, Failing first, Failing second, bool isKilled) {
  scenario.begin(first.shown() + (isKilled ? "killed, " : "") + "then " + second.shown());
  scenario.prepare();
  const auto handle = scenario.open();
  const auto killed = [&](const std::string&) {
    if (first.calls++ == first.k) killThisProcess();
    return 0;
  };
  if (isKilled) {
    (void)inChild([&] { return static_cast<int>(scenario.run(*handle, killed)); });
  } else {
    (void)scenario.run(*handle, std::ref(first));
  }
  const bool isNew = scenario.shows(scenario.after);
  const Records& content = isNew ? scenario.after : scenario.before;
  scenario.expect(isNew || scenario.shows(content), "neither old nor new content");
  Records longer = content;
  longer.push_back({"other", 8});
  const Possessions before;
  scenario.disturb = std::ref(second);
  const Code code = handle->run(Verb::Add, longer.back());
  scenario.disturb = nullptr;
  before.expectKept(scenario, code, second.name == "free");
  scenario.expectEither(longer, code == 0 ? longer : content, *handle);
  return second.came();
}

// What is killed says nothing of what a sanitizer has seen, and takes far longer.
#ifdef __SANITIZE_ADDRESS__
constexpr bool kills = false;
constexpr std::size_t sampled = 5;  // the paths are the same for most calls of a kind
#else
constexpr std::size_t sampled = 1;
const bool kills = lacking(Need::Forks) == nullptr;
#endif

// Of `stride` second failures one is tried.
void sweepPairs(Scenario& scenario, std::size_t calls, std::size_t stride) {
  if (!scenario.isClean() || scenario.reads() || scenario.entry.value > 100) return;
  // Modes and file systems differ in the session, which all flavours share.
  const bool isBinary = scenario.flavour == flavours::rows;
  if (!isBinary && (scenario.features != 0 || !scenario.links)) return;
  scenario.proof = "compound faults";
  for (std::size_t k = 0; k < calls; ++k) {
    const std::size_t from = k % stride;
    for (std::size_t j = k + 1 + from; failTwice(scenario, {k}, {j}); j += stride) continue;
    for (std::size_t j = from; failNext(scenario, {k, true}, {j}, false); j += stride) continue;
    for (std::size_t j = from; kills && failNext(scenario, {k}, {j}, true); j += stride) continue;
  }
}

// Of `step` calls one fails, of `stride` second failures one is tried.
void sweep(Scenario& scenario, std::size_t step, std::size_t stride) {
  const std::vector<std::string> made = scenario.calls();
  // The commit begins with a link; where none does, the last rename completes it.
  const auto link = std::find(made.begin(), made.end(), "link");
  const auto rename = std::find(made.rbegin(), made.rend(), "rename");
  const auto commit = link != made.end() ? link - made.begin() : made.rend() - rename - 1;
  for (std::size_t k = 0; k < made.size(); k += step) {
    if (scenario.isLarge() && bytesMovers.count(made[k]) == 0) continue;
    const bool storing = static_cast<std::ptrdiff_t>(k) < commit && !scenario.inPlace();
    const auto known = errors.find(made[k]);
    for (const int error : known == errors.end() ? std::vector<int>{EIO} : known->second) {
      fail(scenario, {k, made[k], error, false}, storing);
      // An interruption or a short transfer that never ends is not a failure but a hang, and so
      // is a lock that somebody else never gives back.
      const bool hangs = error == EINTR || error == OSS_FAULT_SHORT || error == EWOULDBLOCK;
      if (!hangs) fail(scenario, {k, made[k], error, true}, storing);
    }
  }
  sweepPairs(scenario, made.size(), stride);
}

}  // namespace

int main(int argc, char** argv) {
  const bool isShort = proof::isShort(argc, argv);
  return proof::sweepAll(argc, argv, "faults", [&](Scenario& scenario) {
    sweep(scenario, isShort ? sampled : 1, isShort ? 101 : 1);
  });
}
