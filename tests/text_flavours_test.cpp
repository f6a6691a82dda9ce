// Profile variable lines and services lines: what is read from a line, what is written for a
// record.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "support/flavours.h"

namespace {

using VarVal = Exposed<GenRegVarVal>;
using Services = Exposed<GenRegServices>;

class TextFlavoursTest : public RegistryTest {};

std::uint16_t inNetworkOrder(unsigned int port) {
  return static_cast<std::uint16_t>((port & 0xFFu) << 8 | (port >> 8 & 0xFFu));
}

// A services record; it has no text that is null.
ServiceEntryRecord service(std::uint8_t contains, const char* name, unsigned int port,
                           const char* protocol, const char** aliases = nullptr,
                           const char* comment = nullptr) {
  return {contains, comment, name, aliases, protocol, inNetworkOrder(port), {}, {}};
}

// The texts of a record, joined by bars; "-" for one that is null.
std::string shown(const char* text) { return text == nullptr ? "-" : text; }
template <typename... Texts>
std::string shown(const char* first, const Texts&... others) {
  return shown(first) + "|" + shown(others...);
}

TEST_F(TextFlavoursTest, AVariableLineIsSplitIntoNameValueAndComment) {
  constexpr Code openQuote = GENREG_RC_VARVAL_OPEN_QUOTE;
  const struct {
    std::string line;
    Code code;
    unsigned int contains;
    const char* fields;
  } cases[] = {
      {"DB_HOME = /opt/x # where\n", 0, 3, "DB_HOME|/opt/x| where"},
      {"A=b c   d\n", 0, 2, "A|b c d|-"},
      {"MSG = \"a  b\" tail\n", 0, 2, "MSG|\"a  b\"|-"},
      {"X = a=b\n", 0, 2, "X|a=b|-"},
      {"   # note\n", 0, 1, "-|-| note"},
      {"# a # b\n", 0, 1, "-|-| a # b"},
      {"\t \n", 0, 0, "-|-|-"},
      {"A =\n", 0, 2, "A||-"},
      {"= 1\n", 0, 2, "|1|-"},
      {"MY  VAR\t= 1\n", 0, 2, "MY VAR|1|-"},
      {"A = \"x # y\"\n", openQuote, 1, "-|-| y\""},
      {"A = \"x\n", openQuote, 0, "-|-|-"},
      {"word\n", GENREG_RC_VARVAL_NO_EQUALS, 0, "-|-|-"},
      {"A = 1 # \x01\x7f\xff\tz\n", 0, 3, "A|1| ...\tz"},
      {"A = \xC3\xA4", 0, 2, "A|\xC3\xA4|-"},
  };
  VarVal file(registry());
  for (const auto& row : cases) {
    SCOPED_TRACE(row.line);
    VarValRecord record;
    std::string line = row.line;
    EXPECT_EQ(file.UnpackRecord.text(&record, line.data()), row.code);
    EXPECT_EQ(record.Contains, row.contains);
    EXPECT_EQ(shown(record.Variable, record.Value, record.Comment), row.fields);
  }
  char line[] = "A=1";
  EXPECT_EQ(file.UnpackRecord.text(nullptr, line), GENREG_RC_NO_ARGUMENT);
}

TEST_F(TextFlavoursTest, AVariableLineIsWrittenAfterTheOneItReplaces) {
  const struct {
    VarValRecord record;
    bool compact;
    const char* before;
    Code code;
    const char* written;
  } cases[] = {
      {assignment("A", "1"), false, "", 0, "A = 1\n"},
      {assignment("A", "1"), true, "", 0, "A=1\n"},
      {assignment("A", "1", "x"), false, "", 0, "A = 1 # x\n"},
      {assignment("A", "1", "x"), true, "", 0, "A=1 # x\n"},
      {assignment("A", "2"), false, "    A\t=  1   # old\n", 0, "    A\t=  2\n"},
      {assignment("NEW", "2"), true, "A=1\n", 0, "NEW=2\n"},
      {assignment("A", "2"), false, "MY VAR = 1\n", GENREG_RC_VARVAL_NO_EQUALS, "MY VAR = 1\n"},
      {{1, "x", nullptr, nullptr, {}}, false, "", 0, "# x\n"},
      {{0, nullptr, nullptr, nullptr, {}}, false, "", 0, "\n"},
      {assignment("A", nullptr), false, "", GENREG_RC_VARVAL_NO_VALUE, ""},
      {assignment(nullptr, "1"), false, "", GENREG_RC_VARVAL_NO_VARIABLE, ""},
      {assignment("A", "1\n"), false, "", GENREG_RC_BAD_ARGUMENT, ""},
  };
  VarVal file(registry());
  for (const auto& row : cases) {
    char text[GENREG_LINE_SIZE];
    (void)std::snprintf(text, sizeof text, "%s", row.before);
    bCompactFormattedLine = row.compact;
    VarValRecord record = row.record;
    EXPECT_EQ(file.PackRecord.text(&record, text), row.code);
    EXPECT_STREQ(text, row.written);
  }
  bCompactFormattedLine = true;
  VarVal another(registry());
  EXPECT_FALSE(bCompactFormattedLine) << "a construction resets the layout";
}

TEST_F(TextFlavoursTest, AGetterThatConvertsNothingLeavesTheValueAsItWas) {
  VarVal file(registry());
  std::uint64_t natural = 99;
  std::int64_t integer = 99;
  double real = 99;
  bool truth = true;
  const char* text = "untouched";
  for (const char* value : {"42x", "1e999", "\"42\"", ""}) {
    writeFile(registry(), "n = " + std::string(value) + "\nn = 7\n");
    EXPECT_FALSE(file.GetUintValue("n", &natural) || file.GetSintValue("n", &integer)) << value;
    EXPECT_FALSE(file.GetDoubleValue("n", &real) || file.GetBooleanValue("n", &truth)) << value;
  }
  EXPECT_FALSE(file.GetStringValue("absent", &text) || file.GetStringValue(nullptr, &text));
  EXPECT_TRUE(natural == 99 && integer == 99 && real == 99 && truth);
  EXPECT_STREQ(text, "untouched");
}

TEST_F(TextFlavoursTest, AServicesLineIsSplitIntoItsFields) {
  std::string manyAliases = "svc 1/tcp";
  for (int i = 0; i < 127; ++i) manyAliases += " a";
  const struct {
    std::string line;
    Code code;
    unsigned int contains, port;
    const char* fields;  // name, protocol, first alias and comment
    std::size_t aliases;
  } cases[] = {
      {"ftp\t21/tcp\t\tfile # transfer\n", 0, 3, 21, "ftp|tcp|file| transfer", 1},
      {"echo 7/udp\n", 0, 2, 7, "echo|udp|-|-", 0},
      {"  x  5/tcp a  b\tc", 0, 2, 5, "x|tcp|a|-", 3},
      {"x 5/icmp y\n", 0, 6, 5, "x|icmp|-|-", 0},
      {"x 5/TCP\n", 0, 6, 5, "x|TCP|-|-", 0},
      {"x 5/tc\n", 0, 6, 5, "x|tc|-|-", 0},
      {"x 5/divert y\n", 0, 2, 5, "x|divert|y|-", 1},
      {"x 5\n", 0, 6, 0, "x|-|-|-", 0},
      {"lonely\n", GENREG_RC_SERVICES_NO_PORT, 2, 0, "lonely|-|-|-", 0},
      {"\n", 0, 1, 0, "-|-|-|-", 0},
      {"  \n", 0, 0, 0, "-|-|-|-", 0},
      {"#\n", 0, 1, 0, "-|-|-|", 0},
      {"svc 99999/tcp\n", 0, 2, 34463, "svc|tcp|-|-", 0},
      {"svc 99999999999999999999/tcp\n", 0, 2, 65535, "svc|tcp|-|-", 0},
      {"svc x/ddp\n", 0, 2, 0, "svc|ddp|-|-", 0},
      {manyAliases + "\n", 0, 2, 1, "svc|tcp|a|-", 127},
      {manyAliases + " b\n", OSS_RC_BUFFER_TOO_SMALL, 2, 1, "svc|tcp|a|-", 127},
  };
  Services file(registry());
  for (const auto& row : cases) {
    SCOPED_TRACE(row.line);
    ServiceEntryRecord record;
    std::string line = row.line;
    EXPECT_EQ(file.UnpackRecord.text(&record, line.data()), row.code);
    EXPECT_EQ(record.Contains, row.contains);
    EXPECT_EQ(record.port, inNetworkOrder(row.port));
    std::size_t count = 0;
    while (record.aliases != nullptr && record.aliases[count] != nullptr) ++count;
    EXPECT_EQ(count, row.aliases);
    const char* const alias = count == 0 ? nullptr : record.aliases[0];
    EXPECT_EQ(shown(record.name, record.protocol, alias, record.comment), row.fields);
  }
}

TEST_F(TextFlavoursTest, AServicesLineIsWrittenInItsOwnLayout) {
  const char* none[] = {nullptr};
  const char* file[] = {"file", nullptr};
  const char* longer[] = {"longalias", "b", nullptr};
  const std::string longName(2030, 'n');
  const struct {
    ServiceEntryRecord record;
    Code code;
    std::string written;
  } cases[] = {
      {service(3, "ftp", 21, "tcp", file, "transfer"), 0, "ftp\t\t21/tcp\t\tfile\t\t# transfer\n"},
      {service(2, "web", 8080, "tcp"), 0, "web\t\t8080/tcp\n"},
      {service(2, "exactly8", 999, "udp", longer), 0, "exactly8\t999/udp\t\tlongalias b\n"},
      {service(3, "seven77", 1000, "udp", longer, "c"), 0,
       "seven77\t\t1000/udp\tlongalias b\t# c\n"},
      {service(3, "ftp", 21, "tcp", none, " old"), 0, "ftp\t\t21/tcp\t\t\t\t#  old\n"},
      {service(3, "web", 8080, "tcp", nullptr, "c"), 0, "web\t\t8080/tcp\t\t\t# c\n"},
      {service(1, nullptr, 0, nullptr, nullptr, "x"), 0, "\t\t\t\t# x\n"},
      {service(1, nullptr, 0, nullptr), 0, "\n"},
      {service(3, "ftp", 21, "tcp"), 0, "ftp\t\t21/tcp\n"},
      {service(2, nullptr, 21, "tcp"), GENREG_RC_SERVICES_PACK_NO_NAME, "old"},
      {service(2, "ftp", 0, "tcp"), GENREG_RC_SERVICES_PACK_NO_PORT, "old"},
      {service(2, "ftp", 21, nullptr), GENREG_RC_SERVICES_PACK_NO_PROTOCOL, "old"},
      {service(2, "f\np", 21, "tcp"), GENREG_RC_BAD_ARGUMENT, "old"},
      {service(2, longName.c_str(), 21, "tcp", longer), OSS_RC_BUFFER_TOO_SMALL, "old"},
  };
  Services services(registry());
  for (const auto& row : cases) {
    ServiceEntryRecord record = row.record;
    char text[GENREG_LINE_SIZE] = "old";
    EXPECT_EQ(services.PackRecord.text(&record, text), row.code);
    EXPECT_EQ(text, row.written);
  }
}

TEST_F(TextFlavoursTest, KeysAreCheckedAndMatchedByTheFieldsTheMaskSelects) {
  const struct {
    std::uint64_t mask;
    ServiceEntryRecord key;
    Code refused;
    unsigned int port;  // of the record found; 0: none
  } cases[] = {
      {1, service(2, "b", 0, nullptr), 0, 2},
      {2, service(2, nullptr, 3, nullptr), 0, 3},
      {4, service(2, nullptr, 0, "udp"), 0, 3},
      {7, service(2, "b", 3, "udp"), 0, 3},
      {7, service(2, "B", 3, "udp"), 0, 0},
      {1, service(2, nullptr, 0, nullptr), GENREG_RC_SERVICES_NO_NAME, 0},
      {2, service(2, "b", 0, nullptr), GENREG_RC_SERVICES_NO_PORT_KEY, 0},
      {4, service(2, "b", 0, nullptr), GENREG_RC_SERVICES_NO_PROTOCOL_KEY, 0},
      {1, ServiceEntryRecord{}, GENREG_RC_KEY_EMPTY, 0},
  };
  writeFile(registry(), "# c\na 1/tcp\nb 2/tcp\nb 3/udp\n");
  Services file(registry());
  for (const auto& row : cases) {
    ServiceEntryRecord wanted = row.key;
    ServiceEntryRecord record;
    EXPECT_EQ(file.ValidateKey(row.mask, &wanted), row.refused);
    const Code code = file.Get(row.mask, &wanted, &record);
    EXPECT_EQ(code, row.refused != 0 ? rejected : row.port == 0 ? notFound : 0u);
    EXPECT_TRUE(code != 0 || record.port == inNetworkOrder(row.port));
  }
  // A comment line is addressed by its text, whatever the mask.
  ServiceEntryRecord comment = service(1, nullptr, 0, nullptr, nullptr, " c");
  EXPECT_EQ(file.Delete(0, &comment), 0u);
  EXPECT_EQ(readFile(registry()), "a 1/tcp\nb 2/tcp\nb 3/udp\n");

  VarVal variables(path("v"));
  VarValRecord empty{};
  VarValRecord unfilled = assignment(nullptr, nullptr);
  EXPECT_EQ(variables.ValidateKey(1, nullptr), GENREG_RC_NO_ARGUMENT);
  EXPECT_EQ(variables.ValidateKey(0, &empty), GENREG_RC_KEY_EMPTY);
  EXPECT_EQ(variables.ValidateKey(1, &unfilled), GENREG_RC_VARVAL_NO_VARIABLE);
  EXPECT_EQ(variables.ValidateKey(2, &unfilled), GENREG_RC_VARVAL_NO_VALUE);
  EXPECT_EQ(variables.ValidateKey(4, &unfilled), 0u);
}

TEST_F(TextFlavoursTest, AServicesRecordIsZeroWhereTheLineStoredNothing) {
  char line[] = "svc 7/tcp alias # x\n";
  const std::size_t texts = sizeof "svc" + sizeof "tcp" + sizeof "alias" + sizeof " x";
  writeFile(registry(), std::string("# c\n") + line);
  Services file(registry());
  ServiceEntryRecord key = service(2, "svc", 0, nullptr);
  ASSERT_EQ(file.setFeature(GENREG_GET_IN_SCAN), 0u);
  ASSERT_EQ(file.OpenScan(), 0u);
  static GenRegUnpackHook own;
  own = file.UnpackRecord;
  // By the flavour itself, by a hook that it does not know, and by the hook alone.
  for (const int way : {0, 1, 2, 3, 4}) {
    ServiceEntryRecord record;
    std::memset(static_cast<void*>(&record), 0xAA, sizeof record);
    if (way > 1) file.UnpackRecord = [](void* r, char* text) { return own.text(r, text); };
    EXPECT_EQ(file.Rewind(), 0u);
    EXPECT_EQ(way == 4       ? own.text(&record, line)
              : way % 2 == 0 ? file.Get(SERVICES_NAME, &key, &record)
                             : file.GetNext(SERVICES_NAME, &key, &record),
              0u);
    EXPECT_STREQ(record.name, "svc");
    EXPECT_EQ(static_cast<std::size_t>(std::count(record.text, std::end(record.text), '\0')),
              sizeof record.text - texts + 4);
    EXPECT_EQ(std::count(record.aliasList, std::end(record.aliasList), nullptr),
              SERVICES_ALIAS_SLOTS - 1);
  }
  EXPECT_EQ(file.CloseScan(), 0u);
}

TEST_F(TextFlavoursTest, GettersWorkForAClassOfLargerRecordsAndValuesThatFitALine) {
  struct LargeRecord : VarValRecord {
    char value[3 * GENREG_LINE_SIZE];
  };
  VarVal file(registry());
  static GenRegUnpackHook own;
  own = file.UnpackRecord;
  file.GetRecordSize = [](std::uint64_t* size) -> Code { return *size = sizeof(LargeRecord), 0; };
  file.UnpackRecord = [](void* memory, char* line) {
    auto& record = *static_cast<LargeRecord*>(memory);
    const Code code = own.text(&record, line);
    const std::size_t length = std::strtoul(record.Value, nullptr, 10);
    std::memset(record.value, 'v', length);
    record.value[length] = '\0';
    record.Value = record.value;
    return code;
  };
  const char* value = nullptr;
  for (const std::size_t length : {10u, 2047u, 2048u, 6000u}) {
    writeFile(registry(), "a = " + std::to_string(length) + "\n");
    EXPECT_EQ(file.GetStringValue("a", &value), length < 2048);
    EXPECT_EQ(value, std::string(std::min<std::size_t>(length, 2047), 'v'));
  }
}

TEST_F(TextFlavoursTest, RecordsOfEveryKindArePrintedFieldByField) {
  BinVarValRecord binary = ::variable("name", -7, "text");
  VarValRecord variable{3, " c", "A", "1", {}};
  ServiceEntryRecord entry = service(2, "echo", 7, "udp");
  GlobalRegRecord value{};
  GlobalVariables::fill(value, {"name", 5});
  value.CheckSum = -1;
  GlobalRegRecord instance{};
  instance.RecordType = GLOBALREG_RECORD_INSTANCE;
  instance.FieldMask = 0x8000000000000005u;
  GlobalRegRecord services{};
  services.RecordType = GLOBALREG_RECORD_SERVICES;
  const GenRegPrintHook printGlobal = GlobalVariables::Handle(registry()).printHook();
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(GenRegBinVarVal::PrintRecord(&binary), 0u);
  EXPECT_EQ(GenRegVarVal::PrintRecord(&variable), 0u);
  EXPECT_EQ(GenRegServices::PrintRecord(&entry), 0u);
  for (GlobalRegRecord* each : {&value, &instance, &services}) EXPECT_EQ(printGlobal(each), 0u);
  EXPECT_EQ(
      ::testing::internal::GetCapturedStdout(),
      "   Variable = |name|\n   Value    = -7\n   Comment  = |text|\n"
      "Record Dump:\n   Variable = |A|\n   Value    = |1|\n   Contains = 3\n"
      "   Comment  = | c|\n"
      "   name     = |echo|\n   port     = 7\n   protocol = |udp|\n   comment  = NULL\n"
      "   RecordType   = 4\n   FieldMask    = 7\n   MissingFieldMask = 0\n"
      "   VariableRecord:\n      Service  = |zor|\n      Variable = |name|\n      Value    = |5|\n"
      "      Comment  = ||\n      CheckSum    = -1\n"
      "   RecordType   = 1\n   FieldMask    = -9223372036854775803\n   MissingFieldMask = 0\n"
      "   InstanceRecord:\n      Service      = ||\n      VersionCode  = 0\n"
      "      InstanceName = ||\n      InstancePath = ||\n      Usage        = ||\n"
      "      StartAtBoot  = 0\n      Maintenance  = 0\n      Comment      = ||\n"
      "      CheckSum    = 0\n"
      "   RecordType   = 2\n   FieldMask    = 0\n   MissingFieldMask = 0\n"
      "Services record not yet implemented\n");
  EXPECT_EQ(GenRegBinVarVal::PrintRecord(nullptr), GENREG_RC_NO_ARGUMENT);
}

}  // namespace
