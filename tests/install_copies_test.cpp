// The installed copies: the whole list of each registry, the lookups, and every code of every
// export.
#include <cerrno>
#include <cstring>

#include "support/machine_fixture.h"

namespace {

class InstalledCopies : public MachineTest {};

const std::string noCopies = productKey("\\INSTALLEDCOPIES");

std::string zemOf(const std::string& copy, const std::string& name = "Z") {
  return instanceKey(copy, name, "", "ZEM_PROFILES");
}

// A version of so many digits without a terminator.
std::string unterminated(unsigned int count) {
  std::string bytes = "39,00";
  while (--count > 0) bytes += ",39,00";
  return productKey("\\INSTALLEDCOPIES\\A\\CurrentVersion", "\"Version\"=hex(1):" + bytes + "\n");
}

TEST_F(InstalledCopies, AreListedAsTheRegistryHasThem) {
  const std::string longest(128, 'N');
  const struct {
    const char* name;
    std::string lines, answer;
  } cases[] = {
      {"no key of copies", productKey(""), "0x90000263"},
      {"no copy at all", noCopies, "end;"},
      {"two ZEM profiles", copyKeys("A") + zemOf("A") + zemOf("A", "Z2"), "ZEM A;ZOR A;end;"},
      {"an empty ZEM key", copyKeys("A") + productKey("\\INSTALLEDCOPIES\\A\\ZEM_PROFILES"),
       "ZOR A;end;"},
      {"two copies with ZEM profiles", copyKeys("A") + copyKeys("B") + zemOf("A") + zemOf("B"),
       "ZEM A;ZOR A;ZOR B;end;"},
      {"default entry of version 8", defaultKeys("8") + copyKeys("A"), "ZOR A;ZOR -;end;"},
      {"default entry of version 9", defaultKeys("9") + copyKeys("A"), "ZOR A;end;"},
      {"default entry with ZEM profiles", defaultKeys("8") + copyKeys("A") + zemOf(""),
       "ZOR A;ZEM -;end;"},
      {"default entry without a path", noCopies + versionKey("", "8"), "end;"},
      {"order of the registry", copyKeys("b") + copyKeys("C") + copyKeys("A"),
       "ZOR A;ZOR b;ZOR C;end;"},
      {"one copy in two cases", copyKeys("\xC3\xA4") + productKey("\\INSTALLEDCOPIES\\\xC3\x84"),
       "ZOR " + systemText("\xC3\xA4") + ";end;"},
      {"a copy without a version", productKey("\\INSTALLEDCOPIES\\A") + copyKeys("B"),
       "0x90000265;ZOR B;end;"},
      {"a copy without a path", versionKey("A", "9") + copyKeys("B"), "0x90000265;ZOR B;end;"},
      {"a path that just fits", copyKeys("A", "9", std::string(259, 'p')), "ZOR A;end;"},
      {"a path that does not fit", copyKeys("A", "9", std::string(260, 'p')), "0x90000265;end;"},
      {"a version that just fits", copyKeys("A", "000000000000009"), "ZOR A;end;"},
      {"an unterminated version that just fits", copyKeys("A") + unterminated(15), "ZOR A;end;"},
      {"one that fills the buffer", copyKeys("A") + unterminated(16), "0x90000265;end;"},
      {"a version that does not fit", copyKeys("A", "0000000000000009"), "0x90000265;end;"},
      {"names at the limit and beyond", copyKeys(longest + "N") + copyKeys(longest) + copyKeys("Z"),
       "ZOR " + longest + ";0x90000265;ZOR Z;end;"},
      {"ZEM profiles of a copy that cannot be read", zemOf("A") + copyKeys("B"),
       "0x90000265;0x90000265;ZOR B;end;"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    machine(row.lines);
    EXPECT_EQ(copies(), row.answer);
  }
}

TEST_F(InstalledCopies, ALookupFindsTheFirstCopyThatAgreesWithEveryArgument) {
  machine(copyKeys("A") + copyKeys("B", "10", "C:\\\\Y z\\\\") + zemOf("B") + defaultKeys("8"));
  const struct {
    const char* service;
    std::uint64_t version;
    const char *path, *copy, *found;  // found: null where none is
  } cases[] = {
      {"ZOR", 0, nullptr, nullptr, "ZOR A"},
      {"ZEM", 0, nullptr, nullptr, "ZEM B"},
      {nullptr, 0x000A000100020003, nullptr, nullptr, "ZEM B"},
      {"ZOR", 0x000A000100020003, "C:\\Y z", "B", "ZOR B"},
      {nullptr, 0, nullptr, "", "ZOR "},
      {"zor", 0, nullptr, nullptr, nullptr},
      {nullptr, 0, "c:\\y z", nullptr, nullptr},
      {nullptr, 0, nullptr, "b", nullptr},
      {nullptr, 0x000A000100020004, nullptr, nullptr, nullptr},
  };
  for (const auto& row : cases) {
    OSSServiceInfo_t record;
    const unsigned int code =
        ossGetServiceInfo(row.service, row.version, row.path, row.copy, &record);
    ASSERT_EQ(code, row.found == nullptr ? GENREG_RC_SERVICE_INFO : 0u);
    if (row.found != nullptr) {
      EXPECT_EQ(std::string(record.service) + " " + record.copyName, row.found);
    }
  }
  OSSServiceInfo_t record;
  std::memset(&record, 0xAA, sizeof record);
  EXPECT_EQ(ossGetServiceInfo("ZOR", 0, "C:\\Y z", &record), 0u);
  EXPECT_EQ(record.versionCode, 0x000A000100020003u);
  EXPECT_EQ(record.level, 2u);
  EXPECT_EQ(record.flags + record.number1 + record.byte1 + record.number2 + record.number3, 0u);
  const std::string texts = std::string(record.service) + "|" + record.installPath + "|" +
                            record.text2 + "|" + record.text3 + "|" + record.copyName;
  EXPECT_EQ(texts, "ZOR|C:\\Y z|||B");
}

// Each row makes the one call that must give the code, where the operation named fails as told.
TEST_F(InstalledCopies, EveryCodeOfEveryExport) {
  machine(copyKeys("A") + defaultKeys("8"));
  OSSServiceInfo_t record;
  const auto list = copyList();
  const auto open = [&] { return list.open(); };
  const auto next = [&](unsigned int steps) { return list.next(steps); };
  const auto close = [&] { return list.close(); };
  const auto find = [&] { return ossGetServiceInfo("none", 0, nullptr, nullptr, &record); };
  expectCodes({
      {0, open},
      {0x90000263, open, {"calloc", 1, ENOMEM}, 140, 0x9000000D},
      {0x90000263, open, {"malloc", 1, ENOMEM}, 140, 0x9000000D},
      {0x90000263, open, {"RegOpenKeyExA", 1, 2}, 140, 0x90000282},
      {0x90000263, open, {"RegOpenKeyExA", 1, ENOSPC}, 140, 0x9000000A},
      {0x90000263, [] { return ossOpenServiceList(nullptr); }},
      {0, next(2)},
      {0x900001BE, next(3)},
      {0x900001BE, next(4)},
      {0x90000262, [&] { return ossGetNextService(nullptr, &record); }},
      {0x90000260, [&] { return ossGetNextService(&record, nullptr); }},
      {0x90000265, next(1), {"RegEnumKeyExA", 1, 5}, 139, 0x90000265},
      {0, next(2), {"RegEnumKeyExA", 1, 5}, 139, 0x90000265},
      {0x90000265, next(1), {"RegQueryValueExA", 3, 5}, 139, 0x90000265},
      {0x90000265, next(1), {"RegQueryValueExA", 5, 5}, 139, 0x90000267},
      {0x90000265, next(1), {"RegOpenKeyExA", 4, 5}, 144, 5},
      {0x90000265, next(2), {"RegOpenKeyExA", 5, 5}, 139, 5},
      {0x900001BE, next(2), {"RegOpenKeyExA", 7, 5}, 145, 5},
      {0x90000264, close, {"free", 1 + machineStreams, EIO}, 101, 0x90000264},
      {0x90000262, [] { return ossCloseServiceList(nullptr); }},
      {0x90000267, find},
      {0x90000267, find, {"RegOpenKeyExA", 1, 2}, 105, 0x90000267},
      {0x90000267, find, {"RegEnumKeyExA", 1, 5}, 105, 0x90000267},
      {0x90000260, [] { return ossGetServiceInfo(nullptr, 0, nullptr, nullptr); }},
      {0x90000260, [] { return ossSetServiceInfo(nullptr); }},
      {0x90000005, [&] { return ossSetServiceInfo(&record); }},
      {0x90000005, [] { return ossRemoveServiceInfo("ZOR", 0); }},
  });
}

TEST_F(InstalledCopies, OnlyTheInnerRoutinesTraceEntryAndExit) {
  machine(copyKeys("A"));
  OSSServiceInfo_t record;
  g_pGTCB->enabled = 1;
  Diagnostics diagnostics;
  EXPECT_EQ(ossGetServiceInfo("ZOR", 0, nullptr, &record), 0u);
  EXPECT_EQ(ossGetServiceInfo("none", 0, nullptr, nullptr), GENREG_RC_NO_SERVICE_RECORD);
  g_pGTCB->enabled = 0;
  std::string entered;
  for (const auto& made : diagnostics.records) {
    if (made.kind == OSSRecordKind::Entry) entered += std::to_string(made.probe & 0xFFFF) + " ";
  }
  EXPECT_EQ(entered, "143 140 139 146 145 144 141 ");
}

}  // namespace
