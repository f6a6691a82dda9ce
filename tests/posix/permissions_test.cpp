// Who may do what with the files of a registry: users, masks, access lists, closed directories.
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "support/operations.h"
#include "support/stored_record.h"

namespace {

namespace fs = std::filesystem;

const std::string content = frame(variable("a", 1)) + frame(variable("b", 2));

bool isRoot() { return ::geteuid() == 0; }

class PermissionsTest : public RegistryTest {
 protected:
  void TearDown() override {
    setPermissions(directory_, 0700);
    RegistryTest::TearDown();
  }
  using Operation = Code (*)(TestRegistry&);
  void expectDone(uid_t user, const std::vector<Operation>& operations,
                  std::uint64_t features = verified) {
    expectAs(user, [&] {
      TestRegistry handle(registry(), features);
      for (const Operation& operation : operations) {
        if (operation(handle) != 0) return false;
      }
      return true;
    });
  }
  // In a child, as that user; as oneself where that is nobody's to choose.
  static void expectAs(uid_t user, const std::function<bool()>& body) {
    expectInChild(
        [&] { return (!isRoot() || (::setgid(user) == 0 && ::setuid(user) == 0)) && body(); });
  }
  static void give(const std::string& name, uid_t user, unsigned int permissions) {
    EXPECT_TRUE(!isRoot() || ::chown(name.c_str(), user, user) == 0);
    setPermissions(name, permissions);
  }
};

constexpr uid_t first = 61001;
constexpr uid_t second = 61002;

TEST_F(PermissionsTest, ReadersNeedNoRightToWrite) {
  writeFile(backup(), content);
  setPermissions(backup(), 0444);
  setPermissions(directory_, 0555);
  expectDone(first, {get, scan});
}

TEST_F(PermissionsTest, NoMaskOfTheProcessMakesTheFilesUnusable) {
  give(directory_, first, 0700);
  const std::string made = path("new") + "/r";
  expectAs(first, [&] {
    ::umask(0777);
    TestRegistry handle(made);
    unsigned int lockMode = 0;
    {
      const FaultHook watching([&](const std::string& call) {
        const std::string lock = path("new") + "/.r.lock";
        if (call == "fsync" && exists(lock)) lockMode = permissionsOf(lock);
        return 0;
      });
      if (add(handle) != 0) return false;
    }
    return lockMode == 0600 && add(handle) == 0;
  });
  EXPECT_EQ(permissionsOf(path("new")), 0700u);
  EXPECT_EQ(permissionsOf(made), 0600u);
}

TEST_F(PermissionsTest, WhoeverMayWriteTheRegistryMayUpdateIt) {
  if (!isRoot()) GTEST_SKIP() << "needs two users";
  writeFile(registry(), content);
  give(registry(), first, 0666);
  setPermissions(directory_, 0777);
  for (const uid_t user : {first, second, first}) {
    expectDone(user, {add});
    EXPECT_EQ(permissionsOf(registry()), 0666u);
  }
  // One user's update dies and leaves its lock file to the other's.
  for (const std::uint64_t features : {verified, unverified}) {
    expectAs(first, [&] {
      return inChild([&] {
               TestRegistry handle(registry(), features);
               const FaultPlan plan(2, 0, true, "fsync");
               return static_cast<int>(add(handle));
             }) == -9;
    });
    EXPECT_TRUE(exists(lockFile()));
    expectDone(second, {add}, features);
    EXPECT_FALSE(exists(lockFile()));
  }
}

TEST_F(PermissionsTest, AGroupThatCannotBeKeptGetsNoMoreThanEverybody) {
  if (!isRoot()) GTEST_SKIP() << "needs two users";
  writeFile(registry(), content);
  setPermissions(registry(), 0664);
  setPermissions(directory_, 0777);
  expectDone(first, {change});
  EXPECT_EQ(permissionsOf(registry()), 0644u);
}

TEST_F(PermissionsTest, ADirectoryThatCannotBeReadIsEnough) {
  give(directory_, first, 0300);
  expectDone(first, {add, add, scan});
  EXPECT_EQ(readFile(registry()), frame(variable("new", 3)) + frame(variable("new", 3)));
}

// An access list: owner, one more user, group, mask and everybody, each with its permissions.
std::string accessList(unsigned char owner, unsigned char user, unsigned char group,
                       unsigned char mask, unsigned char others) {
  const struct {
    unsigned char tag, permissions;
    std::uint32_t id;
  } entries[] = {
      {1, owner, ~0u}, {2, user, second}, {4, group, ~0u}, {16, mask, ~0u}, {32, others, ~0u}};
  std::string bytes = little(2, 4);
  for (const auto& entry : entries) {
    bytes += little(entry.tag, 2) + little(entry.permissions, 2) + little(entry.id, 4);
  }
  return bytes;
}

std::string attributeOf(const std::string& file, const char* name) {
  char bytes[256];
  const ssize_t size = ::getxattr(file.c_str(), name, bytes, sizeof bytes);
  return size < 0 ? "" : std::string(bytes, static_cast<std::size_t>(size));
}

TEST_F(PermissionsTest, TheNewFileHasTheAccessListAndAttributesOfTheOldOneAndNoOther) {
  const std::string all = accessList(7, 7, 7, 7, 7);
  const std::string one = accessList(6, 4, 4, 4, 0);
  for (const std::string& own : {std::string(), one}) {
    clearDirectory();
    writeFile(registry(), content);
    setPermissions(registry(), 0640);
    if (!own.empty()) {
      ASSERT_EQ(
          ::setxattr(registry().c_str(), "system.posix_acl_access", own.data(), own.size(), 0), 0);
    }
    if (::setxattr(directory_.c_str(), "system.posix_acl_default", all.data(), all.size(), 0) !=
        0) {
      GTEST_SKIP() << "no access lists here";
    }
    ASSERT_EQ(::setxattr(registry().c_str(), "user.note", "kept", 4, 0), 0);
    TestRegistry handle(registry(), verified);
    EXPECT_EQ(change(handle), 0u);
    EXPECT_EQ(attributeOf(registry(), "system.posix_acl_access"), own);
    EXPECT_EQ(attributeOf(registry(), "user.note"), "kept");
    EXPECT_EQ(permissionsOf(registry()), 0640u);
    EXPECT_EQ(::removexattr(directory_.c_str(), "system.posix_acl_default"), 0);
  }
}

}  // namespace
