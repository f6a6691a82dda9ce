// The binary engine: framing, damage, hooks, verification.
#include <cerrno>
#include <cstring>

#include "support/flavours.h"
#include "support/operations.h"

namespace {

class BinaryStoreTest : public RegistryTest {
 protected:
  Code getByName(TestRegistry& handle, const char* name, BinVarValRecord& record) {
    BinVarValRecord key = variable(name);
    return handle.Get(byName, &key, &record);
  }
};

TEST_F(BinaryStoreTest, RecordsStandInTheFileByteForByte) {
  TestRegistry handle(registry());
  BinVarValRecord record = variable("PATH", -2, "text");
  ASSERT_EQ(handle.Add(byName, &record), 0u);
  const unsigned char expected[40] = {0x24, 0,    0,    0,    'P', 'A', 'T', 'H', 0, 0,
                                      0,    0,    0,    0,    0,   0,   0,   0,   0, 0,
                                      0xFE, 0xFF, 0xFF, 0xFF, 't', 'e', 'x', 't'};
  EXPECT_EQ(readFile(registry()), std::string(reinterpret_cast<const char*>(expected), 40));
  BinVarValRecord found;
  EXPECT_EQ(getByName(handle, "Path", found), notFound) << "names are case-sensitive";
  EXPECT_EQ(found.Variable[0], '\0') << "a record that was not found is zero-filled";
  EXPECT_EQ(getByName(handle, "PATH", found), 0u);
  EXPECT_EQ(std::memcmp(&found, &record, sizeof record), 0);
}

TEST_F(BinaryStoreTest, MasksSelectWhatIsCompared) {
  const std::string before = frame(variable("a", 1, "x")) + frame(variable("b", 1, "y"));
  const struct {
    std::uint64_t mask;
    const char* name;
    std::int32_t value;
    const char* comment;  // of what is found; empty: nothing
  } cases[] = {{0, "zzz", 9, "x"}, {1, "b", 9, "y"},     {2, "zzz", 1, "x"},   {3, "b", 1, "y"},
               {3, "b", 2, ""},    {~0ull, "a", 1, "x"}, {0xF0, "zzz", 9, "x"}};
  writeFile(registry(), before);
  TestRegistry handle(registry());
  for (const auto& row : cases) {
    BinVarValRecord key = variable(row.name, row.value, "ignored");
    BinVarValRecord record;
    EXPECT_EQ(handle.Get(row.mask, &key, &record), *row.comment == '\0' ? notFound : 0u);
    EXPECT_STREQ(record.Comment, row.comment);
  }
}

TEST_F(BinaryStoreTest, DamagedFilesAreRefusedAndLeftAsTheyAre) {
  const std::string good = frame(variable("a", 1));
  const struct {
    const char* name;
    std::string bytes;
    Code reading;
  } cases[] = {
      {"empty file", "", notFound},
      {"length past the end", good + frameBytes(36, "short"), readFailed},
      {"huge length", good + frameBytes(0xFFFFFFF0u, "abc"), readFailed},
      {"length over the limit", good + frameBytes(0x100001, std::string(0x100001, 'x')),
       readFailed},
      {"length 0", good + std::string(12, '\0'), readFailed},
      {"length 2", good + frameBytes(2, "ab"), readFailed},
      {"three stray bytes", good + std::string("\x24\0\0", 3), readFailed},
      {"length alone", good + frameBytes(36, ""), readFailed},
      {"smallest record", good + frameBytes(3, "abc"), notFound},
      {"largest record", good + frameBytes(0x100000, std::string(0x100000, 'x')), notFound},
  };
  for (const auto& row : cases) {
    for (const std::uint64_t features : {verified, unverified}) {
      SCOPED_TRACE(std::string(row.name) + ", features " + std::to_string(features));
      writeFile(registry(), row.bytes);
      TestRegistry handle(registry(), features);
      BinVarValRecord record;
      const bool damaged = row.reading == readFailed;
      {
        Diagnostics diagnostics;
        EXPECT_EQ(getByName(handle, "absent", record), row.reading);
        EXPECT_EQ(diagnostics.logs(0x082A0021u, GENREG_RC_RECORD_PAST_EOF), damaged ? 1u : 0u);
      }
      EXPECT_EQ(add(handle), damaged ? readFailed : 0u);
      EXPECT_EQ(readFile(registry()), row.bytes + (damaged ? "" : frame(variable("new", 3))));
      EXPECT_EQ(remove(handle), damaged ? readFailed : (row.bytes.empty() ? notFound : 0u));
    }
  }
}

TEST_F(BinaryStoreTest, ARecordOfAnyLengthIsFilledUpWithZerosAndComparedLikeThat) {
  const std::string field(16, 'k');  // a name without a terminator
  const std::string plain = frame(variable("key", 5)).substr(4);
  const std::string behind = std::string(plain).replace(6, 1, "j");
  const struct {
    const char* name;
    std::string stored, key, found;  // empty: the last record
  } cases[] = {{"shorter", "key", "key", frame(variable("key")).substr(4)},
               {"longer", plain + "rest", "key", plain},
               {"more behind the terminator", behind, "key", behind},
               {"beginning with the key", frame(variable("keys")).substr(4), "key", ""},
               {"no terminator", std::string(50, 'k'), field, std::string(36, 'k')},
               {"its last byte another", std::string(36, 'k'), std::string(15, 'k') + "j", ""}};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    BinVarValRecord key = variable("", 7);
    row.key.copy(key.Variable, sizeof key.Variable);
    // The first one leaves its bytes where the next is filled up.
    writeFile(registry(),
              frameBytes(35, std::string(35, 'z')) +
                  frameBytes(static_cast<std::uint32_t>(row.stored.size()), row.stored) +
                  frame(key));
    TestRegistry handle(registry());
    BinVarValRecord found;
    ASSERT_EQ(handle.Get(byName, &key, &found), 0u);
    EXPECT_EQ(frame(found), row.found.empty() ? frame(key) : frameBytes(36, row.found));
  }
}

