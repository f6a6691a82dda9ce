// Many writers and readers on one registry: every update succeeds, every record is there once, no
// reader ever fails, nothing is left over.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <thread>

#include "support/operations.h"

namespace {

std::string nameOf(int writer, int number) {
  return "w" + std::to_string(writer) + "_" + std::to_string(number);
}

int addMany(const std::string& path, std::uint64_t features, int writer, int count) {
  TestRegistry handle(path, features);
  for (int number = 0; number < count; ++number) {
    BinVarValRecord record = variable(nameOf(writer, number), number);
    if (handle.Add(byName, &record) != 0) return 1;
  }
  return 0;
}

class ContentionTest : public RegistryTest, public ::testing::WithParamInterface<std::uint64_t> {
 protected:
  void expectEveryRecordOnce(int writers, int count) {
    std::map<std::string, int> seen;
    TestRegistry handle(registry(), GetParam());
    ASSERT_EQ(handle.OpenScan(), 0u);
    BinVarValRecord key{};
    BinVarValRecord record;
    while (handle.GetNext(0, &key, &record) == 0) ++seen[record.Variable];
    EXPECT_EQ(handle.CloseScan(), 0u);
    EXPECT_EQ(seen.size(), static_cast<std::size_t>(writers * count + 1));
    for (const auto& [name, times] : seen) EXPECT_EQ(times, 1) << name;
    EXPECT_EQ(files(), "r");
  }
};

TEST_P(ContentionTest, SixProcessesLoseNothingWhileReadersSeeEverything) {
  constexpr int writers = 6;
  constexpr int count = 500;
  writeFile(registry(), frame(variable("fixed", 7)));
  int stop[2];
  ASSERT_EQ(::pipe(stop), 0);

  std::vector<pid_t> readers;
  for (int reader = 0; reader < 2; ++reader) {
    readers.push_back(::fork());
    if (readers.back() == 0) {
      ::close(stop[1]);
      // Reads until the parent closes its end of the pipe.
      for (;;) {
        TestRegistry handle(registry(), GetParam());
        BinVarValRecord key = variable("fixed");
        BinVarValRecord found;
        if (handle.Get(byName, &key, &found) != 0 || found.Value != 7) ::_exit(1);
        if (scan(handle) != 0) ::_exit(2);
        fd_set ended;
        FD_ZERO(&ended);
        FD_SET(stop[0], &ended);
        timeval none{};
        if (::select(stop[0] + 1, &ended, nullptr, nullptr, &none) > 0) ::_exit(0);
      }
    }
  }
  std::vector<pid_t> updaters;
  for (int writer = 0; writer < writers; ++writer) {
    updaters.push_back(::fork());
    if (updaters.back() == 0) ::_exit(addMany(registry(), GetParam(), writer, count));
  }
  int status = 0;
  for (const pid_t child : updaters) {
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "an update failed";
  }
  ::close(stop[1]);
  for (const pid_t child : readers) {
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "a reader failed";
  }
  ::close(stop[0]);
  expectEveryRecordOnce(writers, count);
}

TEST_P(ContentionTest, ThreadsWithHandlesOfTheirOwnExcludeOneAnother) {
  constexpr int writers = 3;
  constexpr int count = 100;
  writeFile(registry(), frame(variable("fixed", 7)));
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int writer = 0; writer < writers; ++writer) {
    threads.emplace_back(
        [&, writer] { failures += addMany(registry(), GetParam(), writer, count); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
  expectEveryRecordOnce(writers, count);
}

INSTANTIATE_TEST_SUITE_P(Modes, ContentionTest, ::testing::Values(verified, unverified),
                         [](const auto& row) {
                           return row.param == verified ? "Verified" : "InPlace";
                         });

}  // namespace
