// The streams that a handle shows are faces of its files here, and fail as these do.
#include <cerrno>
#include <cstdio>

#include "support/operations.h"

namespace {

using StreamTest = RegistryTest;

TEST_F(StreamTest, AStreamGivesTheErrorsOfItsFile) {
  const std::string before = frame(variable("a", 1));
  writeFile(registry(), before);
  const std::string many(300000, 'x');
  for (const char* call : {"none", "read", "fstat", "write"}) {
    SCOPED_TRACE(call);
    const auto isGiven = [&](const char* other) { return std::string(call) == other; };
    TestRegistry handle(registry(), unverified);
    ASSERT_EQ(handle.LockRegistry(5), 0u);
    {
      const FaultPlan plan(1, EIO, false, call);
      ASSERT_EQ(handle.OpenRegFile(GENREG_OP_READ), 0u);
      EXPECT_EQ(std::fseek(handle.mainStream, 0, SEEK_END) != 0, isGiven("fstat"));
      EXPECT_NE(std::fseek(handle.mainStream, -500, SEEK_END), 0) << "in front of the start";
      std::rewind(handle.mainStream);
      errno = 0;
      EXPECT_EQ(std::fgetc(handle.mainStream), isGiven("read") ? EOF : before[0]);
      EXPECT_EQ(errno, isGiven("read") ? EIO : 0);
      EXPECT_EQ(handle.CloseRegFile(GENREG_OP_READ), 0u);
      ASSERT_EQ(handle.OpenRegFile(GENREG_OP_CHANGE), 0u);
      EXPECT_EQ(std::fwrite(many.data(), many.size(), 1, handle.secondStream) == 0,
                isGiven("write"));
    }
    const Code failed = isGiven("write") ? GENREG_RC_CLOSE_TEMP_FAILED : 0;
    EXPECT_EQ(handle.CloseRegFile(GENREG_OP_READ), failed);
    EXPECT_EQ(handle.UnlockRegistry(), 0u);
  }
  EXPECT_EQ(readFile(registry()), before);
}

}  // namespace