TEST_F(BinaryStoreTest, LengthFieldsFollowTheHandlesByteOrder) {
  const auto reversed = [](const BinVarValRecord& record) {
    return frame(record).replace(0, 4, std::string("\0\0\0\x24", 4));
  };
  const std::string before = reversed(variable("a", 1));
  writeFile(registry(), before);
  TestRegistry handle(registry());
  BinVarValRecord record;
  EXPECT_EQ(getByName(handle, "a", record), readFailed);
  ASSERT_EQ(handle.setFeature(GENREG_BIG_ENDIAN_LENGTH), 0u);
  EXPECT_EQ(getByName(handle, "a", record), 0u);
  EXPECT_EQ(add(handle), 0u);
  const std::string both = before + reversed(variable("new", 3));
  EXPECT_EQ(readFile(registry()), both);
  handle.useFeatures(unverified | GENREG_BIG_ENDIAN_LENGTH);
  writeFile(registry(), before + std::string("\xDB\x40\0\x24xyz", 7));
  EXPECT_EQ(add(handle), 0u) << "over an append that was cut off";
  EXPECT_EQ(readFile(registry()), both);
}

// --- hooks ---

template <std::uint64_t Bytes>
void sizeOf(TestRegistry& handle) {
  handle.GetRecordSize = [](std::uint64_t* size) -> Code { return *size = Bytes, 0; };
}
template <std::uint64_t Bytes>
void lengthOf(TestRegistry& handle) {
  handle.GetRecordLength = [](const void*, std::uint64_t* size) -> Code {
    return *size = Bytes, 0;
  };
}

