// The global registry: the bytes of its records, what is refused, and what a newer writer's fields
// and other records go through.
#include <cstdlib>
#include <cstring>

#include "support/flavours.h"
#include "sysservices/environment.h"
#include "sysservices/file_system.h"

namespace {

using Global = GlobalVariables::Handle;

// Has every record unpacked for CompareRecord, instead of matched as it is stored.
void unpackEverything(Global& handle) {
  static GenRegCompareHook own;
  own = handle.compareHook();
  handle.compareHook() = [](std::uint64_t mask, void* record, void* key) {
    return own(mask, record, key);
  };
}

template <typename Record>
void put(Record& field, const std::string& text) {
  text.copy(field, sizeof field - 1);
}

GlobalRegRecord recordOf(std::uint32_t type, std::uint64_t fields) {
  GlobalRegRecord record{};
  record.RecordType = type;
  record.FieldMask = fields;
  return record;
}

GlobalRegRecord instance(const std::string& name, const std::string& service = "ZOR") {
  GlobalRegRecord record = recordOf(GLOBALREG_RECORD_INSTANCE, 0x5);
  put(record.Instance.Service, service);
  put(record.Instance.InstanceName, name);
  return record;
}

std::string storedInstance(const std::string& name, const std::string& service = "ZOR") {
  return stored(1, 0x5, {text(service), text(name)});
}

class GlobalTest : public RegistryTest {};

// One field of one type, independent of the library's table.
struct FieldCase {
  std::uint32_t type;
  std::uint64_t bit;
  Code empty, absent;  // without their 0x90000000; 0: not checked
  std::string entry;   // length and bytes
  void (*set)(GlobalRegRecord& record);
};

const FieldCase fields[] = {
    {1, 0x1, 0x229, 0x233, text("svc"), [](auto& r) { put(r.Instance.Service, "svc"); }},
    {1, 0x2, 0, 0x234, number(0x900010203, 8),
     [](auto& r) { r.Instance.VersionCode = 0x900010203; }},
    {1, 0x4, 0x22B, 0x235, text("name"), [](auto& r) { put(r.Instance.InstanceName, "name"); }},
    {1, 0x8, 0x22C, 0x236, text("/path"), [](auto& r) { put(r.Instance.InstancePath, "/path"); }},
    {1, 0x10, 0x22D, 0x237, text("use"), [](auto& r) { put(r.Instance.Usage, "use"); }},
    {1, 0x20, 0, 0x238, number(1, 4), [](auto& r) { r.Instance.StartAtBoot = 1; }},
    {1, 0x40, 0, 0x239, number(1, 4), [](auto& r) { r.Instance.Maintenance = 1; }},
    {1, 0x80, 0x230, 0x23A, text("/opt"), [](auto& r) { put(r.Instance.InstallPath, "/opt"); }},
    {1, 0x100, 0x231, 0x23B, text("host"), [](auto& r) { put(r.Instance.HostName, "host"); }},
    {1, 0x200, 0x232, 0x23C, text("note"), [](auto& r) { put(r.Instance.Comment, "note"); }},
    {2, 0x1, 0x23D, 0x242, text("svc"), [](auto& r) { put(r.Services.Service, "svc"); }},
    {2, 0x2, 0, 0x243, number(7, 8), [](auto& r) { r.Services.VersionCode = 7; }},
    {2, 0x4, 0x23F, 0x244, text("/opt"), [](auto& r) { put(r.Services.InstallPath, "/opt"); }},
    {2, 0x8, 0x240, 0x245, text("t2"), [](auto& r) { put(r.Services.Text2, "t2"); }},
    {2, 0x10, 0x241, 0x246, text("t3"), [](auto& r) { put(r.Services.Text3, "t3"); }},
    {2, 0x20, 0, 0, number(0xFFFFFFFF, 4), [](auto& r) { r.Services.Level = 0xFFFFFFFF; }},
    {2, 0x40, 0, 0x50E, number(0x01020304, 4), [](auto& r) { r.Services.Number1 = 0x01020304; }},
    {2, 0x80, 0, 0x510, number(0xFE, 1), [](auto& r) { r.Services.Byte1 = 0xFE; }},
    {2, 0x100, 0, 0x50F, number(2, 4), [](auto& r) { r.Services.Number2 = 2; }},
    {2, 0x200, 0, 0x511, number(3, 4), [](auto& r) { r.Services.Number3 = 3; }},
    {4, 0x1, 0x247, 0x24B, text("svc"), [](auto& r) { put(r.Variable.Service, "svc"); }},
    {4, 0x2, 0x248, 0x24C, text("var"), [](auto& r) { put(r.Variable.Variable, "var"); }},
    {4, 0x4, 0x249, 0x24D, text("val"), [](auto& r) { put(r.Variable.Value, "val"); }},
    {4, 0x8, 0x24A, 0x24E, text("note"), [](auto& r) { put(r.Variable.Comment, "note"); }},
};

TEST_F(GlobalTest, EveryFieldIsStoredAndReadByteForByteWithAndWithoutUnknownOnes) {
  for (const FieldCase& field : fields) {
    SCOPED_TRACE("type " + std::to_string(field.type) + " bit " + std::to_string(field.bit));
    GlobalRegRecord record = recordOf(field.type, field.bit);
    record.CheckSum = -2;
    field.set(record);
    Global handle(registry());
    const std::string alone = stored(field.type, field.bit, {field.entry}, 0, -2);
    writeFile(registry(), "");
    ASSERT_EQ(handle.Add(field.bit, &record), 0u);
    EXPECT_EQ(readFile(registry()), framed(alone));
    GlobalRegRecord found;
    EXPECT_EQ(handle.Get(field.bit, &record, &found), 0u);
    EXPECT_EQ(found.CheckSum, -2);

    // A newer writer's record with fields above and the top bit, which never has an entry.
    const std::uint64_t newer = 0x400 | 0x4000000000000000u | 0x8000000000000000u;
    writeFile(registry(), framed(stored(field.type, field.bit | newer,
                                        {field.entry, entry("\x01\x02\x03"), entry("")})));
    GlobalRegRecord expected = recordOf(field.type, field.bit | newer);
    expected.MissingFieldMask = (field.type == 4 ? 0xFu : 0x3FFu) & ~field.bit;
    field.set(expected);
    GlobalRegRecord key = recordOf(0, 0);
    ASSERT_EQ(handle.Get(0, &key, &found), 0u);
    EXPECT_EQ(std::memcmp(&found, &expected, sizeof found), 0) << "what is not stored is zero";
  }
}

TEST_F(GlobalTest, FullLengthRecordsAndSparseOnesAreUpdatedBesideOddOnes) {
  // Well-formed: bytes behind a text's NUL, unknown fields between known ones' bits.
  const std::string odd = framed(stored(
      4, 0x8000000000000031u, {entry(std::string("a\0junk", 6)), entry("x"), entry("")}, 0xF0));
  GlobalRegRecord full = recordOf(1, 0x3FF);
  for (const FieldCase& field : fields) {
    if (field.type == 1) field.set(full);
  }
  const auto fill = [](auto&... texts) { (std::memset(texts, 'x', sizeof texts - 1), ...); };
  auto& texts = full.Instance;
  fill(texts.Service, texts.InstanceName, texts.InstancePath, texts.Usage, texts.InstallPath,
       texts.HostName, texts.Comment);
  const GlobalRegRecord original = full;
  Global handle(registry());
  ASSERT_EQ(handle.Add(0x4, &full), 0u);
  EXPECT_EQ(std::memcmp(&full, &original, sizeof full), 0) << "the caller's record is still one";
  const std::string bytes = readFile(registry()).substr(4);
  EXPECT_EQ(bytes.size(), 2620u);
  GlobalRegRecord found;
  ASSERT_EQ(handle.Get(0x4, &full, &found), 0u);
  EXPECT_EQ(std::memcmp(&found, &original, sizeof found), 0);

  // The same with 60,000 bytes of unknown fields on top.
  const std::string unknown = entry(std::string(60000, 'u')) + little(0, 4);
  std::string larger = bytes.substr(0, bytes.size() - 4) + unknown;
  larger.replace(4, 8, little(0x7FF, 8));
  writeFile(registry(), odd + framed(larger) + odd);
  GlobalRegRecord changed = full;
  changed.Instance.StartAtBoot = 0;
  ASSERT_EQ(handle.Change(0x4, &full, &changed), 0u);
  // What stands in fields that a record does not have, and behind its texts, is no part of it.
  GlobalRegRecord record = instance("one");
  record.Instance.VersionCode = 7;
  std::memset(record.Instance.InstancePath, 'g', sizeof record.Instance.InstancePath);
  std::memset(record.Instance.Service + 4, 'g', sizeof record.Instance.Service - 4);
  ASSERT_EQ(handle.Add(0x4, &record), 0u);
  EXPECT_EQ(readFile(registry()).find(unknown + odd),
            odd.size() + 4 + larger.size() - unknown.size());
  ASSERT_EQ(handle.Delete(0x4, &full), 0u);
  EXPECT_EQ(readFile(registry()), odd + odd + framed(storedInstance("one")));
  GlobalRegRecord key = record;
  put(record.Instance.InstanceName, "two");
  ASSERT_EQ(handle.Change(0x4, &key, &record), 0u);
  EXPECT_EQ(readFile(registry()), odd + odd + framed(storedInstance("two")));
  key = instance("two");
  EXPECT_EQ(handle.Change(0x4, &key, &key), unchanged);
}

TEST_F(GlobalTest, MalformedRecordsAreRefusedWholeAndTheFileStaysAsItIs) {
  const std::string good = storedInstance("one");
  constexpr Code malformed = GENREG_RC_MALFORMED_RECORD;
  const std::string pastTheEnd = little(200, 2) + "abc";
  const std::string intoCheckSum = little(5, 2) + std::string("abc\0", 4);
  const struct {
    const char* name;
    std::string bytes;
    Code logged;
  } cases[] = {
      {"type 0", stored(0, 0, {}), GENREG_RC_UNKNOWN_RECORD_TYPE},
      {"type 3", stored(3, 0x1, {}), GENREG_RC_UNKNOWN_RECORD_TYPE},
      {"shorter than its header", good.substr(0, 23), malformed},
      {"text longer than its field", stored(1, 0x1, {text(std::string(64, 'x'))}), malformed},
      {"text without its NUL", stored(1, 0x1, {entry("abc")}), malformed},
      {"empty text entry", stored(1, 0x1, {entry("")}), malformed},
      {"number of another width", stored(1, 0x20, {number(1, 8)}), malformed},
      {"entry past the record", stored(1, 0x1, {pastTheEnd}), malformed},
      {"entry into the check sum", stored(1, 0x1, {intoCheckSum}), malformed},
      {"unknown entry past the record", stored(1, 0x401, {text("a"), little(9, 2)}), malformed},
      {"entries missing", stored(1, 0x3FF, {text("a")}), malformed},
      {"bytes left over", stored(1, 0x1, {text("a"), "rest"}), malformed},
  };
  for (const auto& row : cases) {
    for (const bool unpacked : {false, true}) {
      SCOPED_TRACE(std::string(row.name) + (unpacked ? ", unpacked" : ", as stored"));
      const std::string bytes = framed(good) + framed(row.bytes);
      writeFile(registry(), bytes);
      Global handle(registry());
      if (unpacked) unpackEverything(handle);
      GlobalRegRecord key = instance("absent");
      GlobalRegRecord found;
      Diagnostics diagnostics;
      EXPECT_EQ(handle.Get(0x4, &key, &found), GENREG_RC_UNPACK_FAILED);
      EXPECT_EQ(diagnostics.logs(0x082A005Du, row.logged), 1u);
      EXPECT_EQ(handle.Add(0x4, &key), GENREG_RC_UNPACK_FAILED);
      EXPECT_EQ(handle.Change(0x4, &key, &key), GENREG_RC_UNPACK_FAILED);
      EXPECT_EQ(handle.Delete(0x4, &key), GENREG_RC_UNPACK_FAILED);
      EXPECT_EQ(readFile(registry()), bytes);
      ASSERT_EQ(handle.OpenScan(), 0u);
      found.RecordType = 9;
      EXPECT_EQ(handle.GetNext(0x4, &key, &found), GENREG_RC_UNPACK_FAILED);
      EXPECT_EQ(found.RecordType, 0u);
    }
  }
}

TEST_F(GlobalTest, WhatCouldNotBeReadAgainIsNotStored) {
  Global handle(registry());
  GlobalRegRecord known = instance("one");
  ASSERT_EQ(handle.Add(0x4, &known), 0u);
  const std::string before = readFile(registry());
  for (const std::uint32_t type : {0u, 3u, 5u}) {
    GlobalRegRecord record = recordOf(type, 0x1);
    EXPECT_NE(handle.Add(0, &record), 0u) << type;
  }
  GlobalRegRecord endless = instance("two");
  std::memset(endless.Instance.Service, 'x', sizeof endless.Instance.Service);
  EXPECT_EQ(handle.Add(0x4, &endless), GENREG_RC_PACK_FAILED);
  EXPECT_EQ(readFile(registry()), before);
  // Fields that nobody supplies are reported, in decimal, and left out.
  GlobalRegRecord record = recordOf(4, 0x13);
  put(record.Variable.Service, "S");
  put(record.Variable.Variable, "V");
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(handle.Add(0x2, &record), 0u);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "PackRecord: unknown Variable field: 16\n");
  EXPECT_EQ(readFile(registry()), before + framed(stored(4, 0x3, {text("S"), text("V")})));
}

