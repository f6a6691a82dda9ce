// Faults of the library that these tests found and that are not mended yet.
#include <cerrno>
#include <filesystem>

#include "support/flavours.h"

namespace {

namespace fs = std::filesystem;

class KnownFaults : public RegistryTest {};
using Binary = Operations<BinaryVariables>;
using Lines = Operations<VariableLines>;

// An append in place that was cut off inside its mark, as a kill or a power cut at the end of a
// page leaves it, must go with the next append as one cut off behind the mark does.
TEST_F(KnownFaults, AnAppendCutOffInsideItsMarkGoesWithTheNext) {
  const std::string a = BinaryVariables::stored("a", 1);
  for (const std::size_t cut : {1, 2, 3}) {
    writeFile(registry(), a + std::string("\x24\0\x40\xDB", 4).substr(0, cut));
    Binary::Handle handle(registry(), unverified);
    EXPECT_EQ(Binary::get(handle, "b"), -std::int64_t{notFound});
    EXPECT_EQ(Binary::add(handle, "c", 3), 0u);
    EXPECT_EQ(readFile(registry()), a + BinaryVariables::stored("c", 3));
  }
}

// A registry that another program puts at the name between the backup's link and the rename.
TEST_F(KnownFaults, ARegistryReplacedBetweenLinkAndRenameIsNotLost) {
  const std::string theirs = BinaryVariables::stored("theirs", 5);
  writeFile(registry(), BinaryVariables::stored("a", 1));
  Binary::Handle handle(registry(), unverified);
  int renames = 0;
  {
    const FaultHook other([&](const std::string& call) {
      if (call == "rename" && ++renames == 2) {
        writeFile(path("new"), theirs);
        fs::rename(path("new"), registry());
      }
      return 0;
    });
    (void)Binary::change(handle, "a", 2);
  }
  bool found = false;
  for (const auto& entry : fs::directory_iterator(directory_)) {
    found = found || readFile(entry.path().string()) == theirs;
  }
  EXPECT_TRUE(found);
}

// Points of OpenRegFile: three places share 100, and 110 comes before two of them.
TEST_F(KnownFaults, ThePointsOfOpenRegFileAscend) {
  unsigned int latest = 0;
  for (unsigned long k = 1, calls = k; k <= calls; ++k) {
    clearDirectory();
    writeFile(registry(), BinaryVariables::stored("a", 1));
    Binary::Handle handle(registry(), verified);
    Diagnostics diagnostics;
    {
      const FaultPlan plan(k, EIO);
      (void)Binary::change(handle, "a", 2);
      calls = plan.calls() + 1;
    }
    if (!diagnostics.records.empty() && diagnostics.records.back().point > 64) break;
    for (const auto& record : diagnostics.records) {
      if (record.probe != 0x082A000Fu) continue;
      EXPECT_GE(record.point, latest) << "call " << k;
      latest = record.point;
      break;
    }
  }
}

// What an append in place left unfinished in a text registry.
TEST_F(KnownFaults, AnUnfinishedLineGoesWithAnUpdateThatRewritesTheFile) {
  const std::string torn("\0 = 2", 5);
  for (const bool adds : {true, false}) {
    writeFile(registry(), "a = 1\n" + torn);
    Lines::Handle handle(registry(), verified);
    EXPECT_EQ(adds ? Lines::add(handle, "c", 3) : Lines::change(handle, "a", 3), 0u);
    EXPECT_EQ(readFile(registry()), adds ? "a = 1\nc = 3\n" : "a = 3\n");
  }
}

}  // namespace
