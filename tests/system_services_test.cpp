// Locks on a file that comes and goes, file operations, text to value, log lines.
#include <set>

#include "support/operations.h"
#include "sysservices/environment.h"
#include "sysservices/file_system.h"

namespace {

class ServicesTest : public RegistryTest {
 protected:
  // The handle keeps the pointer to its name.
  unsigned int open(OSSHFile& file, const std::string& name, std::uint32_t mode) {
    const OSSFileOpenParam param{OSS_PARAM_LEVEL,
                                 names_.insert(name).first->c_str(),
                                 OSS_ACCESS_READ_WRITE,
                                 mode,
                                 0,
                                 0600,
                                 0};
    return file.open(&param);
  }
  unsigned int lock(OSSHFile& file, std::uint32_t type, std::uint32_t wait = OSS_LOCK_NOWAIT) {
    const OSSFileLockParam param{OSS_PARAM_LEVEL, type, wait};
    return file.lock(&param);
  }

 private:
  std::set<std::string> names_;
};

TEST_F(ServicesTest, LocksBelongToTheHandleAndEndWithIt) {
  writeFile(registry(), "");
  OSSHFile first;
  OSSHFile second;
  ASSERT_EQ(open(first, registry(), OSS_OPEN_EXISTING), 0u);
  ASSERT_EQ(open(second, registry(), OSS_OPEN_APPEND), 0u);
  EXPECT_EQ(lock(first, OSS_LOCK_SHARED), 0u);
  EXPECT_EQ(lock(second, OSS_LOCK_SHARED), 0u);
  EXPECT_EQ(lock(second, OSS_LOCK_EXCLUSIVE), OSS_RC_LOCK_BUSY);
  EXPECT_EQ(first.close(), 0u);
  EXPECT_EQ(lock(second, OSS_LOCK_EXCLUSIVE), 0u);
  EXPECT_EQ(open(first, path("missing"), OSS_OPEN_EXISTING), OSS_RC_FILE_NOT_FOUND);
  EXPECT_EQ(open(first, directory_, OSS_OPEN_EXISTING), OSS_RC_NOT_A_FILE);
  EXPECT_EQ(open(first, registry(), 3), OSS_RC_BAD_PARAMETER);
  EXPECT_EQ(lock(second, 3), OSS_RC_BAD_PARAMETER);
  EXPECT_EQ(first.unlock() != 0, true);
}

TEST_F(ServicesTest, ALockGrantedOnARemovedFileIsTakenAtTheName) {
  SKIP_WITHOUT(Need::RemovableLockFiles);
  OSSHFile holder;
  OSSHFile waiter;
  ASSERT_EQ(open(holder, lockFile(), OSS_OPEN_LOCK_FILE), 0u);
  ASSERT_EQ(lock(holder, OSS_LOCK_EXCLUSIVE), 0u);
  ASSERT_EQ(open(waiter, lockFile(), OSS_OPEN_LOCK_FILE), 0u);
  ASSERT_EQ(std::remove(lockFile().c_str()), 0);
  ASSERT_EQ(holder.close(), 0u);
  ASSERT_EQ(lock(waiter, OSS_LOCK_EXCLUSIVE), 0u);
  OSSHFile third;
  ASSERT_EQ(open(third, lockFile(), OSS_OPEN_LOCK_FILE), 0u);
  EXPECT_EQ(lock(third, OSS_LOCK_EXCLUSIVE), OSS_RC_LOCK_BUSY) << "two holders at once";
}

TEST_F(ServicesTest, ALockFileIsRemovedOnlyByWhoeverCanLockIt) {
  const char* const name = "lock";  // any: it is the call that makes it one
  const std::string lockName = path(name);
  EXPECT_EQ(ossLockFileDelete(lockName.c_str()), OSS_RC_FILE_NOT_FOUND);
  EXPECT_EQ(ossLockFileDelete(nullptr), OSS_RC_NULL_ARGUMENT);
  OSSHFile holder;
  ASSERT_EQ(open(holder, lockName, OSS_OPEN_LOCK_FILE), 0u);
  EXPECT_TRUE(holder.wasCreated());
  ASSERT_EQ(lock(holder, OSS_LOCK_EXCLUSIVE), 0u);
  EXPECT_EQ(ossLockFileDelete(lockName.c_str()), 0u);
  EXPECT_TRUE(exists(lockName)) << "the name belongs to the holder";
  ASSERT_EQ(holder.unlock(), 0u);
  EXPECT_EQ(ossLockFileDelete(lockName.c_str()), 0u);
  EXPECT_EQ(exists(lockName), lacking(Need::RemovableLockFiles) != nullptr);
  ASSERT_EQ(holder.close(), 0u);
  (void)ossLockFileDelete(lockName.c_str());
  EXPECT_FALSE(exists(lockName));
  // A name that ends like a lock file's says nothing.
  writeFile(lockFile(), "");
  ASSERT_EQ(open(holder, lockFile(), OSS_OPEN_EXISTING), 0u);
  ASSERT_EQ(lock(holder, OSS_LOCK_EXCLUSIVE), 0u);
  EXPECT_EQ(ossFileDelete(lockFile().c_str()), 0u);
  EXPECT_FALSE(exists(lockFile()));
}

TEST_F(ServicesTest, RenamesNeverReplaceAndDeletesReportWhatWasMissing) {
  const std::string a = path("a");
  const std::string b = path("b");
  const std::string c = path("c");
  writeFile(a, "a");
  writeFile(b, "b");
  EXPECT_EQ(ossFileRename(a.c_str(), b.c_str()), OSS_RC_FILE_EXISTS);
  EXPECT_EQ(ossFileRename(c.c_str(), path("d").c_str()), OSS_RC_FILE_NOT_FOUND);
  EXPECT_EQ(readFile(b), "b");
  EXPECT_EQ(ossFileRename(a.c_str(), c.c_str()), 0u);
  EXPECT_EQ(ossFileDelete(c.c_str()), 0u);
  EXPECT_EQ(ossFileDelete(c.c_str()), OSS_RC_FILE_NOT_FOUND);
  EXPECT_EQ(ossFileDelete(nullptr), OSS_RC_NULL_ARGUMENT);
  EXPECT_EQ(ossFileDelete(directory_.c_str()), OSS_RC_NOT_A_FILE);
  EXPECT_TRUE(ossIsDirectory(directory_.c_str()));
  EXPECT_EQ(ossFileSetPermissions(b.c_str(), 0440), 0u);
  const OSSFileInfoRequest request{OSS_PARAM_LEVEL, b.c_str()};
  OSSFileInfo info{};
  EXPECT_EQ(ossFileGetInfoV9(&request, &info), 0u);
  EXPECT_EQ(info.size, 1u);
  EXPECT_EQ(info.permissions, keptPermissions(0440));
  EXPECT_EQ(ossFileDelete(b.c_str()), 0u) << "a file that nobody may write can go, too";
}

TEST(Names, BaseAndDirectoryOfAPath) {
  const struct {
    const char *path, *base, *directory;
    bool hasDrives = false;
  } cases[] = {{"r", "r", "."},
               {"a/r", "r", "a"},
               {"/r", "r", "/"},
               {"/a/b/r", "r", "/a/b"},
               {"a//r", "r", "a"},
               {"a/b/", "b", "a"},
               {"a\\r", "r", "a", true},
               {"C:\\r", "r", "C:\\", true},
               {"C:\\a/b\\r\\", "r", "C:\\a/b", true},
               {"C:r", "r", "C:.", true}};
  char name[260];
  for (const auto& row : cases) {
    if (row.hasDrives && ossPathSeparator != '\\') continue;
    EXPECT_EQ(ossBaseName(row.path, name, sizeof name), 0u);
    EXPECT_STREQ(name, row.base) << row.path;
    EXPECT_EQ(ossDirectoryName(row.path, name, sizeof name), 0u);
    EXPECT_STREQ(name, row.directory) << row.path;
  }
  EXPECT_EQ(ossBaseName("/", name, sizeof name), OSS_RC_BAD_PARAMETER);
  EXPECT_EQ(ossBaseName("a/long", name, 4), OSS_RC_BUFFER_TOO_SMALL);
  EXPECT_EQ(ossBaseName("a/long", name, 5), 0u);
}

TEST_F(ServicesTest, ALogLineNamesRoutineCodeStepAndValues) {
  const std::string log = path("log");
  expectInChild([&] {
    (void)ossEnvironmentSet("ZOROSSE_LOG", log.c_str());
    TestRegistry refusing(registry());
    refusing.ValidateKey = [](std::uint64_t, void*) -> Code { return GENREG_RC_KEY_EMPTY; };
    return TestRegistry(path("no\nfile")).OpenScan() == GENREG_RC_OPEN_FAILED &&
           get(refusing) == rejected;
  });
  const std::string lines = readFile(log);
  for (const char* part :
       {"probe=0x082A0005", "code=0x900001BF", "point=10", "severity=2",
        "routine=GenRegFile::OpenScan", "name=GENREG_RC_OPEN_FAILED", "callee=0x081A0002",
        "calleename=OSS_RC_FILE_NOT_FOUND", "no\\x0afile", "=0x900001F5"}) {
    EXPECT_NE(lines.find(part), std::string::npos) << part << " in " << lines;
  }
  for (std::size_t start = 0; start < lines.size(); start = lines.find('\n', start) + 1) {
    EXPECT_EQ(lines.compare(start, 5, "time="), 0) << "one record, one line";
  }
}

TEST_F(ServicesTest, EveryErrorNumberGivesAFailureCode) {
  Diagnostics diagnostics;
  for (int error = 0; error < 140; ++error) {
    EXPECT_EQ(ossErrorMapSystem(1, 2, OSS_SYSCALL_RUNTIME, error, 0) >> 16, 0x9000u);
  }
  EXPECT_EQ(diagnostics.records.size(), 140u);
}

}  // namespace