TEST_F(BinaryStoreTest, AMissingOrRefusingHookFailsTheOperationBeforeAnyHarm) {
  using Break = void (*)(TestRegistry&);
  const Break refuses = [](TestRegistry& h) {
    h.ValidateKey = [](std::uint64_t, void*) -> Code { return 7; };
  };
  const Break unchecked = [](TestRegistry& h) { h.ValidateKey = nullptr; };
  const Break withoutSize = [](TestRegistry& h) { h.GetRecordSize = nullptr; };
  const Break withoutCompare = [](TestRegistry& h) { h.compareHook() = nullptr; };
  const Break withoutLength = [](TestRegistry& h) { h.GetRecordLength = nullptr; };
  const Break packedOnly = [](TestRegistry& h) { (void)h.setFeature(GENREG_PACKED_RECORDS); };
  Code (*const operations[])(TestRegistry&) = {add, change, remove, get, scan};
  constexpr Code tooSmall = GENREG_RC_RECORD_TOO_SMALL;
  constexpr Code tooLarge = GENREG_RC_RECORD_TOO_LARGE;
  constexpr Code unpack = GENREG_RC_NO_UNPACK_HOOK_PACKED;
  constexpr Code copy = GENREG_RC_COPY_FAILED;
  const struct {
    const char* name;
    Break breakHook;
    Code results[std::size(operations)];
  } cases[] = {
      {"refused", refuses, {rejected, rejected, rejected, rejected, rejected}},
      {"no ValidateKey", unchecked, {hookMissing, noValidate, noValidate, noValidate, noValidate}},
      {"no GetRecordSize", withoutSize, {hookMissing, noSize, noSize, noSize, noSize}},
      {"no CompareRecord", withoutCompare, {verifying, noCompare, noCompare, noCompare, noCompare}},
      {"no GetRecordLength", withoutLength, {copy, copy, copy, 0, 0}},
      {"packed without hooks", packedOnly, {hookMissing, unpack, unpack, unpack, unpack}},
      {"size 2", sizeOf<2>, {tooSmall, tooSmall, tooSmall, tooSmall, tooSmall}},
      {"size 0x100001", sizeOf<0x100001>, {tooLarge, tooLarge, tooLarge, tooLarge, tooLarge}},
      {"length 2", lengthOf<2>, {writeNewFailed, copy, 0, 0, 0}},
      {"length past the record", lengthOf<37>, {writeNewFailed, copy, 0, 0, 0}},
  };
  const std::string before = frame(variable("a", 1)) + frame(variable("b", 2));
  for (const auto& row : cases) {
    for (std::size_t i = 0; i < std::size(operations); ++i) {
      SCOPED_TRACE(std::string(row.name) + ", operation " + std::to_string(i));
      writeFile(registry(), before);
      TestRegistry handle(registry());
      row.breakHook(handle);
      EXPECT_EQ(operations[i](handle), row.results[i]);
      EXPECT_TRUE(row.results[i] == 0 || readFile(registry()) == before);
      (void)handle.CloseScan();
      EXPECT_EQ(handle.status & GENREG_STATUS_LOCKED, 0u);
    }
  }
  writeFile(registry(), "");
  TestRegistry empty(registry());
  withoutLength(empty);
  EXPECT_EQ(add(empty), writeNewFailed);
  EXPECT_EQ(readFile(registry()), "");
  writeFile(registry(), before);
  TestRegistry handle(registry());
  BinVarValRecord key{};
  EXPECT_EQ(handle.Add(0, nullptr), OSS_RC_NULL_ARGUMENT);
  EXPECT_EQ(handle.Change(0, &key, nullptr), OSS_RC_NULL_ARGUMENT);
  EXPECT_EQ(handle.Get(0, &key, nullptr), OSS_RC_NULL_ARGUMENT);
  EXPECT_EQ(handle.Get(byName, nullptr, &key), notFound);
  EXPECT_EQ(handle.Delete(byName, nullptr), notFound);
  writeFile(registry(), frameBytes(3, "abc") + before);
  const FaultPlan plan(1, EIO, false, "free");
  EXPECT_EQ(get(handle), GENREG_RC_BUFFER_FREE);
  writeFile(registry(), frameBytes(50, std::string(50, 'x')));
  handle.compareHook() = [](std::uint64_t, void*, void*) -> Code { return 1; };
  const FaultPlan memory(2, ENOMEM, false, "malloc");
  Diagnostics diagnostics;
  EXPECT_EQ(get(handle), GENREG_RC_BUFFER_ALLOC) << "for a record longer than nominal";
  EXPECT_EQ(diagnostics.records.back().point, 85u);
}

