// What other programs do to the files of a registry while it is updated: a commit replaces what was
// read and nothing else, and loses nothing of theirs.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/time.h>
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
  std::string old() const { return registry() + ".old"; }  // where a backup is set aside
  // A new file at the name, as a program that renames its own file over it makes one.
  static void replaceFile(const std::string& name, const std::string& bytes) {
    writeFile(name + ".new", bytes);
    fs::rename(name + ".new", name);
  }
};

TEST_F(CommitTest, WhatChangedSinceTheOpenIsNotReplaced) {
  const struct {
    const char* name;
    std::function<void()> act;
    std::string registry;
    std::string before = "fsync";  // the first such call, by default between open and commit
  } cases[] = {
      {"by the same bytes", [&] { replaceFile(registry(), before); }, before},
      {"registry cut off", [&] { fs::resize_file(registry(), 40); }, before.substr(0, 40)},
      {"overwritten in place",
       [&] {
         std::ofstream(registry(), std::ios::in | std::ios::out) << "\x24";
         fs::last_write_time(registry(), fs::file_time_type::clock::now() + std::chrono::hours(1));
       },
       before},
      {"registry removed", [&] { fs::remove(registry()); }, ""},
      {"lock file replaced", [&] { replaceFile(lockFile(), ""); }, before},
      {"by a link", [&] { fs::remove(lockFile()), plantLink("r", lockFile()); }, before},
      {"temporary file removed", [&] { fs::remove(temporary()); }, before},
      {"temporary file replaced", [&] { replaceFile(temporary(), theirs); }, before},
      {"registry replaced in the moment of the commit", [&] { replaceFile(registry(), theirs); },
       theirs, "rename"},
      {"backup planted", [&] { writeFile(backup(), theirs); }, changed},
  };
  for (const auto& row : cases) {
    for (const std::uint64_t features : {unverified, verified}) {
      SCOPED_TRACE(std::string(row.name) + ", features " + std::to_string(features));
      clearDirectory();
      writeFile(registry(), before);
      TestRegistry handle(registry(), features);
      {
        int calls = 0;
        const FaultHook other([&](const std::string& call) {
          if (call == row.before && ++calls == 1) row.act();
          return 0;
        });
        const Code refused = features == verified ? verifying : closing;
        EXPECT_EQ(change(handle), row.registry == changed ? 0 : refused);
      }
      EXPECT_EQ(handle.isUpdateCommitted(), row.registry == changed);
      EXPECT_EQ(readFile(registry()), row.registry);
      EXPECT_FALSE(exists(backup()) || exists(lockFile()));
      EXPECT_EQ(readFile(old()), row.registry == changed ? theirs : "");
    }
  }
}

TEST_F(CommitTest, TheRegistrysNameIsNeverMissingUnlessThereAreNoLinks) {
  const std::pair<const char*, int> lacking[] = {{"nothing", 0},   {"rename", ENOSYS},
                                                 {"link", EPERM},  {"link", ENOTSUP},
                                                 {"link", ENOSYS}, {"link", EMLINK}};
  for (const auto& [lacks, error] : lacking) {
    const bool links = std::string(lacks) != "link";
    for (const std::uint64_t features : {unverified, verified, unique}) {
      for (Code (*operation)(TestRegistry&) : {add, change, remove}) {
        writeFile(registry(), before);
        TestRegistry handle(registry(), features);
        bool missing = false;
        int calls = 0;
        const FaultHook watching([&, lacks = lacks, error = error](const std::string& call) {
          missing = missing || !(exists(registry()) || (!links && readFile(backup()) == before));
          return call == lacks && ++calls == 1 ? error : 0;
        });
        EXPECT_EQ(operation(handle), 0u);
        EXPECT_FALSE(missing);
        EXPECT_NE(readFile(registry()), before);
        EXPECT_EQ(files(), "r");
      }
    }
  }
}

