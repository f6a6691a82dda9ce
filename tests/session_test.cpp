// The update session: locks, leftovers of earlier sessions, hostile surroundings.
#include <filesystem>

#include "support/operations.h"
#include "sysservices/file_system.h"

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

TEST_F(SessionTest, TheFirstAddCreatesDirectoryAndFileForTheirOwnerAlone) {
  const std::string directory = path("new");
  TestRegistry handle(directory + "/r");
  EXPECT_EQ(get(handle), GENREG_RC_NO_FILE);
  EXPECT_EQ(change(handle), GENREG_RC_LOCK_FAILED);
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
  TestRegistry missing(registry());
  EXPECT_EQ(change(missing), opening);
  EXPECT_EQ(remove(missing), opening);
  EXPECT_EQ(diagnostics.records.back().calleeCode, GENREG_RC_NO_FILE);
  EXPECT_EQ(files(), "new");
}

// That the registry is whole then is what the sweep over crashes shows.
TEST_F(SessionTest, WhatACrashLeftIsSetAsideByTheNextUpdate) {
  const struct {
    bool registry, backup, temporary, corrupt;
    const char *after, *corruptAfter;
  } cases[] = {
      {true, false, true, false, "r r.cor", "unfinished"},  // an update
      {true, false, true, true, "r r.cor", "unfinished"},   // and one before it
      {true, false, false, true, "r", ""},
      {true, true, false, false, "r r.old", ""},           // a backup of unknown origin
      {false, true, true, true, "r r.cor", "unfinished"},  // a commit
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.after);
    clearDirectory();
    if (row.registry) writeFile(registry(), content());
    if (row.backup) writeFile(backup(), row.registry ? "stale" : content());
    if (row.temporary) writeFile(temporary(), "unfinished");
    if (row.temporary) setPermissions(temporary(), 0666);
    if (row.corrupt) writeFile(corrupt(), "older");
    const std::string left = files();
    TestRegistry handle(registry(), verified);
    EXPECT_EQ(get(handle), 0u);
    EXPECT_EQ(files(), left) << "a reader writes nothing";
    EXPECT_EQ(change(handle), 0u);
    EXPECT_EQ(readFile(registry()), content(22));
    EXPECT_EQ(files(), row.after);
    EXPECT_EQ(readFile(corrupt()), row.corruptAfter);
    EXPECT_TRUE(!row.temporary || permissionsOf(corrupt()) == keptPermissions(0600));
  }
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

TEST_F(SessionTest, PlantedLinksPipesAndSecondNamesAreNotFollowed) {
  constexpr Code locking = GENREG_RC_LOCK_FAILED;
  const std::string victim = path("victim");
  const auto realElsewhere = [&] {
    fs::rename(registry(), path("real"));
    plantLink("real", registry());
  };
  const auto pipeForRegistry = [&] { fs::remove(registry()), plantPipe(registry()); };
  const auto deviceForRegistry = [&] {
    fs::remove(registry());
    plantLink("/dev/zero", registry());
  };
  const auto directoryForLock = [&] { fs::create_directory(lockFile()); };
  const auto secondName = [&](const std::string& name) { fs::create_hard_link(victim, name); };
  const struct {
    const char* name;
    std::function<void()> plant;
    Code result;  // of a Change
    bool isLink = true;
    Code read = 0;  // of a Get, which must not block
  } cases[] = {
      {"link at the temporary name", [&] { plantLink("victim", temporary()); }, 0},
      {"temporary file with a second name", [&] { secondName(temporary()); }, 0, false},
      // As only a commit by links leaves it.
      {"temporary name for the registry itself",
       [&] { fs::create_hard_link(registry(), temporary()); }, 0},
      {"link at the lock name", [&] { plantLink("victim", lockFile()); }, locking},
      {"dangling lock", [&] { plantLink("nowhere", lockFile()); }, locking},
      {"pipe at the lock name", [&] { plantPipe(lockFile()); }, locking},
      {"directory at the lock name", directoryForLock, locking, false},
      {"lock with a second name", [&] { secondName(lockFile()); }, locking, false},
      {"registry is a link", realElsewhere, opening},
      {"registry has a second name", [&] { fs::create_hard_link(registry(), path("second")); },
       opening, false},
      {"registry is a pipe", pipeForRegistry, opening, true, GENREG_RC_NO_FILE},
      {"registry is a device", deviceForRegistry, opening, true, GENREG_RC_NO_FILE},
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
    if (row.result == locking) {
      EXPECT_EQ(handle.LockRegistry(GENREG_LOCK_SHARED | GENREG_LOCK_NOWAIT),
                GENREG_RC_OPEN_LOCK_FAILED);
    }
    EXPECT_EQ(readFile(victim), "precious");
    EXPECT_EQ(permissionsOf(victim), keptPermissions(0640));
    EXPECT_FALSE(exists(path("nowhere")));
    EXPECT_EQ(get(handle), row.read);
  }
  // Planted in the moment before the temporary file is made: what is there is not written to.
  clearDirectory();
  writeFile(registry(), content());
  writeFile(victim, "precious");
  int opens = 0;
  const FaultHook planting([&](const std::string& call) {
    if (call == "open" && ++opens == 4) fs::create_hard_link(victim, temporary());
    return 0;
  });
  TestRegistry handle(registry());
  EXPECT_EQ(change(handle), opening);
  EXPECT_EQ(readFile(victim), "precious");
}

