// Construction, names, features and paths of a registry handle; the table of return codes.
#include <cstring>
#include <set>

#include "support/flavours.h"
#include "sysservices/file_system.h"

namespace {

TEST(Handle, FeaturesAreSetAndClearedWithinTheirRange) {
  constexpr Code bad = GENREG_RC_BAD_FEATURE;
  const struct {
    std::uint64_t before;
    bool set;
    std::uint64_t value;
    Code code;
    std::uint64_t after;
  } cases[] = {{0, true, 0, bad, 0},
               {0, true, 129, bad, 0},
               {0, true, 128, 0, 128},
               {0, true, 3, 0, 3},
               {16, true, 24, 0, 24},
               {3, false, 0, bad, 3},
               {3, false, 129, bad, 3},
               {1, false, 3, 0, 0},
               {7, false, 2, 0, 5},
               {0, true, ~0ull, bad, 0},
               {1, false, 2, GENREG_RC_FEATURE_NOT_SET, 1}};
  for (const auto& row : cases) {
    TestRegistry handle("r");
    handle.useFeatures(row.before);
    EXPECT_EQ(row.set ? handle.setFeature(row.value) : handle.unsetFeature(row.value), row.code);
    for (std::uint64_t bit = 1; bit <= 128; bit *= 2) {
      EXPECT_EQ(handle.isFeatureSet(bit), (row.after & bit) != 0) << row.value << " bit " << bit;
    }
  }
}

TEST(Handle, NamesFollowFromThePath) {
  const std::string longest(253, 'x');
  const std::string joint(1, ossPathSeparator);
  const struct {
    std::string path, lock, backup;
  } cases[] = {
      {"prof.reg", ".prof.reg.lock", ".prof.reg.bkp"},
      {"/data/prof.reg", "/data" + joint + ".prof.reg.lock", "/data" + joint + ".prof.reg.bkp"},
      {"./r", ".r.lock", ".r.bkp"},
      {longest, "." + longest + ".lock", "." + longest + ".bkp"}};
  for (const auto& row : cases) {
    TestRegistry handle(row.path);
    char name[GENREG_PATH_SIZE];
    const auto read = [&](unsigned int (TestRegistry::*getter)(char*, std::uint64_t) const) {
      EXPECT_EQ((handle.*getter)(name, sizeof name), 0u);
      return std::string(name);
    };
    EXPECT_EQ(read(&TestRegistry::getRegFilePath), row.path);
    EXPECT_EQ(read(&TestRegistry::getTempFilePath), row.path + ".tmp");
    EXPECT_EQ(read(&TestRegistry::getCorruptFilePath), row.path + ".cor");
    EXPECT_EQ(read(&TestRegistry::getLockFilePath), row.lock);
    EXPECT_EQ(read(&TestRegistry::getBackupFilePath), row.backup);
    EXPECT_EQ(handle.status, GENREG_STATUS_IDLE | GENREG_STATUS_READY);
    EXPECT_TRUE(handle.isFeatureSet(GENREG_VERIFY_UPDATES));
    EXPECT_TRUE(handle.isFeatureSet(GENREG_ALLOW_DUPLICATES));
  }
}

TEST(Handle, APathGetterTakesABufferOfExactlyTheLength) {
  TestRegistry handle("/data/r");
  char buffer[] = "xxxxxxxxx";
  EXPECT_EQ(handle.getRegFilePath(buffer, 0), OSS_RC_BUFFER_TOO_SMALL);
  EXPECT_EQ(handle.getRegFilePath(buffer, 8), 0u);
  EXPECT_EQ(std::string(buffer, 9), std::string("/data/r\0x", 9));
  EXPECT_EQ(handle.getRegFilePath(buffer, 7), OSS_RC_BUFFER_TOO_SMALL);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(handle.getRegFilePath(nullptr, 8), OSS_RC_NULL_ARGUMENT);
}

TEST(Handle, AFailedConstructionLeavesAHandleWhoseOperationsFail) {
  const std::string tooLong(254, 'x');
  const struct {
    const char* path;
    Code code, add;
    std::size_t notReady = 0;  // failure logs that say so
  } cases[] = {{nullptr, GENREG_RC_NO_ARGUMENT, hookMissing},
               {"", GENREG_RC_NO_ARGUMENT, hookMissing},
               {"/", GENREG_RC_BASE_NAME, GENREG_RC_LOCK_FAILED, 1},
               {tooLong.c_str(), GENREG_RC_PATH_TOO_LONG, hookMissing}};
  for (const auto& row : cases) {
    Code code = 0;
    GenRegBinVarVal handle(row.path, &code);
    EXPECT_EQ(code, row.code);
    BinVarValRecord record = variable("a");
    Diagnostics diagnostics;
    EXPECT_EQ(handle.Add(0, &record), row.add);
    EXPECT_EQ(diagnostics.logs(0x082A000Eu, GENREG_RC_NOT_READY), row.notReady);
    EXPECT_NE(handle.Change(0, &record, &record), 0u);
    EXPECT_NE(handle.Delete(0, &record), 0u);
    EXPECT_NE(handle.Get(0, &record, &record), 0u);
    EXPECT_EQ(handle.OpenScan(), GENREG_RC_OPEN_FAILED);
  }
  GenRegBinVarVal withoutOutcome("", nullptr);
  Code code = 0;
  const GlobalReg nowhere("", &code);
  EXPECT_EQ(code, GENREG_RC_NO_ARGUMENT);
}

TEST(Handle, TracingIsAskedBeforeEachRecord) {
  TestRegistry handle("/nowhere/at/all/r");
  // Switched on by a hook in the middle of a Get: its exit is seen, its entry is not.
  handle.ValidateKey = [](std::uint64_t, void*) -> unsigned int {
    g_pGTCB->enabled = 1;
    return 1;
  };
  BinVarValRecord record{};
  Diagnostics diagnostics;
  EXPECT_EQ(handle.Get(0, &record, &record), GENREG_RC_KEY_REJECTED);
  g_pGTCB->enabled = 0;
  for (const auto& seen : diagnostics.records) EXPECT_NE(seen.kind, OSSRecordKind::Entry);
  EXPECT_EQ(diagnostics.records.back().kind, OSSRecordKind::Exit);
}

TEST(ReturnCodes, EachValueAndNameStandsOnceAndLiesInItsRange) {
  std::set<unsigned int> values;
  std::set<std::string> names;
  for (const GenRegReturnCode& row : genRegReturnCodes) {
    EXPECT_TRUE(values.insert(row.value).second) << row.name;
    EXPECT_TRUE(names.insert(row.name).second) << row.name;
    EXPECT_EQ(row.value >> 16, 0x9000u) << row.name;
    EXPECT_NE(*row.meaning, '\0') << row.name;
  }
}

}  // namespace
