// The installed copies: the whole list of each registry, and the lookups.
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
      {"order of the registry", copyKeys("b") + copyKeys("C") + copyKeys("_") + copyKeys("A"),
       "ZOR A;ZOR b;ZOR C;ZOR _;end;"},
      {"a copy without a version", productKey("\\INSTALLEDCOPIES\\A") + copyKeys("B"),
       "0x90000265 A;ZOR B;end;"},
      {"a copy without a path", versionKey("A", "9") + copyKeys("B"), "0x90000265 A;ZOR B;end;"},
      {"a path that just fits", copyKeys("A", "9", std::string(259, 'p')), "ZOR A;end;"},
      {"a path that does not fit", copyKeys("A", "9", std::string(260, 'p')), "0x90000265 A;end;"},
      {"a version that just fits", copyKeys("A", "000000000000009"), "ZOR A;end;"},
      {"an unterminated version that just fits", copyKeys("A") + unterminated(15), "ZOR A;end;"},
      {"one that fills the buffer", copyKeys("A") + unterminated(16), "0x90000265 A;end;"},
      {"names at the limit and beyond", copyKeys(longest + "N") + copyKeys(longest) + copyKeys("Z"),
       "ZOR " + longest + ";0x90000265 -;ZOR Z;end;"},
      {"ZEM profiles of a copy that cannot be read", zemOf("A") + copyKeys("B"),
       "0x90000265 A;0x90000265 A;ZOR B;end;"},
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
  OSSServiceInfo_t record;
  for (const auto& row : cases) {
    const Code code = ossGetServiceInfo(row.service, row.version, row.path, row.copy, &record);
    ASSERT_EQ(code, row.found == nullptr ? GENREG_RC_SERVICE_INFO : 0u);
    if (row.found != nullptr) {
      EXPECT_EQ(std::string(record.service) + " " + record.copyName, row.found);
    }
  }
  EXPECT_EQ(ossGetServiceInfo("ZOR", 0, "C:\\Y z", &record), 0u);
  EXPECT_EQ(record.versionCode, 0x000A000100020003u);
  EXPECT_EQ(record.level, 2u);
  EXPECT_EQ(record.flags + record.number1 + record.byte1 + record.number2 + record.number3, 0u);
  EXPECT_EQ(std::string(record.installPath) + "|" + record.text2 + "|" + record.text3, "C:\\Y z||");
}

}  // namespace
