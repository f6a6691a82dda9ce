// The library's promise under failure: whatever system call fails, or wherever the process dies,
// the registry holds the old or the new content, nothing leaks, and the next operation works.
#include <signal.h>

#include <cerrno>
#include <filesystem>
#include <map>

#include "support/operations.h"

namespace {

enum class Verb { Add, Change, Delete, Get, Scan };
struct Step {
  Verb verb;
  const char* name = "";
  int value = 0;
};

// A handle of some flavour.
class Subject {
 public:
  virtual ~Subject() = default;
  virtual Code run(const Step& step) = 0;
};

template <typename Flavour, typename Record>
class FlavourSubject : public Subject {
 public:
  FlavourSubject(const std::string& path, std::uint64_t features) : handle_(path, features) {}

  Code run(const Step& step) override {
    const std::string text = std::to_string(step.value);
    Record record{};
    Record found;
    if constexpr (std::is_same_v<Record, BinVarValRecord>) {
      record = variable(step.name, step.value);
    } else {
      record = {VARVAL_HAS_VARIABLE, nullptr, step.name, text.c_str(), {}};
    }
    if (step.verb == Verb::Add) return handle_.Add(byName, &record);
    if (step.verb == Verb::Change) return handle_.Change(byName, &record, &record);
    if (step.verb == Verb::Delete) return handle_.Delete(byName, &record);
    if (step.verb == Verb::Get) return handle_.Get(byName, &record, &found);
    return scan<Record>(handle_);
  }

 private:
  Exposed<Flavour> handle_;
};

template <typename Flavour, typename Record>
std::unique_ptr<Subject> make(const std::string& path, std::uint64_t features) {
  return std::make_unique<FlavourSubject<Flavour, Record>>(path, features);
}

// A flavour, and its records as they stand in the file.
struct Kind {
  std::unique_ptr<Subject> (*make)(const std::string& path, std::uint64_t features);
  std::string (*record)(const char* name, int value);
};
const Kind binary{make<GenRegBinVarVal, BinVarValRecord>,
                  [](const char* name, int value) { return frame(variable(name, value)); }};
const Kind text{make<GenRegVarVal, VarValRecord>, [](const char* name, int value) {
                  return std::string(name) + " = " + std::to_string(value) + "\n";
                }};

// What is there before the operation.
enum class Start {
  Clean,
  Nothing,          // no registry file
  BackupOnly,       // a crash between the renames
  StaleBackup,      // a crash after them
  TemporaryAndOld,  // an update that did not finish, and one before it
};

// An operation on the records a = 1 and b = 2.
struct Sweep {
  const char* name;
  Kind kind;
  std::uint64_t features;
  Start start;
  Step step;
};

const Step addNew{Verb::Add, "new", 3};
const Step changeB{Verb::Change, "b", 22};
const Step removeA{Verb::Delete, "a"};
const Step getB{Verb::Get, "b"};
const Step scanAll{Verb::Scan};
constexpr std::uint64_t unverifiedUnique = GENREG_NOTIFY_CHANGE;

const Sweep sweeps[] = {
    {"Add", binary, verified, Start::Clean, addNew},
    {"FirstAdd", binary, verified, Start::Nothing, addNew},
    {"AddUnverified", binary, unverifiedUnique, Start::Clean, addNew},
    {"AddInPlace", binary, unverified, Start::Clean, addNew},
    {"AddAfterCrash", binary, verified, Start::BackupOnly, addNew},
    {"AddInPlaceAfterCrash", binary, unverified, Start::BackupOnly, addNew},
    {"AddUniqueAfterCrash", binary, unverifiedUnique, Start::BackupOnly, addNew},
    {"GetAfterCrash", binary, verified, Start::BackupOnly, getB},
    {"ChangeBesideBackup", binary, verified, Start::StaleBackup, changeB},
    {"DeleteAfterFailure", binary, verified, Start::TemporaryAndOld, removeA},
    {"Change", binary, verified, Start::Clean, changeB},
    {"Delete", binary, verified, Start::Clean, removeA},
    {"DeleteUnverified", binary, unverified, Start::Clean, removeA},
    {"Get", binary, verified, Start::Clean, getB},
    {"Scan", binary, verified, Start::Clean, scanAll},
    {"TextAdd", text, unique, Start::Clean, addNew},
    {"TextAddInPlace", text, unverified, Start::Clean, addNew},
    {"TextChange", text, verified, Start::Clean, changeB},
    {"TextDelete", text, verified, Start::Clean, removeA},
    {"TextGet", text, verified, Start::Clean, getB},
    {"TextScan", text, verified, Start::Clean, scanAll},
};

class FaultTest : public RegistryTest, public ::testing::WithParamInterface<Sweep> {
 protected:
  void start() {
    clearDirectory();
    const Start state = GetParam().start;
    old_ = GetParam().kind.record("a", 1) + GetParam().kind.record("b", 2);
    if (state == Start::Nothing) old_.clear();
    if (!old_.empty()) writeFile(state == Start::BackupOnly ? backup() : registry(), old_);
    if (state == Start::StaleBackup) writeFile(backup(), GetParam().kind.record("stale", 0));
    if (state == Start::BackupOnly || state == Start::TemporaryAndOld) {
      writeFile(temporary(), "unfinished");
      writeFile(corrupt(), "older");
    }
  }

