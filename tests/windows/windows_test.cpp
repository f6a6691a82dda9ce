// What only Windows does: names that stay taken, devices among the files, mandatory locks, access
// lists.
// The second header needs the first.
// clang-format off
#include <windows.h>
#include <sddl.h>
// clang-format on

#include <filesystem>

#include "support/operations.h"
#include "sysservices/file_system.h"
#include "sysservices/windows/system_call.h"

namespace {

class Windows : public RegistryTest {
 protected:
  static Code open(OSSHFile& file, const std::string& name, std::uint32_t mode) {
    const OSSFileOpenParam param{
        OSS_PARAM_LEVEL, name.c_str(), OSS_ACCESS_READ_WRITE, mode, 0, 0600, 0};
    return file.open(&param);
  }

  // The access list of a file, as text.
  static std::string accessOf(const std::string& name) {
    alignas(SECURITY_DESCRIPTOR) BYTE list[4096];
    DWORD size = sizeof list;
    EXPECT_NE(::GetFileSecurityA(name.c_str(), DACL_SECURITY_INFORMATION, list, size, &size), 0);
    char* text = nullptr;
    EXPECT_NE(::ConvertSecurityDescriptorToStringSecurityDescriptorA(
                  list, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr),
              0);
    const std::string access = text == nullptr ? "" : text;
    ::LocalFree(text);
    return access;
  }