TEST_F(CommitTest, AFileMadeWhileTheNameIsMissingStaysAndTheOldContentIsSetAside) {
  TestRegistry handle(registry(), unverified);
  int renames = 0;
  const FaultHook gap([&](const std::string& call) {
    if (call == "rename" && ++renames == 2) writeFile(registry(), theirs);
    return call == "link" ? EPERM : 0;
  });
  EXPECT_EQ(change(handle), closing);
  EXPECT_FALSE(handle.isUpdateCommitted());
  EXPECT_EQ(readFile(registry()), theirs);
  EXPECT_EQ(readFile(old()), before);
}

TEST_F(CommitTest, WhatCannotBeTidiedOrMadeDurableFailsTheUpdate) {
  // A temporary file that is not asked for any more and cannot go.
  TestRegistry abandoning(registry(), unique);
  {
    const FaultPlan plan(2, EIO, false, "unlink");
    BinVarValRecord absent = variable("absent");
    EXPECT_EQ(abandoning.Delete(byName, &absent), GENREG_RC_DELETE_TEMP_FAILED);
  }
  // One that went with its failed update says nothing of the next one's.
  TestRegistry twice(registry(), unique);
  {
    const FaultPlan plan(1, ENOSPC, false, "write");
    EXPECT_NE(change(twice), 0u);
  }
  BinVarValRecord absent = variable("absent");
  EXPECT_EQ(twice.Delete(byName, &absent), notFound);
  EXPECT_FALSE(exists(temporary()));
  // Nor does its handle hold up another one's update, with one that it left.
  BinVarValRecord twin = variable("b");
  EXPECT_EQ(abandoning.Add(byName, &twin), duplicate);
  TestRegistry other(registry(), unique);
  EXPECT_EQ(other.setLockTimeout(1000), 0u);
  EXPECT_EQ(change(other), 0u);
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

// As it is when a third party removed that writer's lock file; afterwards the registry is another.
// The writer ends in a signal that interrupts the wait.
TEST_F(CommitTest, ATemporaryFileThatItsWriterHoldsIsWaitedFor) {
  writeFile(temporary(), "theirs");
  static int writer;
  writer = ::open(temporary().c_str(), O_RDONLY);
  ASSERT_EQ(::flock(writer, LOCK_SH), 0);
  struct sigaction ending {};
  ending.sa_handler = [](int) { (void)::close(writer); };
  ASSERT_EQ(::sigaction(SIGALRM, &ending, nullptr), 0);
  TestRegistry handle(registry(), unverified);
  int attempts = 0;  // lock file, registry, temporary file, then the wait
  {
    const FaultHook waiting([&](const std::string& call) {
      if (call == "flock" && ++attempts == 5) {
        replaceFile(registry(), before + theirs);
        const itimerval soon{{}, {0, 1000}};
        (void)::setitimer(ITIMER_REAL, &soon, nullptr);
      }
      return 0;
    });
    EXPECT_EQ(change(handle), 0u);
  }
  EXPECT_EQ(readFile(registry()), changed + theirs);
  EXPECT_EQ(readFile(corrupt()), "theirs");
  // What a link there points to is nobody's temporary file, whoever holds it.
  writeFile(path("victim"), "precious");
  plantLink("victim", temporary());
  writer = ::open(path("victim").c_str(), O_RDONLY);
  ASSERT_EQ(::flock(writer, LOCK_EX), 0);
  EXPECT_EQ(change(handle), unchanged);
  EXPECT_EQ(::close(writer), 0);
}

// The new content stands then, and only a power cut may still take it back: the old one is kept.
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
  // Nor can the way back to what another program renamed over it in the moment of the commit.
  clearDirectory();
  writeFile(registry(), before);
  TestRegistry handle(registry(), unverified);
  int renames = 0;
  const FaultHook other([&](const std::string& call) {
    if (call != "rename") return 0;
    if (++renames == 1) replaceFile(registry(), theirs);
    return renames == 2 ? EIO : 0;
  });
  EXPECT_EQ(change(handle), closing);
  EXPECT_TRUE(handle.isUpdateCommitted());
  EXPECT_EQ(readFile(registry()), changed);
  EXPECT_EQ(readFile(temporary()), theirs);
}

