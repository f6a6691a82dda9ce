// The installed copies: the whole list of each registry, and the lookups.
#include <cstring>

#include "support/machine_fixture.h"

namespace {

class InstalledCopies : public MachineTest {};

TEST_F(InstalledCopies, AreListedAsTheRegistryHasThem) {
  const std::string copiesKey = productKey("\\INSTALLEDCOPIES");
  const std::string versionKey = "\\INSTALLEDCOPIES\\V\\CurrentVersion";
  const std::string longest(128, 'N');
  const std::string path(259, 'p');
  std::string digits = "\"Version\"=hex(1):39,00";  // 14 of them, unterminated
  for (int i = 1; i < 14; ++i) digits += ",39,00";
  const struct {
    std::string lines, answer;
  } cases[] = {
      {productKey(""), "263"},
      {copiesKey, "end;"},
      {keys("A; B; A//Z; A//Z2; B//Z"), "ZEM A;ZOR A;ZOR B;end;"},
      {keys("-=8; -//Z; A") + productKey("\\INSTALLEDCOPIES\\A\\ZEM_PROFILES"), "ZOR A;ZEM -;end;"},
      {keys("-=8; A"), "ZOR A;ZOR -;end;"},
      {keys("-=9; A"), "ZOR A;end;"},
      {keys("-=8; A") + productKey("", "\"ZOR Path Name\"=-\n"), "ZOR A;end;"},
      {keys("b; C; A"), "ZOR A;ZOR b;ZOR C;end;"},
      {keys("A; B//Z; C") + productKey("\\INSTALLEDCOPIES\\A", "\"ZOR Path Name\"=-\n"),
       "265 A;265 B;265 B;ZOR C;end;"},
      // Texts and names that just fit or do not.
      {keys("A=9|" + path + "; B=9|" + path + "p; C=000000000000009; D=0000000000000009"),
       "ZOR A;265 B;ZOR C;265 D;end;"},
      {keys("V") + productKey(versionKey, digits + ",39,00\n"), "ZOR V;end;"},
      {keys("V") + productKey(versionKey, digits + ",39,00,39,00\n"), "265 V;end;"},
      {keys(longest + "; " + longest + "N; Z"), "ZOR " + longest + ";265 -;ZOR Z;end;"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.lines);
    machine(row.lines);
    EXPECT_EQ(copies(), row.answer);
  }
}

TEST_F(InstalledCopies, ALookupFindsTheFirstCopyThatAgreesWithEveryArgument) {
  machine(keys("A; B=10|C:\\Y z\\; B//Z; -=8"));
  const struct {
    const char* service;
    std::uint64_t version;
    const char *path, *copy;
    std::string found;  // empty: none
  } cases[] = {
      {"ZOR", 0, nullptr, nullptr, "ZOR A"},
      {"ZEM", 0, nullptr, nullptr, "ZEM B"},
      {nullptr, 0x000A000100020003, nullptr, nullptr, "ZEM B"},
      {nullptr, 0, nullptr, "", "ZOR "},
      {"zor", 0, nullptr, nullptr, ""},
      {nullptr, 0, "c:\\y z", nullptr, ""},
      {nullptr, 0, nullptr, "b", ""},
      {nullptr, 0x000A000100020004, nullptr, nullptr, ""},
      {"ZOR", 0x000A000100020003, "C:\\Y z", "B", "ZOR B"},
  };
  OSSServiceInfo_t record;
  std::memset(&record, 0xAA, sizeof record);
  for (const auto& row : cases) {
    const Code code = ossGetServiceInfo(row.service, row.version, row.path, row.copy, &record);
    EXPECT_EQ(code, row.found.empty() ? GENREG_RC_SERVICE_INFO : 0u);
    const std::string found = std::string(record.service) + " " + record.copyName;
    EXPECT_EQ(code == 0 ? found : "", row.found);
  }
  EXPECT_EQ(record.versionCode, 0x000A000100020003u);
  EXPECT_EQ(record.level, 2u);
  EXPECT_EQ(record.flags + record.number1 + record.byte1 + record.number2 + record.number3, 0u);
  EXPECT_EQ(std::string(record.installPath) + record.text2 + record.text3, "C:\\Y z");
}

}  // namespace
