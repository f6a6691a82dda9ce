// The library's promise under failure: whatever system call fails, or wherever the process dies,
// the registry holds the old or the new content, nothing leaks, and the next operation works.
#include <signal.h>

#include <cerrno>
#include <filesystem>
#include <map>

#include "support/operations.h"

namespace {

const Operation operations[] = {
    {"Add", verified, false, add},
    {"FirstAdd", verified, true, add},
    {"AddUnverified", GENREG_NOTIFY_CHANGE, false, add},
    {"AddInPlace", GENREG_ALLOW_DUPLICATES, false, add},
    {"Change", verified, false, change},
    {"Delete", verified, false, remove},
    {"DeleteUnverified", GENREG_ALLOW_DUPLICATES, false, remove},
    {"Get", verified, false, get},
    {"Scan", verified, false, scan},
};

class FaultTest : public RegistryTest, public ::testing::WithParamInterface<Operation> {
 protected:
  void start() {
    for (const char* name : {"r", "r.tmp", "r.cor", ".r.bkp", ".r.lock"}) {
      (void)std::remove(path(name).c_str());
    }
    old_ = GetParam().startsEmpty ? "" : frame(variable("a", 1)) + frame(variable("b", 2));
    if (!old_.empty()) writeFile(registry(), old_);
  }

  // What the registry holds after the operation, run once undisturbed.
  std::string undisturbed() {
    start();
    TestRegistry handle(registry(), GetParam().features);
    EXPECT_EQ(GetParam().run(handle), 0u);
    return readFile(registry());
  }

  // The committed content as a reader finds it: an absent registry holds no records.
  std::string committed() const {
    return exists(registry()) ? readFile(registry()) : readFile(backup());
  }

  // The next update works and keeps everything.
  void expectNextUpdateKeeps(const std::string& content) {
    TestRegistry handle(registry(), verified);
    BinVarValRecord record = variable("next", 9);
    ASSERT_EQ(handle.Add(byName, &record), 0u);
    EXPECT_EQ(readFile(registry()), content + frame(record));
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
        TestRegistry next(registry(), GENREG_VERIFY_UPDATES);
        BinVarValRecord record = variable("other");
        return static_cast<int>(next.Add(byName, &record));
      });
      const std::string now = committed();
      ASSERT_TRUE(now == content || now == content + frame(variable("other")))
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
      TestRegistry handle(registry(), GetParam().features);
      const std::size_t descriptors = openDescriptors();
      unsigned int code = 0;
      std::string operation;
      {
        FaultPlan plan(k, fault);
        code = GetParam().run(handle);
        if (plan.calls() < k) break;
        operation = plan.operation();
      }
      SCOPED_TRACE("call " + std::to_string(k) + " (" + operation + "), fault " +
                   std::to_string(fault) + ", code " + std::to_string(code));
      const std::string content = committed();
      if (code == 0) {
        EXPECT_EQ(content, changed);
      } else {
        EXPECT_TRUE(content == old_ || content == changed);
      }
      EXPECT_EQ(openDescriptors(), descriptors);
      if (fault == EINTR && operation != "malloc" && operation != "free" && operation != "fopen" &&
          operation != "close" && operation != "lseek") {
        EXPECT_EQ(code, 0u) << "an interrupted call must be repeated";
      }
      expectNextUpdateKeeps(content);
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
      TestRegistry handle(registry(), GetParam().features);
      return static_cast<int>(GetParam().run(handle) != 0);
    });
    if (ended != -SIGKILL) {
      EXPECT_EQ(ended, 0);
      break;
    }
    SCOPED_TRACE("killed before call " + std::to_string(k));
    const std::string content = committed();
    EXPECT_TRUE(content == old_ || content == changed);

    TestRegistry handle(registry(), verified);
    BinVarValRecord key = variable("b");
    BinVarValRecord found;
    if (!old_.empty()) {
      EXPECT_EQ(handle.Get(byName, &key, &found), 0u) << "a reader missed a committed record";
    }

    expectDyingAgainLosesNothing(content, k);
    expectNextUpdateKeeps(committed());
    if (HasFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(Operations, FaultTest, ::testing::ValuesIn(operations),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