TEST_F(GlobalTest, KeysAndRecordsAreCheckedFieldByField) {
  const struct {
    std::uint32_t type;
    std::uint64_t fieldMask, mask;
    void (*set)(GlobalRegRecord& record);  // after every present text was filled
    Code code;
  } cases[] = {
      {0, 0x1, 0x1, nullptr, GENREG_RC_BAD_RECORD_TYPE},
      {5, 0x1, 0x1, nullptr, GENREG_RC_BAD_RECORD_TYPE},
      {0, 0, 0, nullptr, 0},
      {1, 0, 0x1, nullptr, GENREG_RC_NO_FIELDS},
      {3, 0x1, 0x3FF, nullptr, 0},
      {1, 0x205, 0x1, [](auto& r) { *r.Instance.InstanceName = '\0'; }, 0x9000022Bu},
      {1, 0x20, 0x20, [](auto& r) { r.Instance.StartAtBoot = 2; }, 0x9000022Eu},
      {1, 0x20, 0, [](auto& r) { r.Instance.StartAtBoot = 2; }, 0},
      {1, 0x40, 0x40, [](auto& r) { r.Instance.Maintenance = 0xFFFFFFFF; }, 0x9000022Fu},
      {1, 0x1, 0x400, nullptr, 0},
      {4, 0xF, 0xF, nullptr, 0},
  };
  Global handle(registry());
  for (const auto& row : cases) {
    SCOPED_TRACE("type " + std::to_string(row.type) + ", mask " + std::to_string(row.mask));
    GlobalRegRecord record = recordOf(row.type, row.fieldMask);
    record.MissingFieldMask = 0xF0;
    for (const FieldCase& field : fields) {
      if (field.type == row.type) field.set(record);
    }
    if (row.set != nullptr) row.set(record);
    EXPECT_EQ(handle.ValidateKey(row.mask, &record), row.code);
    const bool reached =
        row.mask != 0 && row.code != GENREG_RC_BAD_RECORD_TYPE && row.code != GENREG_RC_NO_FIELDS;
    EXPECT_EQ(record.MissingFieldMask, reached ? 0u : 0xF0u);
  }
  for (const FieldCase& field : fields) {
    GlobalRegRecord empty = recordOf(field.type, field.bit);
    EXPECT_EQ(handle.ValidateKey(field.bit, &empty) & 0xFFFFu, field.empty) << field.absent;
    GlobalRegRecord without = recordOf(field.type, 0x400);
    EXPECT_EQ(handle.ValidateKey(field.bit, &without) & 0xFFFFu, field.absent) << field.empty;
  }
  GlobalRegRecord record = instance("one");
  EXPECT_EQ(handle.ValidateKey(0, nullptr), GENREG_RC_NO_ARGUMENT);
  EXPECT_EQ(handle.Add(0, nullptr), rejected);
  EXPECT_EQ(handle.Get(0, nullptr, &record), rejected);
  EXPECT_EQ(handle.Get(0, &record, nullptr), OSS_RC_NULL_ARGUMENT);
  EXPECT_EQ(handle.Change(0x4, nullptr, &record), opening);
}

