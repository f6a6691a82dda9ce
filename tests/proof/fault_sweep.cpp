// Every system or stream call of every operation fails once, and from then on, in every way it can:
// the registry holds the old or the new content, nothing leaks, the same handle's next update
// works.
#include <algorithm>
#include <cerrno>

#include "proof/scenario.h"
#include "sysservices/memory.h"

namespace {

using proof::Scenario;

// The errors that a call can give.
struct Kinds {
  const char* call;
  std::vector<int> errors;
};
const Kinds kinds[] = {
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
    {"mkdir", {EACCES, ENOSPC}},
};

const std::vector<int>& errorsOf(const std::string& call) {
  static const std::vector<int> other{EIO};
  const auto* const row =
      std::find_if(kinds, std::end(kinds), [&](const Kinds& kind) { return call == kind.call; });
  return row == std::end(kinds) ? other : row->errors;
}

class Sweep : proof::Trial {
 public:
  using Trial::Trial;

  void run() {
    undisturbed();
    // A large registry is for the calls that move its bytes.
    const bool isLarge = scenario_.start == proof::Start::Large;
    for (std::size_t k = 0; k < calls_.size(); ++k) {
      if (isLarge && (calls_[k] == "malloc" || calls_[k] == "free")) continue;
      for (const int error : errorsOf(calls_[k])) {
        fail(k, error, false);
        // An interruption or a short transfer that never ends is not a failure but a hang.
        if (error != EINTR && error != OSS_FAULT_SHORT) fail(k, error, true);
      }
    }
  }

 private:
  // Notes the calls of the operation in their order.
  void undisturbed() {
    scenario_.prepare();
    const auto handle = scenario_.open();
    Code code = 0;
    {
      const FaultHook hook([&](const std::string& call) {
        calls_.push_back(call);
        return scenario_.answer(call);
      });
      code = handle->run(scenario_.step);
    }
    expect(code == 0 && shows(new_), [&] { return "undisturbed: code " + std::to_string(code); });
  }

  // What an update wrote before its commit began is not kept when it could not be stored.
  bool isStoring(std::size_t k) const {
    const auto linked = std::find(calls_.begin(), calls_.end(), "link");
    return !scenario_.inPlace && (calls_[k] == "write" || calls_[k] == "fsync") &&
           static_cast<std::ptrdiff_t>(k) < linked - calls_.begin();
  }

  void fail(std::size_t k, int error, bool sticky) {
    scenario_.prepare();
    const std::string& call = calls_[k];
    const auto handle = scenario_.open();
    const std::size_t descriptors = openDescriptors();
    const std::uint64_t blocks = ossMemBlocksInUse();
    Code code = 0;
    {
      std::size_t made = 0;
      const FaultHook hook([&](const std::string& now) {
        const std::size_t number = made++;
        const bool fails = number == k || (sticky && number > k && now == call);
        return fails ? error : scenario_.answer(now);
      });
      code = handle->run(scenario_.step);
    }
    report_.count(scenario_);
    const auto where = [&](const char* what) {
      return [=, &call] {
        return std::string(what) + ": call " + std::to_string(k + 1) + " (" + call + ") fails " +
               (sticky ? "from then on" : "once") + " with " + std::to_string(error) + ", code " +
               std::to_string(code);
      };
    };
    expect(openDescriptors() == descriptors, where("a descriptor leaked"));
    // The hook that fails a free fails to count it, too.
    expect(ossMemBlocksInUse() == blocks || call == "free", where("memory leaked"));
    expect(code == 0 || genRegFindReturnCode(code) != nullptr, where("no code of the registry"));
    const bool failsToStore = (call == "write" || call == "fsync") && error > 0 && error != EINTR;
    // What may not be on the disk is never called done.
    expect(!failsToStore || code != 0, where("success after a failure to store"));
    expect(!failsToStore || !isStoring(k) || !exists(proof::temporary()),
           where("what could not be stored stays"));
    const bool stood =
        scenario_.start != proof::Start::Nothing && scenario_.start != proof::Start::BackupOnly;
    expect(sticky || !stood || exists(proof::registry()),
           where("the registry left under its backup name"));
    const bool repeats = error == EINTR && call != "close";
    expect(!repeats || code == 0, where("an interrupted call must be repeated"));
    const proof::Records* content = code == 0 ? shown({&new_}) : shown({&old_, &new_});
    expect(content != nullptr, where("neither old nor new content"));
    expect(content == nullptr || nextUpdateKeeps(*handle, *content), where("the next update"));
  }

  std::vector<std::string> calls_;
};

}  // namespace

int main(int argc, char** argv) {
  proof::Report report("faults");
  for (const Scenario& scenario : proof::scenarios(!proof::isShort(argc, argv))) {
    Sweep(scenario, report).run();
  }
  return report.finish() ? 0 : 1;
}
