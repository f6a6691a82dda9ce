// The update session: locks, leftovers of earlier sessions, recovery, commit, hostile surroundings,
// and the code that each failing step gives.
#include <cerrno>
#include <filesystem>
#include <thread>

#include "support/operations.h"

namespace {

namespace fs = std::filesystem;

std::string content(std::int32_t b = 2) {
  return frame(variable("a", 1)) + frame(variable("b", b));
}

class SessionTest : public RegistryTest {};

TEST_F(SessionTest, LockRequestsAreCheckedAndTheLockExcludes) {
  constexpr std::uint64_t exclusive = GENREG_LOCK_EXCLUSIVE;
  constexpr std::uint64_t shared = GENREG_LOCK_SHARED;
  constexpr std::uint64_t wait = GENREG_LOCK_WAIT;
  constexpr std::uint64_t noWait = GENREG_LOCK_NOWAIT;
  TestRegistry handle(registry());
  TestRegistry other(registry());
  for (const std::uint64_t request : {0u, 16u, 1u, 2u, 4u, 8u}) {
    EXPECT_EQ(handle.LockRegistry(request), GENREG_RC_BAD_ARGUMENT) << request;
  }
  EXPECT_EQ(handle.LockRegistry(shared | wait), GENREG_RC_OPEN_LOCK_FAILED)
      << "a shared request creates no lock file";
  EXPECT_EQ(handle.LockRegistry(exclusive | shared | wait), 0u);
  EXPECT_EQ(handle.LockRegistry(exclusive | wait), GENREG_RC_ALREADY_LOCKED);
  EXPECT_EQ(other.LockRegistry(shared | noWait), GENREG_RC_BUSY);
  EXPECT_EQ(other.LockRegistry(exclusive | wait | noWait), GENREG_RC_BUSY);
  EXPECT_EQ(other.status & GENREG_STATUS_LOCKED, 0u);
  EXPECT_EQ(handle.UnlockRegistry(), 0u);
  EXPECT_EQ(files(), "");
  EXPECT_EQ(handle.UnlockRegistry(), GENREG_RC_UNLOCK_FILE_FAILED);
  EXPECT_EQ(other.LockRegistry(exclusive | wait), 0u);
  const bool removed = std::remove(lockFile().c_str()) == 0;
  EXPECT_EQ(removed, lacking(Need::RemovableLockFiles) == nullptr);
  Diagnostics diagnostics;
  EXPECT_EQ(other.UnlockRegistry(), 0u) << "somebody else deleted the lock file";
  EXPECT_EQ(diagnostics.logs(0x082A0011u, GENREG_RC_LOCK_FILE_GONE), removed ? 1u : 0u);
}

TEST_F(SessionTest, ALockLeftByADeadHolderIsTakenOverAndADestroyedHandleHoldsNone) {
  expectInChild([&] { return TestRegistry(registry()).LockRegistry(5) == 0; });
  EXPECT_EQ(files(), ".r.lock");
  EXPECT_EQ(TestRegistry(registry()).LockRegistry(5), 0u);
  TestRegistry handle(registry());
  EXPECT_EQ(add(handle), 0u);
  EXPECT_EQ(files(), "r");
}

TEST_F(SessionTest, TheFirstAddCreatesDirectoryAndFileForTheirOwnerAlone) {
  const std::string directory = path("new");
  TestRegistry handle(directory + "/r");
  EXPECT_EQ(add(handle), 0u);
  if (lacking(Need::PermissionBits) == nullptr) {
    EXPECT_EQ(permissionsOf(directory), 0700u);
  }
  EXPECT_EQ(permissionsOf(directory + "/r"), 0600u);
  EXPECT_EQ(std::distance(fs::directory_iterator(directory), {}), 1);
  TestRegistry deep(path("no/such/parent/r"));
  Diagnostics diagnostics;
  EXPECT_EQ(add(deep), GENREG_RC_LOCK_FAILED);
  EXPECT_GE(diagnostics.logs(0x082A000Eu, GENREG_RC_CREATE_DIRECTORY), 1u);
}

TEST_F(SessionTest, AMissingRegistryIsToldApart) {
  TestRegistry handle(registry());
  EXPECT_EQ(get(handle), GENREG_RC_NO_FILE);
  Diagnostics diagnostics;
  EXPECT_EQ(change(handle), opening);
  EXPECT_EQ(remove(handle), opening);
  for (const auto& record : diagnostics.records) {
    EXPECT_EQ(record.calleeCode, GENREG_RC_NO_FILE);
    EXPECT_EQ(record.probe >> 16, 0x082Au);
  }
  EXPECT_EQ(files(), "");
}

TEST_F(SessionTest, LeftoversOfACrashAreRepairedByTheNextUpdate) {
  // What an earlier session left behind, and what is there after the next update.
  const struct {
    const char* name;
    bool registry, backup, temporary, corrupt;
    const char *after, *corruptAfter;
  } cases[] = {
      {"nothing", true, false, false, false, "r", ""},
      {"an unfinished update", true, false, true, false, "r r.cor", "unfinished"},
      {"one and an older one", true, false, true, true, "r r.cor", "unfinished"},
      {"an older one", true, false, false, true, "r", ""},
      {"a stale backup", true, true, false, false, "r", ""},
      {"only the backup", false, true, false, false, "r", ""},
      {"between the renames", false, true, true, true, "r r.cor", "unfinished"},
  };
  const struct {
    const char* name;
    std::uint64_t features;
    Code (*run)(TestRegistry&);
  } operations[] = {
      {"Add", verified, add}, {"Change", unverified, change}, {"InPlace", unverified, add}};
  for (const auto& operation : operations) {
    for (const auto& row : cases) {
      SCOPED_TRACE(std::string(operation.name) + " after " + row.name);
      clearDirectory();
      if (row.registry) writeFile(registry(), content());
      if (row.backup) writeFile(backup(), row.registry ? "stale" : content());
      if (row.temporary) writeFile(temporary(), "unfinished");
      if (row.corrupt) writeFile(corrupt(), "older");
      TestRegistry handle(registry(), operation.features);
      EXPECT_EQ(get(handle), 0u) << "a reader must find the committed content";
      EXPECT_EQ(scan(handle), 0u);
      EXPECT_EQ(exists(backup()), row.backup) << "a reader writes nothing";
      EXPECT_EQ(operation.run(handle), 0u);
      EXPECT_EQ(readFile(registry()),
                operation.run == change ? content(22) : content() + frame(variable("new", 3)));
      if (operation.run == add && operation.features == unverified) continue;  // it makes no copy
      EXPECT_EQ(files(), row.after);
      EXPECT_EQ(readFile(corrupt()), row.corruptAfter);
    }
  }
}

TEST_F(SessionTest, ReadersNeedNoRightToWrite) {
  SKIP_WITHOUT(Need::Users);
  writeFile(backup(), content());
  setPermissions(backup(), 0444);
  setPermissions(directory_, 0555);
  expectInChild([&] {
    if (!becomeNobody()) return false;
    TestRegistry handle(registry());
    return get(handle) == 0 && scan(handle) == 0;
  });
  setPermissions(directory_, 0700);
}

TEST_F(SessionTest, TheNewFileHasThePermissionsOfTheOldOneAndIsNeverWider) {
  for (const unsigned int permissions : {0600u, 0640u, 0400u, 0664u}) {
    writeFile(registry(), content());
    setPermissions(registry(), permissions);
    unsigned int widest = 0;
    {
      const FaultHook watch([&](const std::string&) {
        if (exists(temporary())) widest |= permissionsOf(temporary());
        return 0;
      });
      TestRegistry handle(registry());
      EXPECT_EQ(change(handle), 0u);
    }
    EXPECT_EQ(permissionsOf(registry()), keptPermissions(permissions));
    setPermissions(registry(), 0600);
    EXPECT_EQ(widest & ~permissions & ~0600u, 0u);
  }
}

TEST_F(SessionTest, AGroupThatCannotBeKeptGetsNoMoreThanEverybody) {
  SKIP_WITHOUT(Need::Users);
  if (!isAdministrator()) GTEST_SKIP() << "needs root to set the scene";
  writeFile(registry(), content());
  setPermissions(registry(), 0664);
  setPermissions(directory_, 0777);
  expectInChild([&] {
    if (!becomeNobody()) return false;
    TestRegistry handle(registry());
    return change(handle) == 0;
  });
  EXPECT_EQ(permissionsOf(registry()), 0644u);
}

TEST_F(SessionTest, PlantedLinksPipesAndSecondNamesAreNotFollowed) {
  constexpr Code locking = GENREG_RC_LOCK_FAILED;
  const std::string victim = path("victim");
  const auto realElsewhere = [&] {
    fs::rename(registry(), path("real"));
    plantLink("real", registry());
  };
  const auto onlyABackupLink = [&] {
    fs::remove(registry());
    writeFile(victim, content());
    plantLink("victim", backup());
    setPermissions(victim, 0640);
  };
  const auto pipeForRegistry = [&] { fs::remove(registry()), plantPipe(registry()); };
  const auto directoryForLock = [&] { fs::create_directory(lockFile()); };
  const struct {
    const char* name;
    std::function<void()> plant;
    Code result;  // of a Change
    bool isLink = true;
  } cases[] = {
      {"link at the temporary name", [&] { plantLink("victim", temporary()); }, 0},
      {"link at the lock name", [&] { plantLink("victim", lockFile()); }, locking},
      {"dangling lock", [&] { plantLink("nowhere", lockFile()); }, locking},
      {"pipe at the lock name", [&] { plantPipe(lockFile()); }, locking},
      {"directory at the lock name", directoryForLock, locking, false},
      {"lock with a second name", [&] { fs::create_hard_link(victim, lockFile()); }, locking,
       false},
      {"registry is a link", realElsewhere, opening},
      {"registry has a second name", [&] { fs::create_hard_link(registry(), path("second")); },
       opening, false},
      {"only a link at the backup name", onlyABackupLink, opening},
      {"registry is a pipe", pipeForRegistry, opening},
  };
  for (const auto& row : cases) {
    if (row.isLink && lacking(Need::Links) != nullptr) continue;
    SCOPED_TRACE(row.name);
    clearDirectory();
    writeFile(registry(), content());
    writeFile(victim, "precious");
    setPermissions(victim, 0640);
    row.plant();
    TestRegistry handle(registry());
    EXPECT_EQ(change(handle), row.result);
    EXPECT_EQ(add(handle) == 0, row.result == 0);
    const bool asBackup = readFile(victim) == content();
    EXPECT_TRUE(asBackup || readFile(victim) == "precious");
    EXPECT_EQ(permissionsOf(victim), keptPermissions(0640));
    EXPECT_FALSE(exists(path("nowhere")));
    EXPECT_TRUE(get(handle) != 0 || !asBackup);  // and must not block
  }
}

TEST_F(SessionTest, ALongNameWithoutRoomForItsCompanionsCreatesNothing) {
  const std::string name(252, 'n');
  fs::current_path(directory_);
  TestRegistry handle(name);
  EXPECT_EQ(add(handle), GENREG_RC_LOCK_FAILED);
  EXPECT_EQ(files(), "");
  fs::current_path("/");
}

TEST_F(SessionTest, DescriptorsStayAboveTheStandardThreeAndOutOfChildren) {
  writeFile(registry(), content());
  expectInChild([&] {
    closeTwoStandardDescriptors();
    TestRegistry handle(registry());
    if (handle.OpenScan() != 0 || handle.LockRegistry(5) != 0) return false;
    return standardDescriptorsAreFree() && !wouldInheritFilesOf(directory_);
  });
}

TEST_F(SessionTest, AFullDiskLeavesTheRegistryAsItWas) {
  SKIP_WITHOUT(Need::FileSizeLimit);
  std::string many;
  for (int i = 0; i < 1000; ++i) many += frame(variable("v" + std::to_string(i), i));
  writeFile(registry(), many);
  expectInChild([&] {
    if (!limitFileSize(8192)) return false;
    TestRegistry handle(registry());
    return add(handle) != 0;
  });
  EXPECT_EQ(readFile(registry()), many);
}

TEST_F(SessionTest, EachFailingStepGivesItsCode) {
  constexpr Code locking = GENREG_RC_LOCK_FAILED;
  constexpr Code deleting = GENREG_RC_DELETE_TEMP_FAILED;
  constexpr Code unlocking = GENREG_RC_UNLOCK_FAILED;
  const auto removeAbsent = [](TestRegistry& handle) {
    BinVarValRecord key = variable("absent");
    return handle.Delete(byName, &key);
  };
  const auto position = [](TestRegistry& handle) {
    std::int64_t second = 40;
    EXPECT_EQ(handle.OpenScan(), 0u);
    const Code code = handle.setRegFilePosition(&second);
    EXPECT_EQ(handle.CloseScan(), 0u);
    return code;
  };
  const auto rewind = [](TestRegistry& handle) {
    EXPECT_EQ(handle.OpenScan(), 0u);
    const Code code = handle.Rewind();
    EXPECT_EQ(handle.CloseScan(), 0u);
    return code;
  };
  // One failing system call, the code the operation gives for it, the routine and code logged.
  const struct {
    const char* call;
    unsigned long nth;
    Code (*run)(TestRegistry& registry);
    std::uint64_t features;
    Code result, function, logged;
    bool committed;
  } cases[] = {
      {"malloc", 1, change, unverified, GENREG_RC_BUFFER_ALLOC, 30, GENREG_RC_BUFFER_ALLOC, false},
      {"open", 1, change, unverified, locking, 14, GENREG_RC_OPEN_LOCK_FAILED, false},
      {"flock", 1, change, unverified, locking, 14, OSS_RC_IO_ERROR, false},
      {"open", 2, change, unverified, opening, 15, GENREG_RC_OPEN_FAILED, false},
      {"flock", 2, change, unverified, opening, 15, GENREG_RC_FILE_LOCK, false},
      {"fopen", 1, change, unverified, opening, 15, GENREG_RC_OPEN_FAILED, false},
      {"unlink", 1, change, unverified, opening, 15, GENREG_RC_CORRUPT_DELETE, false},
      {"rename", 1, change, unverified, opening, 15, GENREG_RC_CORRUPT_RENAME, false},
      {"stat", 3 + lockChecks, change, unverified, opening, 15, GENREG_RC_FILE_INFO_OPEN, false},
      {"open", 3, change, unverified, opening, 15, GENREG_RC_OPEN_TEMP_FAILED, false},
      {"fchmod", 1, change, unverified, opening, 15, GENREG_RC_TEMP_PERMISSIONS, false},
      {"read", 1, change, unverified, readFailed, 33, GENREG_RC_READ_LENGTH_FAILED, false},
      {"write", 1, change, unverified, closing, 11, GENREG_RC_CLOSE_TEMP_FAILED, false},
      {"fsync", 1, change, unverified, closing, 11, GENREG_RC_CLOSE_TEMP_FAILED, false},
      {"close", 1, change, unverified, closing, 11, GENREG_RC_CLOSE_FAILED, false},
      {"close", 2, change, unverified, closing, 11, GENREG_RC_CLOSE_TEMP_FAILED, false},
      {"rename", 2, change, unverified, closing, 11, GENREG_RC_BACKUP_RENAME_FAILED, false},
      {"rename", 3, change, unverified, closing, 11, GENREG_RC_COMMIT_RENAME_FAILED, false},
      {"fsync", 2, change, unverified, closing, 11, GENREG_RC_COMMIT_RENAME_FAILED, false},
      {"unlink", 2, change, unverified, closing, 11, GENREG_RC_BACKUP_DELETE_FAILED, true},
      {"flock", 3, change, unverified, unlocking, 17, GENREG_RC_UNLOCK_FILE_FAILED, true},
      {"close", 3 + directorySyncs, change, unverified, unlocking, 17, GENREG_RC_CLOSE_LOCK_FAILED,
       true},
      {"unlink", 3, change, unverified, unlocking, 17, GENREG_RC_LOCK_DELETE_FAILED, true},
      {"free", 3, change, unverified, GENREG_RC_BUFFER_FREE, 30, GENREG_RC_BUFFER_FREE, true},
      {"malloc", 4, change, verified, verifying, 34, GENREG_RC_VERIFY_ALLOC_OLD, false},
      {"malloc", 5, change, verified, verifying, 34, GENREG_RC_VERIFY_ALLOC_NEW, false},
      {"open", 4, change, verified, verifying, 34, opening, false},
      {"open", 5, change, verified, verifying, 15, GENREG_RC_OPEN_TEMP_FAILED, false},
      {"read", 3, change, verified, verifying, 34, readFailed, false},
      {"read", 4, change, verified, verifying, 34, GENREG_RC_VERIFY_READ_NEW, false},
      {"close", 3, change, verified, verifying, 34, closing, false},
      {"unlink", 2, removeAbsent, verified, deleting, 29, deleting, false},
      {"free", 5, change, verified, verifying, 34, GENREG_RC_VERIFY_FREE_NEW, true},
      {"free", 6, change, verified, verifying, 34, GENREG_RC_VERIFY_FREE_OLD, true},
      {"stat", 6 + lockChecks, add, verified, GENREG_RC_FILE_INFO, 28, GENREG_RC_FILE_INFO, false},
      {"lseek", 1, add, verified, GENREG_RC_SEEK_END_FAILED, 28, GENREG_RC_SEEK_END_FAILED, false},
      {"write", 1, add, unverified, closing, 11, GENREG_RC_CLOSE_FAILED, false},
      {"fsync", 1, add, unverified, closing, 11, GENREG_RC_CLOSE_FAILED, false},
      {"malloc", 1, get, verified, GENREG_RC_BUFFER_ALLOC, 31, GENREG_RC_BUFFER_ALLOC, false},
      {"open", 1, get, verified, opening, 31, opening, false},
      {"read", 1, get, verified, readFailed, 31, readFailed, false},
      {"close", 1, get, verified, closing, 31, closing, false},
      {"free", 2, get, verified, GENREG_RC_BUFFER_FREE, 31, GENREG_RC_BUFFER_FREE, false},
      {"flock", 1, scan, verified, GENREG_RC_FILE_LOCK, 5, GENREG_RC_FILE_LOCK, false},
      {"fopen", 1, scan, verified, GENREG_RC_OPEN_FAILED, 5, GENREG_RC_OPEN_FAILED, false},
      {"malloc", 2, scan, verified, GENREG_RC_BUFFER_ALLOC, 32, GENREG_RC_BUFFER_ALLOC, false},
      {"lseek", 1, position, verified, GENREG_RC_SETPOS_FAILED, 20, GENREG_RC_SETPOS_FAILED, false},
      {"lseek", 1, rewind, verified, GENREG_RC_REWIND_FAILED, 7, GENREG_RC_REWIND_FAILED, false},
      {"close", 1, scan, verified, GENREG_RC_CLOSE_FAILED, 6, GENREG_RC_CLOSE_FAILED, false},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(std::string(row.call) + " " + std::to_string(row.nth) + " in function " +
                 std::to_string(row.function));
    clearDirectory();
    writeFile(registry(), content());
    setPermissions(registry(), 0640);
    if (row.call == std::string("rename")) writeFile(temporary(), "unfinished");
    TestRegistry handle(registry(), row.features);
    Diagnostics diagnostics;
    {
      FaultPlan plan(row.nth, EIO, false, row.call);
      EXPECT_EQ(row.run(handle), row.result);
    }
    EXPECT_GE(diagnostics.logs(0x082A0000u + row.function, row.logged), 1u);
    EXPECT_EQ(readFile(registry()), content(row.committed ? 22 : 2));
    EXPECT_EQ(handle.status, GENREG_STATUS_IDLE | GENREG_STATUS_READY);
  }
}

TEST_F(SessionTest, WhatWasNotSyncedIsNotCommittedWhateverElseFailed) {
  writeFile(registry(), content());
  TestRegistry handle(registry(), verified);
  // Both the close of the registry and the sync of the temporary file.
  int closes = 0;
  const FaultHook failing([&](const std::string& call) {
    if (call == "close") return ++closes == 1 ? EIO : 0;
    return call == "fsync" ? EIO : 0;
  });
  EXPECT_EQ(change(handle), closing);
  EXPECT_EQ(readFile(registry()), content());
}

TEST_F(SessionTest, AReadersLockEndsWithItThoughAChildLives) {
  SKIP_WITHOUT(Need::Forks);
  writeFile(registry(), content());
  TestRegistry reader(registry());
  ASSERT_EQ(reader.OpenScan(), 0u);
  const ForkedChild child;
  EXPECT_EQ(reader.CloseScan(), 0u);
  OSSHFile file;
  const std::string name = registry();
  const OSSFileOpenParam opened{
      OSS_PARAM_LEVEL, name.c_str(), OSS_ACCESS_READ_WRITE, OSS_OPEN_EXISTING, 0, 0, 0};
  const OSSFileLockParam wanted{OSS_PARAM_LEVEL, OSS_LOCK_EXCLUSIVE, OSS_LOCK_NOWAIT};
  ASSERT_EQ(file.open(&opened), 0u);
  EXPECT_EQ(file.lock(&wanted), 0u);
}

TEST_F(SessionTest, ASharedLockIsOnTheFileAtTheName) {
  TestRegistry holder(registry());
  TestRegistry sharing(registry());
  ASSERT_EQ(holder.LockRegistry(5), 0u);
  std::thread waiting([&] { (void)sharing.LockRegistry(GENREG_LOCK_SHARED | GENREG_LOCK_WAIT); });
  EXPECT_EQ(holder.UnlockRegistry(), 0u);
  waiting.join();
  // Whichever came first: a shared holder keeps others out, and one that found no file has none.
  const bool shares = (sharing.status & GENREG_STATUS_LOCKED) != 0;
  EXPECT_EQ(holder.LockRegistry(GENREG_LOCK_EXCLUSIVE | GENREG_LOCK_NOWAIT),
            shares ? GENREG_RC_BUSY : 0u);
}

}  // namespace
