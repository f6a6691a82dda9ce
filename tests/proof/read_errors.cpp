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

  int operator()(const std::string& call) {
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

void operate(Scenario& scenario, IllDisk& disk, Code undisturbed) {
  const auto handle = scenario.open();
  const Code code = scenario.run(*handle, std::ref(disk));
  scenario.expect(disk.allows(code, undisturbed), "the code");
  if (scenario.verb == Verb::Get && code == 0) {
    scenario.expect(handle->found() == scenario.before.back(), "the record found");
  }
  const Records& content = code == 0 ? scenario.after : scenario.before;
  scenario.expectEither(content, content, *handle);
}

void scan(Scenario& scenario, IllDisk& disk) {
  const auto handle = scenario.open();
  Records found;
  const auto toEnd = [&] {
    Code code = 0;
    while ((code = handle->next()) == 0) found.push_back(handle->found());
    return code;
  };
  scenario.disturb = std::ref(disk);
  scenario.expect(handle->openScan() == 0, "OpenScan");
  Code code = toEnd();
  const bool again = code == GENREG_RC_END || !disk.lasts || toEnd() == code;
  scenario.expect(again, "the same error again");
  scenario.disturb = nullptr;
  scenario.expect(disk.allows(code, GENREG_RC_END), "the end");
  if (code != GENREG_RC_END) code = toEnd();
  scenario.expect(code == GENREG_RC_END && found == scenario.before, "the scan goes on");
  scenario.expect(handle->closeScan() == 0, "CloseScan");
}

void sweep(Scenario& scenario) {
  if (!scenario.isClean() || !scenario.links) return;
  IllDisk healthy{SIZE_MAX, 0, false};
  scenario.prepare();
  const Code undisturbed = scenario.run(*scenario.open(), std::ref(healthy));
  const auto size = static_cast<int>(scenario.fileOf(scenario.before).size());
  for (std::size_t read = 0; read < healthy.reads; ++read) {
    for (int bytes = 0; bytes <= size; ++bytes) {
      for (const bool lasts : {false, true}) {
        scenario.begin("read " + std::to_string(read + 1) + " brings " + std::to_string(bytes) +
                       " bytes, the next fails " + (lasts ? "from then on" : "once"));
        scenario.prepare();
        IllDisk disk{read, bytes, lasts};
        scenario.verb == Verb::Scan ? scan(scenario, disk) : operate(scenario, disk, undisturbed);
      }
    }
  }
  // A search for what is not there reads the whole file.
  if (scenario.verb != Verb::Get || scenario.entry.name == "missing") return;
  scenario.entry = {"missing"};
  sweep(scenario);
}

}  // namespace

int main(int argc, char** argv) { return proof::sweepAll(argc, argv, "read errors", sweep); }
