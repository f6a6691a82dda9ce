// A read error at every byte of a small file: the reads of an operation bring so many bytes and
// then fail, once or for as long as the disk is ill. Nothing cut short is taken for a record, the
// end of what could be read is not taken for the end of the file, the file stays as it is, and a
// scan goes on with the record that it could not read.
#include <cerrno>

#include "proof/scenario.h"

namespace {

using proof::Records;
using proof::Scenario;
using proof::Verb;

// Read number `read` (from 0) brings so many bytes at most; the next one fails.
struct IllDisk {
  std::size_t read;
  int bytes;
  bool lasts;
  std::size_t reads = 0;
  bool failed = false;

  int answer(const std::string& call) {
    if (call != "read") return 0;
    const std::size_t number = reads++;
    if (number < read || (failed && !lasts)) return 0;
    if (number == read && bytes > 0) return ossFaultAtMost(bytes);
    failed = true;
    return EIO;
  }
  // A read may be tried again. What then comes out is what would have come without the error.
  bool allows(Code code, Code undisturbed) const {
    const bool isAnswer = code == 0 || code == GENREG_RC_NOT_FOUND || code == GENREG_RC_END;
    if (failed && lasts) return !isAnswer;
    return code == undisturbed || (failed && !isAnswer);
  }
};

class Sweep : proof::Trial {
 public:
  using Trial::Trial;

  void run() {
    IllDisk healthy{SIZE_MAX, 0, false};
    scenario_.prepare();
    undisturbed_ = runOn(healthy, *scenario_.open());
    const auto size = static_cast<int>(scenario_.fileOf(old_).size());
    for (std::size_t read = 0; read < healthy.reads; ++read) {
      for (int bytes = 0; bytes <= size; ++bytes) {
        for (const bool lasts : {false, true}) {
          begin("read " + std::to_string(read + 1) + " brings " + std::to_string(bytes) +
                " bytes, the next fails " + (lasts ? "from then on" : "once"));
          scenario_.prepare();
          IllDisk disk{read, bytes, lasts};
          scenario_.verb == Verb::Scan ? scan(disk) : operate(disk);
        }
      }
    }
  }

 private:
  Code runOn(IllDisk& disk, proof::Handle& handle) const {
    return Trial::run(handle,
                      [&](std::size_t, const std::string& call) { return disk.answer(call); });
  }

  void operate(IllDisk& disk) {
    const auto handle = scenario_.open();
    const Code code = runOn(disk, *handle);
    expect(disk.allows(code, undisturbed_), "the code");
    if (scenario_.verb == Verb::Get && code == 0) {
      expect(handle->found() == old_.back(), "the record found");
    }
    const Records& content = code == 0 ? new_ : old_;
    expectEither(content, content, *handle);
  }

  void scan(IllDisk& disk) {
    const auto handle = scenario_.open();
    Records found;
    const auto toEnd = [&] {
      Code code = 0;
      while ((code = handle->next()) == 0) found.push_back(handle->found());
      return code;
    };
    Code code = 0;
    {
      const FaultHook hook([&](const std::string& call) { return disk.answer(call); });
      expect(handle->openScan() == 0, "OpenScan");
      code = toEnd();
      if (code != GENREG_RC_END && disk.lasts) expect(toEnd() == code, "the same error again");
    }
    expect(disk.allows(code, GENREG_RC_END), "the end");
    if (code != GENREG_RC_END) code = toEnd();
    expect(code == GENREG_RC_END && found == old_, "the scan goes on");
    expect(handle->closeScan() == 0, "CloseScan");
  }

  Code undisturbed_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  std::vector<Scenario> chosen;
  for (const Scenario& scenario : proof::scenarios(proof::isShort(argc, argv))) {
    if (scenario.start != proof::Start::Clean || !scenario.links) continue;
    chosen.push_back(scenario);
    if (scenario.verb != Verb::Get) continue;
    // A search for what is not there reads the whole file.
    chosen.push_back(scenario);
    chosen.back().entry = {"missing"};
  }
  return proof::sweepAll<Sweep>("read errors", chosen);
}