TEST_F(BinaryStoreTest, WhatIsPackedNeedsItsHooksForEveryRecordThatIsWritten) {
  using Run = Operations<GlobalVariables>;
  const std::string before = GlobalVariables::stored("a", 1) + GlobalVariables::stored("b", 2);
  for (const char* name : {"a", "b"}) {  // the first one is changed, or kept
    for (const bool packs : {true, false}) {
      writeFile(registry(), before);
      Run::Handle handle(registry(), unverified);
      packs ? (void)(handle.GetPackedLength = nullptr) : (void)(handle.PackRecord = nullptr);
      EXPECT_EQ(Run::change(handle, name, 5),
                packs ? GENREG_RC_COPY_FAILED : GENREG_RC_NO_PACK_HOOK_PACKED);
      EXPECT_EQ(readFile(registry()), before);
    }
  }
}

std::vector<std::string> calls;  // of the hooks below, in order

TEST_F(BinaryStoreTest, HooksHearOfAnUpdateThatSucceededInTheirOrder) {
  static Code answer;
  const GenRegNotifyHook notify = [](GenRegBase*, std::uint64_t kind, void*, void* second) -> Code {
    calls.push_back("notify " + std::to_string(kind) + (second == nullptr ? "" : " new"));
    return answer;
  };
  const GenRegPostUpdateHook post = [] { return calls.emplace_back("post"), 5u; };
  constexpr std::uint64_t heard = verified | GENREG_NOTIFY_CHANGE | GENREG_POST_UPDATE;
  const struct {
    Code (*run)(TestRegistry&);
    Code answer;
    GenRegPostUpdateHook post;
    Code result;
    std::vector<std::string> calls;
  } cases[] = {
      {add, 0, post, 0, {"notify 4", "post"}},
      {add, 1, post, 0, {"notify 4", "post"}},
      {change, 0, post, 0, {"notify 2 new", "post"}},
      {change, 1, post, 0, {"notify 2 new"}},
      {remove, 0, post, 0, {"notify 8", "post"}},
      {remove, 1, post, 0, {"notify 8"}},
      {add, 0, nullptr, GENREG_RC_NO_POST_UPDATE_HOOK, {"notify 4"}},
      {get, 0, post, 0, {}},
  };
  for (const auto& row : cases) {
    writeFile(registry(), frame(variable("a", 1)) + frame(variable("b", 2)));
    TestRegistry handle(registry(), heard);
    answer = row.answer;
    handle.NotifyChange = notify;
    handle.PostUpdate = row.post;
    calls.clear();
    Diagnostics diagnostics;
    EXPECT_EQ(row.run(handle), row.result);
    EXPECT_EQ(calls, row.calls);
    if (!calls.empty() && calls.back() == "post") {
      EXPECT_EQ(diagnostics.records.size(), 1u) << "of what the hook answers";
    }
  }
}

TEST_F(BinaryStoreTest, RecordsHaveThreeBytesToAMegabyteAndEightToBeReturned) {
  for (const auto& sized : {sizeOf<3>, sizeOf<0x100000>}) {
    writeFile(registry(), frame(variable("a", 1)));
    TestRegistry handle(registry());
    sized(handle);
    EXPECT_EQ(remove(handle), 0u);
  }
  const struct {
    void (*sized)(TestRegistry&);
    void (*measured)(TestRegistry&);
    std::size_t length;
    Code result;
  } cases[] = {{sizeOf<7>, lengthOf<7>, 7, GENREG_RC_RECORD_TOO_LARGE},
               {sizeOf<8>, lengthOf<7>, 7, 0},
               {sizeOf<8>, lengthOf<3>, 3, 0}};
  char record[] = "abc\0efg";
  for (const auto& row : cases) {
    writeFile(registry(), "");
    TestRegistry handle(registry(), verified);
    row.sized(handle);
    row.measured(handle);
    handle.compareHook() = [](std::uint64_t, void* left, void* right) -> Code {
      return std::memcmp(left, right, 3) == 0;
    };
    char found[8] = "untouch";
    EXPECT_EQ(handle.Add(1, record), 0u);
    EXPECT_EQ(readFile(registry()),
              frameBytes(static_cast<std::uint32_t>(row.length), std::string(record, row.length)));
    EXPECT_EQ(handle.Get(1, record, found), row.result);
    EXPECT_STREQ(found, row.result == 0 ? "abc" : "untouch");
  }
}

