// The library's promise under failure: whatever system call fails, or wherever the process dies,
// the registry holds the old or the new content, nothing leaks, and the next operation works.
#include <signal.h>

#include <cerrno>
#include <filesystem>
#include <map>

#include "support/operations.h"

namespace {

// A flavour whose sweep runs on the records a = 1 and b = 2.
class Subject {
 public:
  virtual ~Subject() = default;
  virtual unsigned int add(const char* name, int value) = 0;
  virtual unsigned int change(const char* name, int value) = 0;
  virtual unsigned int remove(const char* name) = 0;
  virtual unsigned int get(const char* name) = 0;
  virtual unsigned int scan() = 0;
};

template <typename Flavour, typename Record>
class FlavourSubject : public Subject {
 public:
  FlavourSubject(const std::string& path, std::uint64_t features) : handle_(path, features) {}

  unsigned int add(const char* name, int value) override {
    return with(name, value, [&](Record& record) { return handle_.Add(byName, &record); });
  }
  unsigned int change(const char* name, int value) override {
    return with(name, value,
                [&](Record& record) { return handle_.Change(byName, &record, &record); });
  }
  unsigned int remove(const char* name) override {
    return with(name, 0, [&](Record& record) { return handle_.Delete(byName, &record); });
  }
  unsigned int get(const char* name) override {
    Record found;
    return with(name, 0, [&](Record& record) { return handle_.Get(byName, &record, &found); });
  }
  unsigned int scan() override {
    Record key{};
    Record record;
    unsigned int code = handle_.OpenScan();
    if (code != 0) return code;
    while (code == 0) code = handle_.GetNext(0, &key, &record);
    const unsigned int closed = handle_.CloseScan();
    return code == GENREG_RC_END ? closed : code;
  }

 private:
  template <typename Use>
  static unsigned int with(const char* name, int value, Use use) {
    const std::string text = std::to_string(value);
    Record record{};
    if constexpr (std::is_same_v<Record, BinVarValRecord>) {
      record = variable(name, value);
    } else {
      record = {VARVAL_HAS_VARIABLE, nullptr, name, text.c_str(), {}};
    }
    return use(record);
  }