TEST_F(GlobalTest, RecordsAreMatchedByTypeAndTheSelectedFields) {
  writeFile(registry(), framed(stored(4, 0x1, {text("ZOR")})) + framed(storedInstance("one")) +
                            framed(stored(2, 0x1, {text("zor")})) +
                            framed(stored(2, 0x3, {text("ZOR"), number(7, 8)})));
  Global handle(registry());
  Global unpacking(registry());
  unpackEverything(unpacking);
  const struct {
    std::uint32_t type;
    std::uint64_t mask;
    const char* service;
    Code code;
    std::uint32_t foundType = 0;
    std::uint64_t foundMask = 0;
  } cases[] = {{0, 0, "", 0, 4, 0x1},     {2, 0, "", 0, 2, 0x1},      {2, 0x1, "ZOR", 0, 2, 0x3},
               {2, 0x1, "Zor", notFound}, {1, 0x1, "ZOR", 0, 1, 0x5}, {1, 0x401, "ZOR", 0, 1, 0x5},
               {1, 0x4, "ZOR", rejected}};
  for (const auto& row : cases) {
    GlobalRegRecord key = recordOf(row.type, 0x1);
    put(key.Instance.Service, row.service);
    for (Global* each : {&handle, &unpacking}) {
      GlobalRegRecord found{};
      EXPECT_EQ(each->Get(row.mask, &key, &found), row.code);
      EXPECT_EQ(found.RecordType, row.foundType);
      EXPECT_EQ(found.FieldMask, row.foundMask);
    }
  }
  GlobalRegRecord record = instance("new");
  EXPECT_EQ(handle.Add(0, &record), duplicate) << "mask 0 matches any of its type";
}