TEST_F(BinaryStoreTest, PackingWritesNoMoreThanMemoryThatIsNotTheEnginesIsKnownToHold) {
  GlobalVariables::Handle handle(registry());
  std::vector<GlobalRegRecord> memory(30);
  GlobalVariables::fill(memory[0], {"a", 1});
  std::string previous = stored(4, 0x10, {entry(std::string(sizeof(GlobalRegRecord), 'u'))});
  void* packed = memory.data();
  EXPECT_EQ(handle.PackRecord.binary(&packed, previous.data()), GENREG_RC_PACK_LENGTH);
}

// --- verification ---

TEST_F(BinaryStoreTest, VerificationCommitsNothingButExactlyTheChange) {
  const std::string a = frame(variable("a", 1));
  const std::string b = frame(variable("b", 2));
  const std::string b3 = frame(variable("b", 3));
  const std::string b22 = frame(variable("b", 22));
  const std::string a9 = frame(variable("a", 9));
  const std::string added = frame(variable("new", 3));
  const std::string other = frame(variable("other", 3));
  std::string sameFields = a;
  sameFields[30] = 'c';  // the comment takes no part in matching
  // The temporary file as somebody might have made it, what the pass finds, and the registry if
  // somebody changed it as well.
  const struct {
    const char* name;
    Code (*run)(TestRegistry&);
    std::string forged;
    Code finding;
    std::string meanwhile = {};
  } cases[] = {
      {"change of another record", change, a9 + b22, GENREG_RC_VERIFY_CHANGED_KEY},
      {"change to something else", change, a + b3, GENREG_RC_VERIFY_UNEXPECTED},
      {"change that lost a record", change, a, GENREG_RC_VERIFY_SHORT},
      {"change that added one", change, a + b22 + added, GENREG_RC_VERIFY_SHORT},
      {"change of nothing", change, a + b, GENREG_RC_VERIFY_NOTHING_CHANGED},
      {"kept record touched", change, sameFields + b22, GENREG_RC_VERIFY_CHANGED_KEY},
      {"new file cannot be read", change, a + "torn", GENREG_RC_VERIFY_READ_NEW},
      {"add that changed a record", add, a9 + b + added, GENREG_RC_VERIFY_ADD_CHANGED},
      {"add of nothing", add, a + b, GENREG_RC_VERIFY_ADD_COUNT},
      {"add of something else", add, a + b + other, GENREG_RC_VERIFY_ADD_RECORD},
      {"add of two", add, a + b + added + added, GENREG_RC_VERIFY_ADD_TRAILING},
      {"delete of another", remove, a, GENREG_RC_VERIFY_UNEXPECTED},
      {"delete that changed one", remove, a9 + b, GENREG_RC_VERIFY_REMOVED_KEY},
      {"delete that added one", remove, b + other, GENREG_RC_VERIFY_OLD_ENDED},
      {"delete of nothing", remove, a + b, GENREG_RC_VERIFY_NOTHING_CHANGED},
      {"delete of all", remove, "", GENREG_RC_VERIFY_UNEXPECTED},
      {"change of two", change, b22 + b22, GENREG_RC_VERIFY_MANY, b + b3},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    const std::string meanwhile = row.meanwhile.empty() ? a + b : row.meanwhile;
    writeFile(registry(), a + b);
    TestRegistry handle(registry(), row.meanwhile.empty() ? verified : unique);
    // At the moment when the temporary file is synced, before the pass opens it.
    int syncs = 0;
    const FaultHook forger([&](const std::string& call) {
      if (call != "fsync" || ++syncs != 1) return 0;
      writeFile(registry(), meanwhile);
      writeFile(temporary(), row.forged);
      return 0;
    });
    Diagnostics diagnostics;
    EXPECT_EQ(row.run(handle), verifying);
    EXPECT_EQ(diagnostics.logs(0x082A0022u, row.finding), 1u);
    EXPECT_EQ(readFile(registry()), meanwhile);
    EXPECT_EQ(readFile(temporary()), row.forged) << "what was refused stays to be looked at";
    (void)std::remove(temporary().c_str());
  }
}

}  // namespace
