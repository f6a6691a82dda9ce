// What other programs do to the files of a registry while it is updated: a commit replaces what was
// read and nothing else, and loses nothing of theirs.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <map>

#include "support/operations.h"

namespace {

namespace fs = std::filesystem;

const std::string before = frame(variable("a", 1)) + frame(variable("b", 2));
const std::string changed = frame(variable("a", 1)) + frame(variable("b", 22));
const std::string theirs = frame(variable("theirs", 5));

class CommitTest : public RegistryTest {
 protected:
  void SetUp() override {
    RegistryTest::SetUp();
    writeFile(registry(), before);
  }
  // A new file at the name, as a program that renames its own file over it makes one.
  static void replaceFile(const std::string& name, const std::string& bytes) {
    writeFile(name + ".new", bytes);
    fs::rename(name + ".new", name);
  }
  static void append(const std::string& name, const std::string& bytes) {
    std::FILE* stream = std::fopen(name.c_str(), "ab");
    (void)std::fwrite(bytes.data(), 1, bytes.size(), stream);
    (void)std::fclose(stream);
  }
  bool isAnywhere(const std::string& bytes) const {
    for (const auto& entry : fs::directory_iterator(directory_)) {
      if (readFile(entry.path().string()).find(bytes) != std::string::npos) return true;
    }
    return false;
  }
};

TEST_F(CommitTest, WhatChangedSinceTheOpenIsNotReplaced) {
  const struct {
    const char* name;
    std::function<void()> act;  // between open and commit
    std::string registry;
  } cases[] = {
      {"registry replaced", [&] { replaceFile(registry(), theirs); }, theirs},
      {"by the same bytes", [&] { replaceFile(registry(), before); }, before},
      {"registry appended to", [&] { append(registry(), theirs); }, before + theirs},
      {"registry cut off", [&] { fs::resize_file(registry(), 40); }, before.substr(0, 40)},
      {"overwritten in place",
       [&] {
         std::ofstream(registry(), std::ios::in | std::ios::out) << "\x24";
         fs::last_write_time(registry(), fs::file_time_type::clock::now() + std::chrono::hours(1));
       },
       before},
      {"registry removed", [&] { fs::remove(registry()); }, ""},
      {"lock file removed", [&] { fs::remove(lockFile()); }, before},
      {"lock file replaced", [&] { replaceFile(lockFile(), ""); }, before},
      {"temporary file removed", [&] { fs::remove(temporary()); }, before},
      {"temporary file replaced", [&] { replaceFile(temporary(), theirs); }, before},
  };
  for (const auto& row : cases) {
    for (const std::uint64_t features : {unverified, verified}) {
      SCOPED_TRACE(std::string(row.name) + ", features " + std::to_string(features));
      clearDirectory();
      writeFile(registry(), before);
      TestRegistry handle(registry(), features);
      {
        int syncs = 0;
        const FaultHook other([&](const std::string& call) {
          if (call == "fsync" && ++syncs == 1) row.act();
          return 0;
        });
        EXPECT_EQ(change(handle), features == verified ? verifying : closing);
      }
      EXPECT_FALSE(handle.isUpdateCommitted());
      EXPECT_EQ(readFile(registry()), row.registry);
      EXPECT_FALSE(exists(backup()));
    }
  }
}

TEST_F(CommitTest, AtNoCallOfAnUpdateIsAnythingOfAnotherProgramLost) {
  const struct {
    const char* name;
    std::function<bool()> act;  // false when there is nothing to be done
    bool succeeds;
  } cases[] = {
      {"append", [&] { return append(registry(), theirs), true; }, false},
      {"save", [&] { return replaceFile(registry(), readFile(registry()) + theirs), true; }, false},
      {"plant a backup", [&] { return !exists(backup()) && (writeFile(backup(), theirs), true); },
       true},
  };
  for (const auto& row : cases) {
    for (unsigned long k = 1, calls = k; k <= calls; ++k) {
      SCOPED_TRACE(std::string(row.name) + " before call " + std::to_string(k));
      clearDirectory();
      writeFile(registry(), before);
      TestRegistry handle(registry(), unverified);
      bool acted = false;
      Code code = 0;
      {
        calls = 0;
        const FaultHook other([&](const std::string&) {
          if (++calls == k) acted = row.act();
          return 0;
        });
        code = change(handle);
      }
      EXPECT_TRUE(isAnywhere(theirs) || !acted);
      EXPECT_EQ(readFile(registry()).substr(0, 80), handle.isUpdateCommitted() ? changed : before);
      EXPECT_TRUE(code != 0 || handle.isUpdateCommitted());
      EXPECT_TRUE(code == 0 || !row.succeeds);
    }
  }
}

TEST_F(CommitTest, TheRegistrysNameIsNeverMissing) {
  for (const std::uint64_t features : {unverified, verified, unique}) {
    for (Code (*operation)(TestRegistry&) : {add, change, remove}) {
      writeFile(registry(), before);
      TestRegistry handle(registry(), features);
      for (const int exchange : {0, ENOSYS}) {
        bool missing = false;
        int renames = 0;
        const FaultHook watching([&](const std::string& call) {
          missing = missing || !exists(registry());
          return call == "rename" && ++renames == 1 ? exchange : 0;
        });
        EXPECT_EQ(operation(handle), 0u);
        EXPECT_FALSE(missing);
        EXPECT_EQ(files(), "r");
        writeFile(registry(), before);
      }
    }
  }
}

TEST_F(CommitTest, WithoutHardLinksTheBackupStandsInForTheRegistry) {
  TestRegistry handle(registry(), unverified);
  for (const int none : {EPERM, ENOTSUP, ENOSYS, EMLINK}) {
    writeFile(registry(), before);
    bool missing = false;
    const FaultHook watching([&](const std::string& call) {
      missing = missing || !(exists(registry()) || readFile(backup()) == before);
      return call == "link" ? none : 0;
    });
    EXPECT_EQ(change(handle), 0u);
    EXPECT_FALSE(missing);
    EXPECT_EQ(readFile(registry()), changed);
    EXPECT_EQ(files(), "r");
  }
  // Somebody makes a file in the gap: theirs stays, and the old content is set aside.
  writeFile(registry(), before);
  int renames = 0;
  {
    const FaultHook gap([&](const std::string& call) {
      if (call == "rename" && ++renames == 2) writeFile(registry(), theirs);
      return call == "link" ? EPERM : 0;
    });
    EXPECT_EQ(change(handle), closing);
  }
  EXPECT_FALSE(handle.isUpdateCommitted());
  EXPECT_EQ(readFile(registry()), theirs);
  EXPECT_EQ(readFile(registry() + ".old"), before);
}

TEST_F(CommitTest, EachFailingStepGivesItsCodeAndKnowsWhetherTheUpdateIsCommitted) {
  constexpr Code locking = GENREG_RC_LOCK_FAILED;
  constexpr Code unlocking = GENREG_RC_UNLOCK_FAILED;
  // One failing call, the code of a Change, the routine and code logged.
  const struct {
    const char* call;
    unsigned long nth;
    Code result, function, logged;
    bool committed = false;
    int link = 0;  // what linking gives
  } cases[] = {
      {"open", 1, locking, 14, GENREG_RC_OPEN_LOCK_FAILED},
      {"flock", 1, locking, 14, OSS_RC_IO_ERROR},
      {"unlink", 1, opening, 15, GENREG_RC_CORRUPT_DELETE},
      {"rename", 1, opening, 15, GENREG_RC_CORRUPT_RENAME},
      {"fchmod", 1, opening, 15, GENREG_RC_TEMP_PERMISSIONS},
      {"read", 1, readFailed, 33, GENREG_RC_READ_LENGTH_FAILED},
      {"close", 1, closing, 11, GENREG_RC_CLOSE_FAILED},
      {"fsync", 1, closing, 11, GENREG_RC_CLOSE_TEMP_FAILED},
      {"write", 2, closing, 11, GENREG_RC_BACKUP_RENAME_FAILED},  // the announcement
      {"link", 1, closing, 11, GENREG_RC_BACKUP_RENAME_FAILED},
      {"rename", 1, closing, 11, GENREG_RC_COMMIT_RENAME_FAILED},
      {"rename", 2, closing, 11, GENREG_RC_COMMIT_RENAME_FAILED, false, EPERM},
      {"fsync", 2, closing, 11, GENREG_RC_COMMIT_RENAME_FAILED},
      {"fsync", 2, closing, 11, GENREG_RC_COMMIT_RENAME_FAILED, false, EPERM},
      {"unlink", 3, closing, 11, GENREG_RC_BACKUP_DELETE_FAILED, true},
      {"flock", 4, unlocking, 17, GENREG_RC_UNLOCK_FILE_FAILED, true},
      {"close", 5, unlocking, 17, GENREG_RC_CLOSE_LOCK_FAILED, true},
      {"unlink", 4, unlocking, 17, GENREG_RC_LOCK_DELETE_FAILED, true},
      {"none", 1, 0, 0, 0, true},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(std::string(row.call) + " " + std::to_string(row.nth));
    clearDirectory();
    writeFile(registry(), before);
    if (row.logged == GENREG_RC_CORRUPT_RENAME) writeFile(temporary(), "left over");
    setPermissions(registry(), 0640);
    TestRegistry handle(registry(), unverified);
    Diagnostics diagnostics;
    {
      unsigned long calls = 0;
      const FaultHook failing([&](const std::string& call) {
        if (call == row.call && ++calls == row.nth) return EIO;
        return call == "link" ? row.link : 0;
      });
      EXPECT_EQ(change(handle), row.result);
    }
    EXPECT_EQ(diagnostics.logs(0x082A0000u + row.function, row.logged) == 0, row.result == 0);
    EXPECT_EQ(readFile(registry()), row.committed ? changed : before);
    EXPECT_EQ(handle.isUpdateCommitted(), row.committed);
    EXPECT_EQ(exists(backup()), row.logged == GENREG_RC_BACKUP_DELETE_FAILED);
    EXPECT_FALSE(row.logged == GENREG_RC_TEMP_PERMISSIONS && exists(temporary()));
    EXPECT_EQ(handle.status, GENREG_STATUS_IDLE | GENREG_STATUS_READY);
  }
  // Names that the recovery or the first Add made are durable before anything is built on them.
  for (const bool recovers : {true, false}) {
    clearDirectory();
    if (recovers) writeFile(backup(), before);
    TestRegistry handle(registry(), verified);
    FaultPlan plan(1, EIO, false, "fsync");
    EXPECT_EQ(add(handle), opening);
    EXPECT_FALSE(handle.isUpdateCommitted());
  }
}

TEST_F(CommitTest, WhatWasNotSyncedIsNotCommittedWhateverElseFailed) {
  TestRegistry handle(registry(), verified);
  int closes = 0;  // the close of the registry fails, too
  const FaultHook failing([&](const std::string& call) {
    if (call == "close") return ++closes == 1 ? EIO : 0;
    return call == "fsync" ? EIO : 0;
  });
  EXPECT_EQ(change(handle), closing);
  EXPECT_EQ(readFile(registry()), before);
}

// The new content stands then, and only a power cut may still take it back: the old one is kept.
// As it is when a third party removed that writer's lock file; afterwards the registry is another.
TEST_F(CommitTest, ATemporaryFileThatItsWriterHoldsIsWaitedFor) {
  writeFile(temporary(), "theirs");
  const int writer = ::open(temporary().c_str(), O_RDONLY);
  ASSERT_EQ(::flock(writer, LOCK_SH), 0);
  TestRegistry handle(registry(), unverified);
  int attempts = 0;  // lock file, registry, temporary file, then the wait
  {
    const FaultHook ending([&](const std::string& call) {
      if (call == "flock" && ++attempts == 5) {
        replaceFile(registry(), before + theirs);
        (void)::close(writer);
      }
      return 0;
    });
    EXPECT_EQ(change(handle), 0u);
  }
  EXPECT_EQ(readFile(registry()), changed + theirs);
  EXPECT_EQ(readFile(corrupt()), "theirs");
}

TEST_F(CommitTest, AWayBackThatFailsKeepsBoth) {
  for (const int link : {0, EPERM}) {
    clearDirectory();
    writeFile(registry(), before);
    TestRegistry handle(registry(), unverified);
    int syncs = 0;
    const FaultHook failing([&](const std::string& call) {
      if (call == "fsync" && ++syncs == 2) return EIO;
      if (call == "rename" && syncs == 2) return EIO;
      return call == "link" ? link : 0;
    });
    EXPECT_EQ(change(handle), closing);
    EXPECT_TRUE(handle.isUpdateCommitted());
    EXPECT_EQ(readFile(registry()), changed);
    EXPECT_EQ(readFile(backup()), before);
  }
}

TEST_F(CommitTest, OnlyABackupThatIsProvenToBeItsOwnIsDropped) {
  // A commit that was killed before it deleted a name of the old file, and what happened after it.
  const auto killed = [&](unsigned long unlink) {
    EXPECT_EQ(inChild([&] {
                TestRegistry handle(registry(), unverified);
                const FaultPlan plan(unlink, 0, true, "unlink");
                return static_cast<int>(change(handle));
              }),
              -9);
  };
  const auto crashed = [&] {
    killed(3);
    EXPECT_EQ(files(), ".r.bkp .r.lock r");
  };
  const std::string old = registry() + ".old";
  const struct {
    const char* name;
    std::function<void()> arrange;
    std::map<std::string, std::string> aside;  // names and contents of what was set aside
  } cases[] = {
      {"a second name of the registry", [&] { fs::create_hard_link(registry(), backup()); }, {}},
      {"announced", crashed, {}},
      {"announced, the temporary's name still there", [&] { killed(2); }, {}},
      {"announced, the lock file gone",
       [&] { crashed(), fs::remove(lockFile()); },
       {{old, before}}},
      {"announced, another registry since",
       [&] { crashed(), replaceFile(registry(), changed); },
       {{old, before}}},
      {"announced, another backup since",
       [&] { crashed(), replaceFile(backup(), theirs); },
       {{old, theirs}}},
      {"foreign", [&] { writeFile(backup(), theirs); }, {{old, theirs}}},
      {"foreign, names taken",
       [&] {
         writeFile(backup(), theirs);
         writeFile(old, "x");
         writeFile(old + "1", "y");
       },
       {{old, "x"}, {old + "1", "y"}, {old + "2", theirs}}},
  };
  for (const auto& row : cases) {
    for (const std::uint64_t features : {unverified, verified}) {
      SCOPED_TRACE(row.name);
      clearDirectory();
      writeFile(registry(), before);
      row.arrange();
      TestRegistry handle(registry(), features);
      EXPECT_EQ(add(handle), 0u);
      std::string names = "r";
      for (const auto& [name, bytes] : row.aside) {
        EXPECT_EQ(readFile(name), bytes);
        names += " " + fs::path(name).filename().string();
      }
      EXPECT_EQ(files(), names);
    }
  }
}

TEST_F(CommitTest, ABackupThatIsNoFileOrCannotBeReadFailsEveryOperation) {
  const struct {
    const char* name;
    std::function<void()> plant;
  } cases[] = {
      {"link", [&] { plantLink("victim", backup()); }},
      {"directory", [&] { fs::create_directory(backup()); }},
      {"pipe", [&] { plantPipe(backup()); }},
  };
  for (const auto& row : cases) {
    for (const bool missing : {false, true}) {
      SCOPED_TRACE(row.name);
      clearDirectory();
      writeFile(path("victim"), before);
      if (!missing) writeFile(registry(), before);
      row.plant();
      TestRegistry handle(registry(), verified);
      EXPECT_EQ(change(handle), opening);
      EXPECT_EQ(add(handle), opening);
      EXPECT_EQ(get(handle) == 0, !missing);
      EXPECT_EQ(files(), missing ? ".r.bkp victim" : ".r.bkp r victim");
      EXPECT_EQ(readFile(registry()), missing ? "" : before);
    }
  }
  // Somebody helped himself with a link to the backup: it is all there is.
  clearDirectory();
  writeFile(backup(), before);
  fs::create_symlink(backup(), registry());
  TestRegistry linked(registry(), verified);
  EXPECT_EQ(change(linked), opening);
  EXPECT_EQ(readFile(backup()), before);
  // A reader that may not open the only file there is must not report that there is none.
  clearDirectory();
  writeFile(backup(), before);
  TestRegistry handle(registry());
  FaultPlan plan(2, EACCES, false, "open");
  EXPECT_EQ(get(handle), opening);
}

TEST_F(CommitTest, AnAbandonedAppendInPlaceLeavesNothingBehind) {
  // Written, not yet durable, then the sync or the final mark fails.
  const struct {
    const char* call;
    unsigned long nth;
    Code code;
  } cases[] = {{"write", 1, writeNewFailed},
               {"fsync", 1, writeNewFailed},
               {"write", 2, writeNewFailed},
               {"fsync", 2, closing}};
  for (const auto& row : cases) {
    SCOPED_TRACE(std::string(row.call) + std::to_string(row.nth));
    TestRegistry handle(registry(), unverified);
    {
      const FaultPlan plan(row.nth, ENOSPC, false, row.call);
      EXPECT_EQ(add(handle), row.code);
    }
    EXPECT_FALSE(handle.isUpdateCommitted());
    EXPECT_EQ(readFile(registry()), before);
    EXPECT_EQ(files(), "r");
  }
}

TEST_F(CommitTest, ATemporaryFileThatHadNoRoomGoesAtOnce) {
  for (const std::uint64_t features : {unverified, verified}) {
    for (Code (*operation)(TestRegistry&) : {add, change, remove}) {
      for (const char* call : {"write", "fsync"}) {
        TestRegistry handle(registry(), operation == add ? features & unique : features);
        const FaultPlan plan(1, ENOSPC, false, call);
        EXPECT_NE(operation(handle), 0u);
        EXPECT_EQ(readFile(registry()), before);
        EXPECT_EQ(files(), "r") << call;
      }
    }
  }
}

}  // namespace