TEST_F(SessionTest, NamesOfCompanionFilesAreRefusedToUpdates) {
  const std::pair<const char*, bool> cases[] = {
      {"conf.tmp", true},     {"conf.cor", true},   {".conf.bkp", true},
      {".conf.lock", true},   {"conf.lock", false}, {"conf.bkp", false},
      {".conf.tmp.x", false}, {"conftmp", false},   {".tmp", false}};
  for (const auto& [name, refused] : cases) {
    SCOPED_TRACE(name);
    clearDirectory();
    writeFile(path(name), content());
    TestRegistry handle(path(name));
    EXPECT_EQ(change(handle), refused ? GENREG_RC_LOCK_FAILED : 0u);
    EXPECT_EQ(add(handle), refused ? GENREG_RC_LOCK_FAILED : 0u);
    EXPECT_EQ(scan(handle), 0u);
    EXPECT_EQ(get(handle), 0u);
    EXPECT_EQ(files(), name);
  }
}

TEST_F(SessionTest, ARelativePathIsResolvedWhenTheHandleIsMade) {
  fs::create_directory(path("home"));
  fs::create_directory(path("elsewhere"));
  fs::current_path(path("home"));
  TestRegistry handle("r", verified);
  fs::current_path(path("elsewhere"));
  EXPECT_EQ(add(handle), 0u);
  fs::current_path("/");
  EXPECT_TRUE(fs::is_empty(path("elsewhere")));
  EXPECT_EQ(readFile(path("home/r")), frame(variable("new", 3)));
}

TEST_F(SessionTest, DescriptorsStayAboveTheStandardThreeAndOutOfChildren) {
  writeFile(registry(), content());
  bool areGivenUp = false;
  const auto isInherited = [&] {
    TestRegistry reading(registry());
    TestRegistry updating(path("other"));
    bool inherited = reading.OpenScan() != 0;
    const FaultHook watching([&](const std::string&) {
      inherited = inherited || wouldInheritFilesOf(directory_) ||
                  (areGivenUp && !standardDescriptorsAreFree());
      return 0;
    });
    return add(updating) != 0 || inherited;
  };
  EXPECT_FALSE(isInherited());
  expectInChild([&] {
    closeTwoStandardDescriptors();
    areGivenUp = true;
    return !isInherited() && ossFileOpenToRead(registry().c_str()) != nullptr &&
           standardDescriptorsAreFree();
  });
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
  EXPECT_EQ(file.unlock(), 0u);
  // And it does not end when the child closes what it has inherited.
  ASSERT_EQ(reader.OpenScan(), 0u);
  expectInChild([&] { return reader.CloseScan() == 0; });
  EXPECT_EQ(file.lock(&wanted), OSS_RC_LOCK_BUSY);
}

}  // namespace
