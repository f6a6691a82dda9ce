// Every system or stream call of every operation fails once, and from then on, in every way it can:
// the registry holds the old or the new content, nothing leaks, the same handle's next update
// works.
#include <cerrno>

#include "proof/subject.h"
#include "support/registry_fixture.h"
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
    {"fstat", {EIO}},
    {"lseek", {EIO}},
    {"flock", {ENOLCK, EWOULDBLOCK, EINTR}},
    {"read", {EIO, EINTR, OSS_FAULT_SHORT}},
    {"write", {EIO, ENOSPC, EDQUOT, EINTR, OSS_FAULT_SHORT}},
    {"ftruncate", {EIO}},
    {"fsync", {EIO, ENOSPC, EINTR}},
    {"close", {EIO, ENOSPC}},
    {"fchmod", {EPERM, EROFS}},
    {"rename", {EACCES, EIO, ENOSPC, EROFS}},
    {"unlink", {EACCES, EIO, EROFS}},
    {"mkdir", {EACCES, ENOSPC}},
};

const std::vector<int>& errorsOf(const std::string& call) {
  for (const Kinds& row : kinds) {
    if (call == row.call) return row.errors;
  }
  static const std::vector<int> other{EIO};
  return other;
}

class Sweep : proof::Trial {
 public:
  using Trial::Trial;

  void run() {
    const std::vector<std::string> calls = undisturbed();
    // A large registry is for the calls that move its bytes.
    const bool isLarge = scenario_.start == proof::Start::Large;
    for (std::size_t k = 0; k < calls.size(); ++k) {
      if (isLarge && (calls[k] == "malloc" || calls[k] == "free")) continue;
      for (const int error : errorsOf(calls[k])) {
        fail(k, calls[k], error, false);
        // An interruption or a short transfer that never ends is not a failure but a hang.
        if (error != EINTR && error != OSS_FAULT_SHORT) fail(k, calls[k], error, true);
      }
    }
  }

 private:
  // The calls of the operation in their order.
  std::vector<std::string> undisturbed() {
    std::vector<std::string> calls;
    directory_.prepare(scenario_);
    const auto handle = scenario_.open();
    FaultHook hook([&](const std::string& call) {
      calls.push_back(call);
      return 0;
    });
    const unsigned int code = handle->run(scenario_.step);
    report_.expect(code == 0 && directory_.committed() == new_, scenario_,
                   [&] { return "undisturbed: code " + std::to_string(code); });
    return calls;
  }

  void fail(std::size_t k, const std::string& call, int error, bool sticky) {
    directory_.prepare(scenario_);
    const auto handle = scenario_.open();
    const std::size_t descriptors = openDescriptors();
    const std::uint64_t blocks = ossMemBlocksInUse();
    unsigned int code = 0;
    {
      std::size_t made = 0;
      FaultHook hook([&](const std::string& now) {
        const std::size_t number = made++;
        return number == k || (sticky && number > k && now == call) ? error : 0;
      });
      code = handle->run(scenario_.step);
    }
    report_.count(scenario_);
    const auto where = [&](const char* what) {
      return [=, &code] {
        return std::string(what) + ": call " + std::to_string(k + 1) + " (" + call + ") fails " +
               (sticky ? "from then on" : "once") + " with " + std::to_string(error) + ", code " +
               std::to_string(code);
      };
    };
    const bool documented = code == 0 || genRegFindReturnCode(code) != nullptr;
    report_.expect(documented, scenario_, where("no code of the registry"));
    const std::string content = directory_.committed();
    report_.expect(content == new_ || (code != 0 && content == old_), scenario_,
                   where("neither old nor new content"));
    report_.expect(openDescriptors() == descriptors, scenario_, where("a descriptor leaked"));
    // The hook that fails a free fails to count it, too.
    report_.expect(ossMemBlocksInUse() == blocks || call == "free", scenario_,
                   where("memory leaked"));
    // What may not be on the disk is never called done.
    const bool lost = (call == "write" || call == "fsync") && error > 0 && error != EINTR;
    report_.expect(!lost || code != 0, scenario_, where("success after a failure to store"));
    const bool stood =
        scenario_.start != proof::Start::Nothing && scenario_.start != proof::Start::BackupOnly;
    report_.expect(sticky || !stood || exists(proof::Directory::registry()), scenario_,
                   where("the registry left under its backup name"));
    const bool repeats = error == EINTR && call != "close";
    report_.expect(!repeats || code == 0, scenario_, where("an interrupted call must be repeated"));
    report_.expect(proof::nextUpdateKeeps(scenario_, directory_, *handle, content), scenario_,
                   where("the next update"));
  }
};

}  // namespace

int main(int argc, char** argv) {
  const proof::Directory directory;
  proof::Report report("faults", argc, argv);
  for (const Scenario& scenario : proof::scenarios(!report.isShort())) {
    Sweep(scenario, directory, report).run();
  }
  return report.finish();
}