TEST_F(GlobalTest, ThePathComesFromTheEnvironmentOrNothingWorks) {
  constexpr const char* variable = "ZOR_GLOBAL_REG_PATHNAME";
  struct Standard : GlobalReg {
    using GenRegBase::status;
    using GenRegFile::getLockFilePath;
    using GenRegFile::getRegFilePath;
  };
  const std::pair<std::string, Code> cases[] = {
      {registry(), 0},
      {std::string(253, 'x'), 0},
      {"", GENREG_RC_NO_ARGUMENT},
      {"/", GENREG_RC_BASE_NAME},
      {std::string(254, 'x'), GENREG_RC_PATH_TOO_LONG},
      {std::string(260, 'x'), GENREG_RC_PATH_TOO_LONG},
      {std::string(261, 'x'), GENREG_RC_GLOBAL_PATH_SMALL},
      {std::string(70000, 'x'), GENREG_RC_GLOBAL_PATH_SMALL}};
  for (const auto& [wanted, logged] : cases) {
    SCOPED_TRACE(wanted.substr(0, 80) + ", length " + std::to_string(wanted.size()));
    (void)ossEnvironmentSet(variable, wanted.c_str());
    const char* const named = std::getenv(variable);
    if (named == nullptr || named != wanted) continue;  // not every platform takes every value
    Diagnostics diagnostics;
    Standard handle;
    const bool ready = logged == 0;
    EXPECT_EQ(diagnostics.logs(0x082A0055u, logged), ready ? 0u : 1u);
    char path[GENREG_PATH_SIZE];
    EXPECT_EQ(handle.getRegFilePath(path, sizeof path), 0u);
    EXPECT_EQ(path, ready ? wanted : "");
    EXPECT_EQ((handle.status & GENREG_STATUS_READY) != 0, ready);
    if (ready) continue;
    GlobalRegRecord record = instance("one");
    EXPECT_EQ(handle.Add(0x4, &record), GENREG_RC_LOCK_FAILED);
    EXPECT_NE(handle.Get(0x4, &record, &record), 0u);
    EXPECT_EQ(handle.OpenScan(), GENREG_RC_OPEN_FAILED);
  }
  (void)ossEnvironmentSet(variable, nullptr);
  Standard standard;
  char path[GENREG_PATH_SIZE];
  EXPECT_EQ(standard.getRegFilePath(path, sizeof path), 0u);
  EXPECT_EQ(path, std::string(".") + ossPathSeparator + "global.reg");
  EXPECT_EQ(standard.getLockFilePath(path, sizeof path), 0u);
  EXPECT_STREQ(path, ".global.reg.lock");
  for (std::uint64_t bit = 1; bit <= 128; bit *= 2) {
    EXPECT_EQ(standard.isFeatureSet(bit), bit == 1 || bit == 4 || bit == 32) << bit;
  }
}

}  // namespace