  static void giveAccess(const std::string& name, const char* access) {
    PSECURITY_DESCRIPTOR list = nullptr;
    EXPECT_NE(::ConvertStringSecurityDescriptorToSecurityDescriptorA(access, SDDL_REVISION_1, &list,
                                                                     nullptr),
              0);
    EXPECT_NE(
        ::SetFileSecurityA(name.c_str(),
                           DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION, list),
        0);
    ::LocalFree(list);
  }
};

TEST_F(Windows, ADeletedNameIsFreeAtOnceAlthoughAReaderHasTheFile) {
  const std::string next = path("next");
  OSSHFile readers[2];
  for (OSSHFile& reader : readers) {
    writeFile(registry(), "old");
    writeFile(next, "new");
    ASSERT_EQ(open(reader, registry(), OSS_OPEN_EXISTING), 0u);
    EXPECT_EQ(ossFileDelete(registry().c_str()), 0u);
    EXPECT_FALSE(exists(registry()));
    EXPECT_EQ(ossFileRename(next.c_str(), registry().c_str()), 0u);
  }
  for (OSSHFile& reader : readers) EXPECT_EQ(reader.close(), 0u);
  EXPECT_EQ(files(), "r");
}

// Beside the backup of a registry with such a name there is no room for another name.
TEST_F(Windows, UpdatesOfARegistryWithTheLongestNameLeaveNothing) {
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(directory_);
  for (std::size_t length = 244; length <= 249; ++length) {
    const std::string name(length, 'r');
    writeFile(name, oneAndTwo);
    if (!exists(name)) continue;  // where the directories before it count, too
    TestRegistry handle(name);
    for (auto* const update : {change, add}) EXPECT_EQ(update(handle), 0u) << length;
    EXPECT_EQ(remove(handle), 0u) << length;
    EXPECT_TRUE(files() == name) << length;
    clearDirectory();
  }
  std::filesystem::current_path(before);
}

TEST_F(Windows, AnOpenLockFileCannotBeTakenAway) {
  OSSHFile holder;
  ASSERT_EQ(open(holder, lockFile(), OSS_OPEN_LOCK_FILE), 0u);
  EXPECT_EQ(::DeleteFileA(lockFile().c_str()), 0);
  EXPECT_EQ(::MoveFileExA(lockFile().c_str(), path("away").c_str(), 0), 0);
  EXPECT_EQ(files(), ".r.lock");
}

TEST_F(Windows, ADeviceIsNoFile) {
  OSSHFile file;
  for (const std::uint32_t mode : {OSS_OPEN_EXISTING, OSS_OPEN_LOCK_FILE, OSS_OPEN_APPEND}) {
    EXPECT_EQ(open(file, "NUL", mode), OSS_RC_NOT_A_FILE) << mode;
  }
}

TEST_F(Windows, ALockOutlivesTheHandleThatItsOwnWasDuplicatedFrom) {
  writeFile(registry(), "content");
  OSSHFile first;
  OSSHFile second;
  OSSHFile other;
  ASSERT_EQ(open(first, registry(), OSS_OPEN_APPEND), 0u);
  ASSERT_EQ(open(other, registry(), OSS_OPEN_EXISTING), 0u);
  const OSSFileLockParam shared{OSS_PARAM_LEVEL, OSS_LOCK_SHARED, OSS_LOCK_NOWAIT};
  const OSSFileLockParam exclusive{OSS_PARAM_LEVEL, OSS_LOCK_EXCLUSIVE, OSS_LOCK_NOWAIT};
  ASSERT_EQ(second.duplicate(first), 0u);
  ASSERT_EQ(second.lock(&shared), 0u);
  EXPECT_EQ(first.writeAt("C", 1, 0), 0u);
  EXPECT_EQ(first.close(), 0u);
  EXPECT_EQ(other.lock(&exclusive), OSS_RC_LOCK_BUSY);
  EXPECT_EQ(second.close(), 0u);
  EXPECT_EQ(other.lock(&exclusive), 0u);
  EXPECT_EQ(readFile(registry()), "Content");
}

TEST_F(Windows, TheNewFileIsOpenToTheSamePeopleFromBirth) {
  writeFile(registry(), oneAndTwo);
  const std::string inherited = accessOf(registry());
  giveAccess(registry(), "D:P(A;;FA;;;BA)(A;;FA;;;SY)");
  const std::string narrow = accessOf(registry());
  ASSERT_NE(narrow, inherited);
  TestRegistry handle(registry());
  std::string atFirst;
  {
    const FaultHook watch([&](const std::string&) {
      if (atFirst.empty() && exists(temporary())) atFirst = accessOf(temporary());
      return 0;
    });
    EXPECT_EQ(change(handle), 0u);
  }
  EXPECT_EQ(atFirst, narrow);
  EXPECT_EQ(accessOf(registry()), narrow);
}

TEST_F(Windows, AnUpdateKeepsTheAttributesOfAFileThatIsReadInSpiteOfThem) {
  constexpr DWORD hidden = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
  for (const DWORD attributes : {hidden, hidden | FILE_ATTRIBUTE_READONLY}) {
    writeFile(registry(), oneAndTwo);
    ASSERT_NE(::SetFileAttributesA(registry().c_str(), attributes), 0);
    if ((::GetFileAttributesA(registry().c_str()) & hidden) != hidden) {
      GTEST_SKIP() << "the file system keeps no such attributes";
    }
    TestRegistry handle(registry());
    for (auto* const operation : {get, scan, change}) EXPECT_EQ(operation(handle), 0u);
    const DWORD kept = hidden | FILE_ATTRIBUTE_READONLY;
    EXPECT_EQ(::GetFileAttributesA(registry().c_str()) & kept, attributes);
    setPermissions(registry(), 0600);
  }
}

TEST_F(Windows, OnlyWhatIsAnotherNameOfAFileIsALink) {
  constexpr DWORD point = FILE_ATTRIBUTE_REPARSE_POINT;
  const struct {
    DWORD attributes, tag;
    bool isLink;
  } rows[] = {{point, 0xA000000C, true},   // a symbolic link
              {point, 0xA0000003, true},   // a mount point
              {point, 0x9000001A, false},  // kept in a cloud
              {point, 0x80000013, false},  // deduplicated
              {point, 0x80000017, false},  // compressed by the system
              {FILE_ATTRIBUTE_NORMAL, 0xA000000C, false}};
  for (const auto& row : rows)
    EXPECT_EQ(oss::isLink(row.attributes, row.tag), row.isLink) << row.tag;
}

TEST_F(Windows, NoTemporaryFileStaysThatCannotBecomeReadOnlyOrBegin) {
  for (const char* call : {"fchmod", "malloc", "fstat"}) {
    bool isMade = false;
    int failed = 0;
    writeFile(registry(), oneAndTwo);
    setPermissions(registry(), 0400);
    TestRegistry handle(registry());
    {
      const FaultHook fault([&](const std::string& made) {
        isMade = isMade || exists(temporary());
        return isMade && made == call && ++failed == 1 ? EACCES : 0;
      });
      EXPECT_NE(change(handle), 0u) << call;
    }
    setPermissions(registry(), 0600);
    EXPECT_TRUE(isMade);
    EXPECT_EQ(files(), "r") << call;
    EXPECT_EQ(readFile(registry()), oneAndTwo);
  }
}

TEST_F(Windows, WhatIsWrittenInPiecesIsWhole) {
  writeFile(registry(), oneAndTwo);
  std::size_t writes = 0;
  int piece = OSS_FAULT_SHORT;
  const FaultHook fault([&](const std::string& call) {
    writes += call == "write";
    return call == "write" ? piece : 0;
  });
  TestRegistry handle(registry());
  EXPECT_EQ(change(handle), 0u);
  EXPECT_GT(writes, 1u);
  piece = ossFaultAtMost(1);
  EXPECT_EQ(remove(handle), 0u);
  EXPECT_EQ(readFile(registry()), frame(variable("b", 22)));
}

TEST_F(Windows, InheritedAccessStaysInheritedAndADirectorysOwnStays) {
  ::RemoveDirectoryA(path("d").c_str());
  ASSERT_NE(::CreateDirectoryA(path("d").c_str(), nullptr), 0);
  giveAccess(path("d"), "D:P(A;OICI;FA;;;WD)(A;OICI;FR;;;BG)");
  const std::string name = path("d") + "/r";
  writeFile(name, oneAndTwo);
  const std::string inherited = accessOf(name);
  TestRegistry handle(name);
  EXPECT_EQ(change(handle), 0u);
  EXPECT_EQ(accessOf(name), inherited);
  if (inherited.find("ID;") == std::string::npos) GTEST_SKIP() << "no access is inherited here";
}

}  // namespace
