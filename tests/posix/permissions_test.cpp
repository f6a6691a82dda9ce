// Who may do what with the files of a registry while it is updated; what users, access lists and
// closed directories come to is in tests/transcripts/permissions.txt.
#include <sys/stat.h>
#include <unistd.h>

#include "support/operations.h"

namespace {

bool isRoot() { return ::geteuid() == 0; }

class PermissionsTest : public RegistryTest {
 protected:
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
  const auto add = [&](std::uint64_t features) {
    TestRegistry handle(registry(), features);
    return ::add(handle);
  };
  writeFile(registry(), oneAndTwo);
  give(registry(), first, 0666);
  setPermissions(directory_, 0777);
  for (const uid_t user : {first, second, first}) {
    expectAs(user, [&] { return add(verified) == 0; });
    EXPECT_EQ(permissionsOf(registry()), 0666u);
  }
  // One user's update dies and leaves its lock file to the other's.
  for (const std::uint64_t features : {verified, unverified}) {
    expectAs(first, [&] {
      return inChild([&] {
               const FaultPlan plan(2, 0, true, "fsync");
               return static_cast<int>(add(features));
             }) == -9;
    });
    EXPECT_TRUE(exists(lockFile()));
    expectAs(second, [&] { return add(features) == 0; });
    EXPECT_FALSE(exists(lockFile()));
  }
}

}  // namespace