TEST_F(CommitTest, ATemporaryFileThatNobodyHasLockedIsVerifiedWhenItCanBeLocked) {
  writeFile(temporary(), changed);
  TestRegistry verifies(registry(), verified);
  for (const Code code : {GENREG_RC_OPEN_TEMP_FAILED, 0u}) {
    const FaultPlan plan(code == 0 ? 0 : 2, EIO, false, "flock");
    EXPECT_EQ(verifies.OpenRegFile(GENREG_OP_VERIFY), code);
  }
  EXPECT_EQ(verifies.CloseRegFile(GENREG_OP_READ), 0u);
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
       {{old(), before}}},
      {"announced, another registry since",
       [&] { crashed(), replaceFile(registry(), changed); },
       {{old(), before}}},
      {"announced, another backup since",
       [&] { crashed(), replaceFile(backup(), theirs); },
       {{old(), theirs}}},
      {"foreign, names taken",
       [&] {
         writeFile(backup(), theirs);
         writeFile(old(), "x");
         writeFile(old() + "1", "y");
       },
       {{old(), "x"}, {old() + "1", "y"}, {old() + "2", theirs}}},
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
  const std::function<void()> plants[] = {[&] { plantLink("victim", backup()); },
                                          [&] { fs::create_directory(backup()); },
                                          [&] { plantPipe(backup()); }};
  for (const auto& plant : plants) {
    for (const bool missing : {false, true}) {
      clearDirectory();
      writeFile(path("victim"), before);
      if (!missing) writeFile(registry(), before);
      plant();
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
  // A registry that came back since it was looked for is found.
  clearDirectory();
  {
    int opens = 0;
    const FaultHook late([&](const std::string& call) {
      if (call == "open" && ++opens == 2) writeFile(registry(), before);
      return 0;
    });
    TestRegistry reader(registry());
    EXPECT_EQ(get(reader), 0u);
  }
  // A backup that no name is left for stays where it is, and nothing is committed beside it.
  writeFile(backup(), theirs);
  for (int i = 0; i < 100; ++i) writeFile(old() + (i == 0 ? "" : std::to_string(i)), "x");
  TestRegistry crowded(registry(), verified);
  EXPECT_EQ(change(crowded), opening);
  EXPECT_EQ(readFile(backup()), theirs);
  // A reader that may not open the only file there is must not report that there is none.
  clearDirectory();
  writeFile(backup(), before);
  TestRegistry handle(registry());
  FaultPlan plan(2, EACCES, false, "open");
  EXPECT_EQ(get(handle), opening);
}

// A wait is left to the system after two seconds; the fourth signal comes into it, and the last one
// ends it.
TEST_F(CommitTest, AWaitThatSignalsInterruptGoesOn) {
  static int holder;
  static volatile sig_atomic_t signals;
  struct sigaction ending {};
  ending.sa_handler = [](int) {
    signals = signals + 1;
    if (signals == 5) (void)::close(holder);
  };
  ASSERT_EQ(::sigaction(SIGALRM, &ending, nullptr), 0);
  holder = ::open(registry().c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(::flock(holder, LOCK_EX), 0);
  const itimerval often{{0, 600000}, {0, 600000}};
  const itimerval never{};
  TestRegistry handle(registry());
  ASSERT_EQ(::setitimer(ITIMER_REAL, &often, nullptr), 0);
  EXPECT_EQ(get(handle), 0u);
  ASSERT_EQ(::setitimer(ITIMER_REAL, &never, nullptr), 0);
  EXPECT_GE(signals, 5);
}

}  // namespace
