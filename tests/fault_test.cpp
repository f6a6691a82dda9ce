// The library's promise under failure: whatever system call fails, or wherever the process dies,
// the registry holds the old or the new content, nothing leaks, and the next operation works.
#include <signal.h>

#include <cerrno>
#include <set>

#include "support/registry_fixture.h"

namespace {

constexpr std::uint64_t byName = BINVARVAL_VARIABLE;

struct Operation {
  const char* name;
  std::uint64_t features;
  bool startsEmpty;
  unsigned int (*run)(TestRegistry& registry);
  bool updates;
};

unsigned int add(TestRegistry& registry) {
  BinVarValRecord record = variable("new", 3);
  return registry.Add(byName, &record);
}
unsigned int change(TestRegistry& registry) {
  BinVarValRecord key = variable("b");
  BinVarValRecord record = variable("b", 22);
  return registry.Change(byName, &key, &record);
}
unsigned int remove(TestRegistry& registry) {
  BinVarValRecord key = variable("a");
  return registry.Delete(byName, &key);
}
unsigned int get(TestRegistry& registry) {
  BinVarValRecord key = variable("b");
  BinVarValRecord record;
  return registry.Get(byName, &key, &record);
}
unsigned int scan(TestRegistry& registry) {
  BinVarValRecord key{};
  BinVarValRecord record;
  unsigned int code = registry.OpenScan();
  if (code != 0) return code;
  while (code == 0) code = registry.GetNext(0, &key, &record);
  const unsigned int closed = registry.CloseScan();
  return code == GENREG_RC_END ? closed : code;
}

constexpr std::uint64_t verified = GENREG_VERIFY_UPDATES | GENREG_ALLOW_DUPLICATES;
const Operation operations[] = {
    {"Add", verified, false, add, true},
    {"FirstAdd", verified, true, add, true},
    {"AddUnverified", GENREG_NOTIFY_CHANGE, false, add, true},
    {"AddInPlace", GENREG_ALLOW_DUPLICATES, false, add, true},
    {"Change", verified, false, change, true},
    {"Delete", verified, false, remove, true},
    {"DeleteUnverified", GENREG_ALLOW_DUPLICATES, false, remove, true},
    {"Get", verified, false, get, false},
    {"Scan", verified, false, scan, false},
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

    // Dying once more in the middle of the next update, which may be a recovery.
    (void)inChild([&] {
      FaultPlan plan(k / 2 + 5, 0, true);
      TestRegistry next(registry(), verified);
      return static_cast<int>(scan(next));
    });
    expectNextUpdateKeeps(content);
    if (HasFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(Operations, FaultTest, ::testing::ValuesIn(operations),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
