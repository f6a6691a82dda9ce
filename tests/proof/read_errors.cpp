// A read error at every byte of a small file: the reads of an operation bring so many bytes and
// then fail, once or for as long as the disk is ill. Nothing cut short is taken for a record, the
// end of what could be read is not taken for the end of the file, the file stays as it is, and a
// scan goes on with the record that it could not read.
#include <cerrno>

#include "proof/scenario.h"

namespace {

using proof::Record;
using proof::Records;
using proof::Scenario;
using proof::Verb;

// Read number `read` (from 0) brings so many bytes at most; the next one fails.
struct Error {
  std::size_t read;
  int bytes;
  bool lasts;
};

class IllDisk {
 public:
  explicit IllDisk(const Error& error)
      : error_(error), hook_([this](const std::string& call) { return answer(call); }) {}
  bool hasFailed() const { return failed_; }
  std::size_t reads() const { return reads_; }

 private:
  int answer(const std::string& call) {
    if (call != "read") return 0;
    const std::size_t number = reads_++;
    if (number < error_.read || (failed_ && !error_.lasts)) return 0;
    if (number == error_.read && error_.bytes > 0) return ossFaultAtMost(error_.bytes);
    failed_ = true;
    return EIO;
  }

  Error error_;
  std::size_t reads_ = 0;
  bool failed_ = false;
  FaultHook hook_;
};

class Sweep : proof::Trial {
 public:
  using Trial::Trial;

  void run() {
    scenario_.prepare();
    std::size_t reads = 0;
    {
      const IllDisk healthy({SIZE_MAX, 0, false});
      undisturbed_ = scenario_.open()->run(scenario_.step);
      reads = healthy.reads();
    }
    const auto size = static_cast<int>(scenario_.flavour->fileOf(old_).size());
    for (std::size_t read = 0; read < reads; ++read) {
      for (int bytes = 0; bytes <= size; ++bytes) {
        for (const bool lasts : {false, true}) {
          const Error error{read, bytes, lasts};
          scenario_.prepare();
          report_.count(scenario_);
          scenario_.step.verb == Verb::Scan ? scan(error) : operate(error);
        }
      }
    }
  }

 private:
  std::function<std::string()> where(const char* what, const Error& error, Code code) const {
    return [=] {
      return std::string(what) + ": read " + std::to_string(error.read + 1) + " brings " +
             std::to_string(error.bytes) + " bytes, the next fails " +
             (error.lasts ? "from then on" : "once") + ", code " + std::to_string(code);
    };
  }

  // A read may be tried again. What then comes out is what would have come without the error.
  static bool isRight(const Error& error, bool failed, Code code, Code undisturbed) {
    const bool isAnswer = code == 0 || code == GENREG_RC_NOT_FOUND || code == GENREG_RC_END;
    if (failed && error.lasts) return !isAnswer;
    return code == undisturbed || (failed && !isAnswer);
  }

  void operate(const Error& error) {
    const auto handle = scenario_.open();
    Record found;
    Code code = 0;
    bool failed = false;
    {
      const IllDisk disk(error);
      code = handle->run(scenario_.step, &found);
      failed = disk.hasFailed();
    }
    expect(isRight(error, failed, code, undisturbed_), where("the code", error, code));
    expect(scenario_.step.verb != Verb::Get || code != 0 || found == old_.back(),
           where("the record found", error, code));
    const Records& content = code == 0 ? new_ : old_;
    expect(shows(content), where("the content", error, code));
    expect(nextUpdateKeeps(*handle, content), where("the next update", error, code));
  }

  void scan(const Error& error) {
    const auto handle = scenario_.open();
    Records found;
    const auto toEnd = [&] {
      Code code = 0;
      for (Record record; (code = handle->next(&record)) == 0;) found.push_back(record);
      return code;
    };
    bool failed = false;
    Code code = 0;
    {
      const IllDisk disk(error);
      expect(handle->openScan() == 0, where("OpenScan", error, 0));
      code = toEnd();
      failed = disk.hasFailed();
      for (int again = 0; error.lasts && failed && again < 2; ++again) {
        expect(toEnd() == code, where("the same error again", error, code));
      }
    }
    expect(isRight(error, failed, code, GENREG_RC_END), where("the end", error, code));
    if (code != GENREG_RC_END) code = toEnd();
    expect(code == GENREG_RC_END && found == old_, where("the scan goes on", error, code));
    expect(handle->closeScan() == 0, where("CloseScan", error, code));
  }

  Code undisturbed_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  proof::Report report("read errors");
  const bool isShort = proof::isShort(argc, argv);
  std::vector<Scenario> chosen = proof::scenarios(!isShort);
  // A search for what is not there reads the whole file.
  for (const proof::Flavour& flavour : proof::flavours) {
    chosen.push_back({&flavour, 0, false, true, proof::Start::Clean, {Verb::Get, "missing"}});
  }
  for (const Scenario& scenario : chosen) {
    if (scenario.start == proof::Start::Clean && scenario.links) Sweep(scenario, report).run();
  }
  return report.finish() ? 0 : 1;
}
