// What a machine under Windows does and Wine may not: scripts/windows/check.cmd runs these there. A
// test that finds its system without the thing it is about says so.
#include <windows.h>

#include "support/operations.h"
#include "sysservices/file_system.h"

namespace {

constexpr DWORD everySharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// A handle of another program, which has nothing to do with the library's.
class Foreign {
 public:
  Foreign(const std::string& name, DWORD access)
      : handle_(::CreateFileA(name.c_str(), access, everySharing, nullptr, OPEN_EXISTING, 0,
                              nullptr)) {}
  ~Foreign() { close(); }
  Foreign(const Foreign&) = delete;
  Foreign& operator=(const Foreign&) = delete;

  HANDLE get() const { return handle_; }
  void close() {
    if (handle_ != INVALID_HANDLE_VALUE) ::CloseHandle(handle_);
    handle_ = INVALID_HANDLE_VALUE;
  }
  bool reads() const {
    char byte = 0;
    DWORD count = 0;
    return ::SetFilePointer(handle_, 0, nullptr, FILE_BEGIN) == 0 &&
           ::ReadFile(handle_, &byte, 1, &count, nullptr) != 0 && count == 1;
  }
  bool writes() const {
    DWORD count = 0;
    return ::SetFilePointer(handle_, 0, nullptr, FILE_BEGIN) == 0 &&
           ::WriteFile(handle_, "C", 1, &count, nullptr) != 0 && count == 1;
  }
  bool deletes(int how, DWORD flags) const {
    return ::SetFileInformationByHandle(handle_, static_cast<FILE_INFO_BY_HANDLE_CLASS>(how),
                                        &flags, how == FileDispositionInfo ? 1 : sizeof flags) != 0;
  }

 private:
  HANDLE handle_;
};

constexpr int dispositionEx = 21;  // FileDispositionInfoEx, which not every header has
constexpr DWORD posixDelete = 0x1 | 0x2;

class Machine : public RegistryTest {
 protected:
  void SetUp() override {
    RegistryTest::SetUp();
    writeFile(registry(), oneAndTwo);
  }

  const std::string changed = frame(variable("a", 1)) + frame(variable("b", 22));
};

TEST_F(Machine, TheLibrarysLocksStopNoReadsAndWritesWhereTheSystemEnforcesLocks) {
  const Foreign holder(registry(), GENERIC_READ | GENERIC_WRITE);
  const Foreign other(registry(), GENERIC_READ | GENERIC_WRITE);
  OVERLAPPED start{};
  ASSERT_NE(::LockFileEx(holder.get(), LOCKFILE_EXCLUSIVE_LOCK, 0, 4, 0, &start), 0);
  const bool enforced = !other.reads() && !other.writes();
  ASSERT_NE(::UnlockFileEx(holder.get(), 0, 4, 0, &start), 0);
  OSSHFile file;
  const std::string name = registry();
  const OSSFileOpenParam how{
      OSS_PARAM_LEVEL, name.c_str(), OSS_ACCESS_READ_WRITE, OSS_OPEN_APPEND, 0, 0600, 0};
  const OSSFileLockParam wanted{OSS_PARAM_LEVEL, OSS_LOCK_EXCLUSIVE, OSS_LOCK_NOWAIT};
  ASSERT_EQ(file.open(&how), 0u);
  ASSERT_EQ(file.lock(&wanted), 0u);
  EXPECT_TRUE(other.reads());
  EXPECT_TRUE(other.writes());
  EXPECT_EQ(file.close(), 0u);
  if (!enforced) GTEST_SKIP() << "this system does not enforce locks against reads and writes";
}

TEST_F(Machine, ADeleteAsPosixDoesItLeavesNoNameBehind) {
  writeFile(path("probe"), "");
  if (!Foreign(path("probe"), DELETE).deletes(dispositionEx, posixDelete)) {
    GTEST_SKIP() << "this file system does not delete as POSIX does";
  }
  const Foreign reader(registry(), GENERIC_READ);
  EXPECT_EQ(ossFileDelete(registry().c_str()), 0u);
  EXPECT_EQ(files(), "");
  EXPECT_TRUE(reader.reads());
}

// As a program does that deletes a file that a third one has open.
TEST_F(Machine, WhileADeleteOfTheBackupIsPendingAnUpdateFailsWholeOrSucceeds) {
  writeFile(backup(), oneAndTwo);
  Foreign reader(backup(), GENERIC_READ);
  {
    const Foreign deleter(backup(), DELETE);
    ASSERT_TRUE(deleter.deletes(FileDispositionInfo, 1));
  }
  TestRegistry handle(registry());
  const Code code = change(handle);
  EXPECT_EQ(readFile(registry()), code == 0 ? changed : oneAndTwo) << code;
  reader.close();
  const Code next = change(handle);
  EXPECT_TRUE(next == 0 || (code == 0 && next == unchanged)) << next;
  EXPECT_EQ(readFile(registry()), changed);
}

TEST_F(Machine, ALinkInThePlaceOfACompanionIsRefused) {
  const std::string victim = path("victim");
  writeFile(victim, "untouched");
  const DWORD unprivileged = 0x2;
  for (const std::string& name : {lockFile(), temporary()}) {
    (void)::CreateSymbolicLinkA(name.c_str(), victim.c_str(), unprivileged);
    const DWORD made = ::GetFileAttributesA(name.c_str());
    if (made == INVALID_FILE_ATTRIBUTES || (made & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
      GTEST_SKIP() << "no symbolic links: Wine has none, Windows wants developer mode";
    }
    TestRegistry handle(registry());
    const Code code = change(handle);
    EXPECT_EQ(readFile(registry()), code == 0 ? changed : oneAndTwo) << name;
    EXPECT_TRUE(code != 0 || name == temporary()) << "a link served as a lock file";
    EXPECT_EQ(readFile(victim), "untouched") << name;
    ::DeleteFileA(name.c_str());
    writeFile(registry(), oneAndTwo);
  }
}

}  // namespace
