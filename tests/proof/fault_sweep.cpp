// Every system or stream call of every operation fails once, and from then on, in every way it can:
// the registry holds the old or the new content, nothing leaks, the same handle's next update
// works.
#include <algorithm>
#include <cerrno>
#include <map>
#include <set>

#include "proof/scenario.h"
#include "sysservices/memory.h"

namespace {

using proof::Scenario;

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

void fail(Scenario& scenario, const Fault& fault, bool storing) {
  scenario.begin("call " + std::to_string(fault.k + 1) + " (" + fault.call + ") fails " +
                 (fault.lasts ? "from then on" : "once") + " with " + std::to_string(fault.error));
  scenario.prepare();
  const std::string leftover = readFile(proof::temporary);
  const auto handle = scenario.open();
  const std::size_t descriptors = openDescriptors();
  const std::uint64_t blocks = ossMemBlocksInUse();
  std::size_t calls = 0;
  const Code code = scenario.run(*handle, [&](const std::string& call) {
    const std::size_t number = calls++;
    const bool again = fault.lasts && number > fault.k && call == fault.call;
    return number == fault.k || again ? fault.error : 0;
  });
  scenario.expect(openDescriptors() == descriptors, "a descriptor leaked");
  // The hook that fails a free fails to count it, too.
  scenario.expect(ossMemBlocksInUse() == blocks || fault.call == "free", "memory leaked");
  scenario.expect(code == 0 || genRegFindReturnCode(code) != nullptr, "no code of the registry");
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

void sweep(Scenario& scenario) {
  const std::vector<std::string> made = scenario.calls();
  // The commit begins with a link; where none does, the last rename completes it.
  const auto link = std::find(made.begin(), made.end(), "link");
  const auto rename = std::find(made.rbegin(), made.rend(), "rename");
  const auto commit = link != made.end() ? link - made.begin() : made.rend() - rename - 1;
  for (std::size_t k = 0; k < made.size(); ++k) {
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
}

}  // namespace

int main(int argc, char** argv) { return proof::sweepAll(argc, argv, "faults", sweep); }