  Exposed<Flavour> handle_;
};

using Binary = FlavourSubject<GenRegBinVarVal, BinVarValRecord>;
using Text = FlavourSubject<GenRegVarVal, VarValRecord>;

std::string binaryRecord(const char* name, int value) { return frame(variable(name, value)); }
std::string textRecord(const char* name, int value) {
  return std::string(name) + " = " + std::to_string(value) + "\n";
}

template <typename Kind>
std::unique_ptr<Subject> make(const std::string& path, std::uint64_t features) {
  return std::make_unique<Kind>(path, features);
}

constexpr std::uint64_t unique = GENREG_VERIFY_UPDATES;

// What is there before the operation.
enum class Start {
  Clean,
  Nothing,          // no registry file
  BackupOnly,       // a crash between the renames
  StaleBackup,      // a crash after them
  TemporaryAndOld,  // an update that did not finish, and one before it
};

struct Sweep {
  const char* name;
  std::unique_ptr<Subject> (*make)(const std::string& path, std::uint64_t features);
  std::string (*record)(const char* name, int value);
  std::uint64_t features;
  Start start;
  unsigned int (*run)(Subject& subject);
};

unsigned int addNew(Subject& subject) { return subject.add("new", 3); }
unsigned int changeB(Subject& subject) { return subject.change("b", 22); }
unsigned int removeA(Subject& subject) { return subject.remove("a"); }
unsigned int getB(Subject& subject) { return subject.get("b"); }
unsigned int scanAll(Subject& subject) { return subject.scan(); }

const Sweep sweeps[] = {
    {"Add", make<Binary>, binaryRecord, verified, Start::Clean, addNew},
    {"FirstAdd", make<Binary>, binaryRecord, verified, Start::Nothing, addNew},
    {"AddUnverified", make<Binary>, binaryRecord, GENREG_NOTIFY_CHANGE, Start::Clean, addNew},
    {"AddInPlace", make<Binary>, binaryRecord, unverified, Start::Clean, addNew},
    {"AddAfterCrash", make<Binary>, binaryRecord, verified, Start::BackupOnly, addNew},
    {"AddInPlaceAfterCrash", make<Binary>, binaryRecord, unverified, Start::BackupOnly, addNew},
    {"AddUniqueAfterCrash", make<Binary>, binaryRecord, GENREG_NOTIFY_CHANGE, Start::BackupOnly,
     addNew},
    {"GetAfterCrash", make<Binary>, binaryRecord, verified, Start::BackupOnly, getB},
    {"ChangeBesideBackup", make<Binary>, binaryRecord, verified, Start::StaleBackup, changeB},
    {"DeleteAfterFailure", make<Binary>, binaryRecord, verified, Start::TemporaryAndOld, removeA},
    {"Change", make<Binary>, binaryRecord, verified, Start::Clean, changeB},
    {"Delete", make<Binary>, binaryRecord, verified, Start::Clean, removeA},
    {"DeleteUnverified", make<Binary>, binaryRecord, unverified, Start::Clean, removeA},
    {"Get", make<Binary>, binaryRecord, verified, Start::Clean, getB},
    {"Scan", make<Binary>, binaryRecord, verified, Start::Clean, scanAll},
    {"TextAdd", make<Text>, textRecord, unique, Start::Clean, addNew},
    {"TextAddInPlace", make<Text>, textRecord, unverified, Start::Clean, addNew},
    {"TextChange", make<Text>, textRecord, verified, Start::Clean, changeB},
    {"TextDelete", make<Text>, textRecord, verified, Start::Clean, removeA},
    {"TextGet", make<Text>, textRecord, verified, Start::Clean, getB},
    {"TextScan", make<Text>, textRecord, verified, Start::Clean, scanAll},
};

class FaultTest : public RegistryTest, public ::testing::WithParamInterface<Sweep> {
 protected:
  void start() {
    for (const char* name : {"r", "r.tmp", "r.cor", ".r.bkp", ".r.lock"}) {
      (void)std::remove(path(name).c_str());
    }
    const Start state = GetParam().start;
    old_ = GetParam().record("a", 1) + GetParam().record("b", 2);
    if (state == Start::Nothing) old_.clear();
    if (!old_.empty()) writeFile(state == Start::BackupOnly ? backup() : registry(), old_);
    if (state == Start::StaleBackup) writeFile(backup(), GetParam().record("stale", 0));
    if (state == Start::BackupOnly || state == Start::TemporaryAndOld) {
      writeFile(temporary(), "unfinished");
      writeFile(corrupt(), "older");
    }
  }

  std::unique_ptr<Subject> subject() { return GetParam().make(registry(), GetParam().features); }

  // What the registry holds after the operation, run once undisturbed.
  std::string undisturbed() {
    start();
    EXPECT_EQ(GetParam().run(*subject()), 0u);
    return committed();
  }

  // The committed content as a reader finds it: an absent registry holds no records.
  std::string committed() const {
    return exists(registry()) ? readFile(registry()) : readFile(backup());
  }

  // The next update works and keeps everything.
  void expectNextUpdateKeeps(Subject& handle, const std::string& content) {
    ASSERT_EQ(handle.add("next", 9), 0u);
    EXPECT_EQ(readFile(registry()), content + GetParam().record("next", 9));
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
      for (const auto& entry : std::filesystem::directory_iterator(directory_)) {
        std::filesystem::remove(entry.path());
      }
      for (const auto& [name, bytes] : left) writeFile(name, bytes);
      const int ended = inChild([&] {
        FaultPlan plan(j, 0, true);
        return static_cast<int>(GetParam().make(registry(), unique)->add("other", 0));
      });
      const std::string now = committed();
      ASSERT_TRUE(now == content || now == content + GetParam().record("other", 0))
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
        code = GetParam().run(*handle);
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
      return static_cast<int>(GetParam().run(*subject()) != 0);
    });
    if (ended != -SIGKILL) {
      EXPECT_EQ(ended, 0);
      break;
    }
    SCOPED_TRACE("killed before call " + std::to_string(k));
    const std::string content = committed();
    EXPECT_TRUE(content == old_ || content == changed);
    const std::unique_ptr<Subject> handle = subject();
    EXPECT_TRUE(old_.empty() || handle->get("b") == 0) << "a reader missed a committed record";
    expectDyingAgainLosesNothing(content, k);
    expectNextUpdateKeeps(*handle, committed());
    if (HasFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(Sweeps, FaultTest, ::testing::ValuesIn(sweeps),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
