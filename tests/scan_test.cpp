// Walking a registry: open, positions, rewind, end, and Get while a scan is open.
#include "support/operations.h"

namespace {

class ScanTest : public RegistryTest {
 protected:
  void SetUp() override {
    RegistryTest::SetUp();
    writeFile(registry(),
              frame(variable("a", 1)) + frame(variable("b", 2)) + frame(variable("a", 3)));
  }

  // The value of the next record of that name, or minus one with the code in `code_`.
  int next(TestRegistry& handle, const char* name = nullptr) {
    BinVarValRecord key = variable(name == nullptr ? "" : name);
    BinVarValRecord record = variable("untouched", 99, "untouched");
    code_ = handle.GetNext(name == nullptr ? 0 : byName, &key, &record);
    return code_ == 0 ? record.Value : -1;
  }

  // The values of the next records, or -1 for one that is not given, joined by blanks.
  std::string nextValues(TestRegistry& handle, int count, const char* name = nullptr) {
    std::string values;
    for (int i = 0; i < count; ++i)
      values += (i == 0 ? "" : " ") + std::to_string(next(handle, name));
    return values;
  }

  unsigned int code_ = 0;
};

TEST_F(ScanTest, WalksEveryMatchingRecordOnceAndStaysAtItsEnd) {
  TestRegistry handle(registry());
  std::int64_t position = 0;
  EXPECT_EQ(next(handle), -1);
  EXPECT_EQ(code_, GENREG_RC_NO_SCAN);
  EXPECT_EQ(handle.Rewind(), GENREG_RC_NO_SCAN);
  EXPECT_EQ(handle.getRegFilePosition(&position), GENREG_RC_NO_SCAN);
  EXPECT_EQ(handle.setRegFilePosition(nullptr), GENREG_RC_NO_SCAN);
  for (int scan = 0; scan < 2; ++scan) {
    ASSERT_EQ(handle.OpenScan(), 0u) << "a second scan gives the first one up";
    EXPECT_EQ(nextValues(handle, 4, "a"), "1 3 -1 -1");
    EXPECT_EQ(code_, GENREG_RC_END);
    EXPECT_NE(handle.status & GENREG_STATUS_SCAN_END, 0u);
  }
  EXPECT_EQ(handle.Rewind(), 0u);
  EXPECT_EQ(next(handle), 1);
  EXPECT_EQ(handle.CloseScan(), 0u);
  EXPECT_EQ(handle.CloseScan(), 0u);
  EXPECT_EQ(handle.status, GENREG_STATUS_IDLE | GENREG_STATUS_READY);
  TestRegistry missing(path("missing"));
  EXPECT_EQ(missing.OpenScan(), GENREG_RC_OPEN_FAILED);
  EXPECT_EQ(missing.status & GENREG_STATUS_SCAN_OPEN, 0u);
}

TEST_F(ScanTest, APositionSetAgainBringsTheSameRecordBack) {
  TestRegistry handle(registry());
  ASSERT_EQ(handle.OpenScan(), 0u);
  EXPECT_EQ(next(handle), 1);
  std::int64_t position = 0;
  EXPECT_EQ(handle.getRegFilePosition(&position), 0u);
  for (const char* values : {"2 3", "2 3 -1", "-1"}) {  // at the end only Rewind starts again
    EXPECT_EQ(nextValues(handle, static_cast<int>(std::string(values).size() + 1) / 2), values);
    EXPECT_EQ(handle.setRegFilePosition(&position), 0u);
  }
  handle.ValidateKey = [](std::uint64_t, void*) { return 1u; };
  EXPECT_EQ(handle.Rewind(), 0u);
  EXPECT_EQ(next(handle), -1);
  EXPECT_EQ(code_, GENREG_RC_KEY_REJECTED);
  position = -5;
  EXPECT_EQ(handle.setRegFilePosition(&position), GENREG_RC_SETPOS_FAILED);
  EXPECT_EQ(handle.getRegFilePosition(nullptr), OSS_RC_NULL_ARGUMENT);
  EXPECT_EQ(handle.setRegFilePosition(nullptr), OSS_RC_NULL_ARGUMENT);
}

TEST_F(ScanTest, AnOpenScanKeepsItsSnapshotAndKeepsItsHandleFromUpdates) {
  TestRegistry scanning(registry());
  TestRegistry writing(registry());
  ASSERT_EQ(scanning.OpenScan(), 0u);
  BinVarValRecord record = variable("new", 4);
  BinVarValRecord found;
  EXPECT_EQ(scanning.Add(byName, &record), opening);
  EXPECT_EQ(scanning.Get(byName, &record, &found), opening);
  EXPECT_EQ(scanning.CloseRegFile(GENREG_OP_READ), GENREG_RC_SCAN_OPEN);
  EXPECT_EQ(scanning.status & GENREG_STATUS_LOCKED, 0u);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(writing.Add(byName, &record), 0u);
  EXPECT_EQ(nextValues(scanning, 4), "1 2 3 -1");
  EXPECT_EQ(scanning.CloseScan(), 0u);
  EXPECT_EQ(files(), "r");
}

TEST_F(ScanTest, GetInsideAScanFindsEarlierRecordsAndLeavesTheScanWhereItWas) {
  TestRegistry handle(registry());
  ASSERT_EQ(handle.setFeature(GENREG_GET_IN_SCAN), 0u);
  ASSERT_EQ(handle.OpenScan(), 0u);
  EXPECT_EQ(nextValues(handle, 2), "1 2");
  BinVarValRecord key = variable("a");
  BinVarValRecord record;
  EXPECT_EQ(handle.Get(byName, &key, &record), 0u);
  EXPECT_EQ(record.Value, 1);
  key = variable("absent");
  EXPECT_EQ(handle.Get(byName, &key, &record), notFound);
  EXPECT_EQ(next(handle), 3);
}

TEST_F(ScanTest, WhatFollowsADamagedRecordIsNeverTakenForOne) {
  // The record inside the damaged one would be found if reading went on behind the length field.
  writeFile(registry(), frame(variable("a", 1)) + frameBytes(1000, frame(variable("hidden", 2))));
  TestRegistry handle(registry());
  ASSERT_EQ(handle.OpenScan(), 0u);
  EXPECT_EQ(nextValues(handle, 4), "1 -1 -1 -1");
  EXPECT_EQ(code_, readFailed);
}

TEST_F(ScanTest, BehindTheEndThatTheFileHadThereIsNothing) {
  TestRegistry handle(registry());
  ASSERT_EQ(handle.OpenScan(), 0u);
  const std::string before = readFile(registry());
  const std::string grown = before + frame(variable("a", 4));
  writeFile(registry(), grown + grown);
  for (const std::size_t behind : {before.size() + 1, grown.size(), std::size_t{5000}}) {
    auto position = static_cast<std::int64_t>(behind);
    EXPECT_EQ(handle.setRegFilePosition(&position), 0u);
    EXPECT_EQ(next(handle), -1);
    EXPECT_EQ(code_, GENREG_RC_END);
    EXPECT_EQ(handle.Rewind(), 0u);
  }
}

TEST_F(ScanTest, AnErrorThatNobodyMetIsNoneOfTheNextOperation) {
  writeFile(registry(), frame(variable("b", 2)));
  TestRegistry handle(registry());
  {
    const FaultPlan plan(1, EIO, false, "read");
    EXPECT_EQ(handle.OpenScan(), 0u);
    EXPECT_EQ(plan.calls(), 1u);
  }
  EXPECT_EQ(handle.CloseScan(), 0u);
  EXPECT_EQ(change(handle), 0u);
}

// --- the streams of a handle ---

TEST_F(ScanTest, WhatIsReadFromTheStreamIsGoneForGetNextAndTheOtherWayRound) {
  writeFile(registry(), "a = 1\nb = 2\nc = 3\nd = 4\ne = 5\n");
  Exposed<GenRegVarVal> handle(registry());
  ASSERT_EQ(handle.OpenScan(), 0u);
  VarValRecord record;
  char raw[64];
  char line[64];
  const auto nextLine = [&] {
    EXPECT_NE(GenRegReadLine(raw, line, sizeof raw, handle.mainStream, nullptr, false), nullptr);
    return std::string(line);
  };
  const auto nextRecord = [&] {
    EXPECT_EQ(handle.GetNext(0, nullptr, &record), 0u);
    return std::string(record.Variable == nullptr ? "" : record.Variable);
  };
  EXPECT_EQ(nextRecord(), "a");
  EXPECT_EQ(std::ftell(handle.mainStream), 6);
  EXPECT_EQ(nextLine(), "b = 2\n");
  EXPECT_EQ(nextRecord(), "c");
  EXPECT_EQ(std::ftell(handle.mainStream), 18);
  std::int64_t position = 0;
  EXPECT_EQ(handle.getRegFilePosition(&position), 0u);
  EXPECT_EQ(nextLine(), "d = 4\n");
  EXPECT_EQ(nextRecord(), "e");
  EXPECT_EQ(handle.setRegFilePosition(&position), 0u);
  EXPECT_EQ(nextLine(), "d = 4\n");
  EXPECT_EQ(std::fseek(handle.mainStream, 6, SEEK_SET), 0);
  EXPECT_EQ(nextRecord(), "b");
  EXPECT_EQ(std::fseek(handle.mainStream, -6, SEEK_END), 0);
  EXPECT_EQ(nextLine(), "e = 5\n");
  EXPECT_EQ(std::fgetc(handle.mainStream), EOF);
  EXPECT_EQ(handle.GetNext(0, nullptr, &record), GENREG_RC_END);
  EXPECT_EQ(handle.Rewind(), 0u);
  EXPECT_EQ(nextLine(), "a = 1\n");
  EXPECT_EQ(handle.CloseScan(), 0u);
  EXPECT_EQ(handle.mainStream, nullptr);
}

TEST_F(ScanTest, ASessionLedByHandCommitsWhatIsWrittenToItsStream) {
  const std::string before = readFile(registry());
  const std::string made = frame(variable("made", 7));
  TestRegistry handle(registry(), unverified);
  for (const bool commits : {true, false}) {
    writeFile(registry(), before);
    ASSERT_EQ(handle.LockRegistry(5), 0u);
    ASSERT_EQ(handle.OpenRegFile(GENREG_OP_CHANGE), 0u);
    std::string read(before.size(), '\0');
    EXPECT_EQ(std::fread(read.data(), 1, read.size(), handle.mainStream), read.size());
    EXPECT_EQ(read, before);
    EXPECT_EQ(std::fwrite(made.data(), 1, made.size(), handle.secondStream), made.size());
    EXPECT_EQ(handle.CloseRegFile(commits ? GENREG_OP_CHANGE : GENREG_OP_READ), 0u);
    EXPECT_EQ(handle.secondStream, nullptr);
    EXPECT_EQ(handle.UnlockRegistry(), 0u);
    EXPECT_EQ(handle.isUpdateCommitted(), commits);
    EXPECT_EQ(readFile(registry()), commits ? made : before);
    EXPECT_EQ(files(), commits ? "r" : "r r.tmp");
  }
}

}  // namespace