  std::unique_ptr<Subject> subject() {
    return GetParam().kind.make(registry(), GetParam().features);
  }

  // What the registry holds after the operation, run once undisturbed.
  std::string undisturbed() {
    start();
    EXPECT_EQ(subject()->run(GetParam().step), 0u);
    return committed();
  }

  // The committed content as a reader finds it: an absent registry holds no records.
  std::string committed() const {
    return exists(registry()) ? readFile(registry()) : readFile(backup());
  }

  // The next update works and keeps everything.
  void expectNextUpdateKeeps(Subject& handle, const std::string& content) {
    ASSERT_EQ(handle.run({Verb::Add, "next", 9}), 0u);
    EXPECT_EQ(readFile(registry()), content + GetParam().kind.record("next", 9));
    EXPECT_FALSE(exists(backup()));
    EXPECT_FALSE(exists(lockFile()));
  }

  // Dying a second time, in the next update, which may be in a recovery: before every seventh call,
  // another one for each first death.
  void expectDyingAgainLosesNothing(const std::string& content, unsigned long first) {
    std::map<std::string, std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(directory_)) {
      left[entry.path()] = readFile(entry.path());
    }
    for (unsigned long j = 1 + first % 7;; j += 7) {
      clearDirectory();
      for (const auto& [name, bytes] : left) writeFile(name, bytes);
      const int ended = inChild([&] {
        FaultPlan plan(j, 0, true);
        return static_cast<int>(
            GetParam().kind.make(registry(), unique)->run({Verb::Add, "other", 0}));
      });
      const std::string now = committed();
      ASSERT_TRUE(now == content || now == content + GetParam().kind.record("other", 0))
          << "killed again before call " << j;
      if (ended == -SIGKILL) continue;
      EXPECT_EQ(ended, 0);
      return;
    }
  }

  std::string old_;
};

TEST_P(FaultTest, AnyFailedCallLeavesOldOrNewContentAndAWorkingHandle) {
  const std::string changed = undisturbed();
  for (const int fault : {EIO, ENOSPC, EINTR, OSS_FAULT_SHORT}) {
    for (unsigned long k = 1;; ++k) {
      start();
      const std::unique_ptr<Subject> handle = subject();
      const std::size_t descriptors = openDescriptors();
      unsigned int code = 0;
      std::string operation;
      {
        FaultPlan plan(k, fault);
        code = handle->run(GetParam().step);
        if (plan.calls() < k) break;
        operation = plan.operation();
      }
      SCOPED_TRACE("call " + std::to_string(k) + " (" + operation + "), fault " +
                   std::to_string(fault) + ", code " + std::to_string(code));
      const std::string content = committed();
      EXPECT_TRUE(content == changed || (code != 0 && content == old_));
      EXPECT_EQ(openDescriptors(), descriptors);
      if (fault == EINTR && operation != "malloc" && operation != "free" && operation != "fopen" &&
          operation != "close" && operation != "lseek") {
        EXPECT_EQ(code, 0u) << "an interrupted call must be repeated";
      }
      expectNextUpdateKeeps(*handle, content);
      if (HasFailure()) return;
    }
  }
}

TEST_P(FaultTest, DyingBeforeAnyCallLosesNothing) {
  const std::string changed = undisturbed();
  for (unsigned long k = 1;; ++k) {
    start();
    const int ended = inChild([&] {
      FaultPlan plan(k, 0, true);
      return static_cast<int>(subject()->run(GetParam().step) != 0);
    });
    if (ended != -SIGKILL) {
      EXPECT_EQ(ended, 0);
      break;
    }
    SCOPED_TRACE("killed before call " + std::to_string(k));
    const std::string content = committed();
    EXPECT_TRUE(content == old_ || content == changed);
    const std::unique_ptr<Subject> handle = subject();
    EXPECT_TRUE(old_.empty() || handle->run(getB) == 0) << "a reader missed a committed record";
    expectDyingAgainLosesNothing(content, k);
    expectNextUpdateKeeps(*handle, committed());
    if (HasFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(Sweeps, FaultTest, ::testing::ValuesIn(sweeps),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
