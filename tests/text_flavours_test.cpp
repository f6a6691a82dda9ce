// Profile variable lines and services lines: what is read from a line, what is written for a
// record.
#include <arpa/inet.h>

#include <cmath>

#include "support/registry_fixture.h"

namespace {

using Code = unsigned int;
using VarVal = Exposed<GenRegVarVal>;
using Services = Exposed<GenRegServices>;

class TextFlavoursTest : public RegistryTest {};

std::string shown(const char* text) { return text == nullptr ? "(null)" : text; }

TEST_F(TextFlavoursTest, AVariableLineIsSplitIntoNameValueAndComment) {
  const struct {
    std::string line;
    Code code;
    unsigned int contains;
    const char* variable;
    const char* value;
    const char* comment;
  } cases[] = {
      {"DB_HOME = /opt/x # where\n", 0, 3, "DB_HOME", "/opt/x", " where"},
      {"A=b c   d\n", 0, 2, "A", "b c d", nullptr},
      {"MSG = \"a  b\" tail\n", 0, 2, "MSG", "\"a  b\"", nullptr},
      {"X = a=b\n", 0, 2, "X", "a=b", nullptr},
      {"   # note\n", 0, 1, nullptr, nullptr, " note"},
      {"# a # b\n", 0, 1, nullptr, nullptr, " a # b"},
      {"\n", 0, 0, nullptr, nullptr, nullptr},
      {"\t \n", 0, 0, nullptr, nullptr, nullptr},
      {"A =\n", 0, 2, "A", "", nullptr},
      {"= 1\n", 0, 2, "", "1", nullptr},
      {"MY  VAR\t= 1\n", 0, 2, "MY VAR", "1", nullptr},
      {"A = \"x # y\"\n", GENREG_RC_VARVAL_OPEN_QUOTE, 1, nullptr, nullptr, " y\""},
      {"A = \"x\n", GENREG_RC_VARVAL_OPEN_QUOTE, 0, nullptr, nullptr, nullptr},
      {"word\n", GENREG_RC_VARVAL_NO_EQUALS, 0, nullptr, nullptr, nullptr},
      {"A = 1 # \x01\x7f\xff\tz\n", 0, 3, "A", "1", " ...\tz"},
      {"A = \xC3\xA4", 0, 2, "A", "\xC3\xA4", nullptr},
  };
  VarVal file(registry());
  for (const auto& row : cases) {
    SCOPED_TRACE(row.line);
    VarValRecord record;
    std::string line = row.line;
    EXPECT_EQ(file.UnpackRecord.text(&record, line.data()), row.code);
    EXPECT_EQ(record.Contains, row.contains);
    EXPECT_EQ(shown(record.Variable), shown(row.variable));
    EXPECT_EQ(shown(record.Value), shown(row.value));
    EXPECT_EQ(shown(record.Comment), shown(row.comment));
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
      {{2, nullptr, "A", "1", {}}, false, "", 0, "A = 1\n"},
      {{2, nullptr, "A", "1", {}}, true, "", 0, "A=1\n"},
      {{3, "x", "A", "1", {}}, false, "", 0, "A = 1 # x\n"},
      {{3, "x", "A", "1", {}}, true, "", 0, "A=1 # x\n"},
      {{2, nullptr, "A", "2", {}}, false, "    A\t=  1   # old\n", 0, "    A\t=  2\n"},
      {{2, nullptr, "NEW", "2", {}}, true, "A=1\n", 0, "NEW=2\n"},
      {{2, nullptr, "A", "2", {}},
       false,
       "MY VAR = 1\n",
       GENREG_RC_VARVAL_NO_EQUALS,
       "MY VAR = 1\n"},
      {{1, "x", nullptr, nullptr, {}}, false, "", 0, "# x\n"},
      {{0, nullptr, nullptr, nullptr, {}}, false, "", 0, "\n"},
      {{2, nullptr, "A", nullptr, {}}, false, "", GENREG_RC_VARVAL_NO_VALUE, ""},
      {{2, nullptr, nullptr, "1", {}}, false, "", GENREG_RC_VARVAL_NO_VARIABLE, ""},
      {{2, nullptr, "A", "1\n", {}}, false, "", GENREG_RC_BAD_ARGUMENT, ""},
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

TEST_F(TextFlavoursTest, GettersConvertWholeValuesOnly) {
  writeFile(registry(),
            "n = 42\nbig = 18446744073709551616\nneg = -7\nquoted = \"42\"\nrest = 42x\nempty =\n"
            "d = 1.5e3\nhuge = 1e999\nyes = True\nno = off\nn = 43\nopen = \"x\n");
  VarVal file(registry());
  const struct {
    const char* name;
    bool isUint, isSint, isDouble, isBool;
    double number;
  } cases[] = {
      {"n", true, true, true, false, 42},
      {"big", false, false, true, false, 18446744073709551616.0},
      {"neg", false, true, true, false, -7},
      {"quoted", false, false, false, false, 0},
      {"rest", false, false, false, false, 0},
      {"empty", false, false, false, false, 0},
      {"d", false, false, true, false, 1500},
      {"huge", false, false, false, false, 0},
      {"yes", false, false, false, true, 1},
      {"no", false, false, false, true, 0},
      {"open", false, false, false, false, 0},
      {"absent", false, false, false, false, 0},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    std::uint64_t u = 99;
    std::int64_t s = 99;
    double d = 99;
    bool b = row.number == 0;
    EXPECT_EQ(file.GetUintValue(row.name, &u), row.isUint);
    EXPECT_EQ(u, row.isUint ? static_cast<std::uint64_t>(row.number) : 99u);
    EXPECT_EQ(file.GetSintValue(row.name, &s), row.isSint);
    EXPECT_EQ(s, row.isSint ? static_cast<std::int64_t>(row.number) : 99);
    EXPECT_EQ(file.GetDoubleValue(row.name, &d), row.isDouble);
    EXPECT_EQ(d, row.isDouble ? row.number : 99);
    EXPECT_EQ(file.GetBooleanValue(row.name, &b), row.isBool);
    EXPECT_TRUE(!row.isBool || b == (row.number == 1));
  }
  const char* text = "untouched";
  EXPECT_FALSE(file.GetStringValue("absent", &text));
  EXPECT_FALSE(file.GetStringValue(nullptr, &text));
  EXPECT_STREQ(text, "untouched");
  EXPECT_TRUE(file.GetStringValue("quoted", &text));
  VarValRecord key{};
  key.Contains = VARVAL_HAS_VARIABLE;
  key.Variable = "n";
  VarValRecord record;
  EXPECT_EQ(file.Get(VARVAL_VARIABLE, &key, &record), 0u);
  EXPECT_EQ(file.Delete(VARVAL_VARIABLE, &key), 0u);
  EXPECT_STREQ(text, "\"42\"") << "the text outlives other operations";
}

TEST_F(TextFlavoursTest, AServicesLineIsSplitIntoItsFields) {
  std::string manyAliases = "svc 1/tcp";
  std::string tooMany;
  for (int i = 0; i < 127; ++i) manyAliases += " a";
  tooMany = manyAliases + " b\n";
  const struct {
    std::string line;
    Code code;
    unsigned int contains;
    const char* name;
    unsigned int port;
    const char* protocol;
    const char* alias;  // the first
    std::size_t aliases;
    const char* comment;
  } cases[] = {
      {"ftp\t21/tcp\t\tfile # transfer\n", 0, 3, "ftp", 21, "tcp", "file", 1, " transfer"},
      {"echo 7/udp\n", 0, 2, "echo", 7, "udp", nullptr, 0, nullptr},
      {"  x  5/tcp a  b\tc", 0, 2, "x", 5, "tcp", "a", 3, nullptr},
      {"x 5/icmp y\n", 0, 6, "x", 5, "icmp", nullptr, 0, nullptr},
      {"x 5/TCP\n", 0, 6, "x", 5, "TCP", nullptr, 0, nullptr},
      {"x 5\n", 0, 6, "x", 0, nullptr, nullptr, 0, nullptr},
      {"lonely\n", GENREG_RC_SERVICES_NO_PORT, 2, "lonely", 0, nullptr, nullptr, 0, nullptr},
      {"\n", 0, 1, nullptr, 0, nullptr, nullptr, 0, nullptr},
      {"  \n", 0, 0, nullptr, 0, nullptr, nullptr, 0, nullptr},
      {"#\n", 0, 1, nullptr, 0, nullptr, nullptr, 0, ""},
      {"svc 99999/tcp\n", 0, 2, "svc", 34463, "tcp", nullptr, 0, nullptr},
      {"svc 99999999999999999999/tcp\n", 0, 2, "svc", 65535, "tcp", nullptr, 0, nullptr},
      {"svc x/ddp\n", 0, 2, "svc", 0, "ddp", nullptr, 0, nullptr},
      {manyAliases + "\n", 0, 2, "svc", 1, "tcp", "a", 127, nullptr},
      {tooMany, OSS_RC_BUFFER_TOO_SMALL, 2, "svc", 1, "tcp", "a", 127, nullptr},
  };
  Services file(registry());
  for (const auto& row : cases) {
    SCOPED_TRACE(row.line);
    ServiceEntryRecord record;
    std::string line = row.line;
    EXPECT_EQ(file.UnpackRecord.text(&record, line.data()), row.code);
    EXPECT_EQ(record.Contains, row.contains);
    EXPECT_EQ(shown(record.name), shown(row.name));
    EXPECT_EQ(ntohs(record.port), row.port);
    EXPECT_EQ(shown(record.protocol), shown(row.protocol));
    EXPECT_EQ(shown(record.comment), shown(row.comment));
    std::size_t count = 0;
    while (record.aliases != nullptr && record.aliases[count] != nullptr) ++count;
    EXPECT_EQ(count, row.aliases);
    EXPECT_EQ(shown(count == 0 ? nullptr : record.aliases[0]), shown(row.alias));
  }
}

TEST_F(TextFlavoursTest, AServicesLineIsWrittenInItsOwnLayout) {
  const char* none[] = {nullptr};
  const char* file[] = {"file", nullptr};
  const char* longer[] = {"longalias", "b", nullptr};
  const std::string longName(2030, 'n');
  const struct {
    std::uint8_t contains;
    const char* name;
    unsigned int port;
    const char* protocol;
    const char** aliases;
    const char* comment;
    Code code;
    std::string written;
  } cases[] = {
      {3, "ftp", 21, "tcp", file, "transfer", 0, "ftp\t\t21/tcp\t\tfile\t\t# transfer\n"},
      {2, "web", 8080, "tcp", nullptr, nullptr, 0, "web\t\t8080/tcp\n"},
      {2, "exactly8", 999, "udp", longer, nullptr, 0, "exactly8\t999/udp\t\tlongalias b\n"},
      {3, "seven77", 1000, "udp", longer, "c", 0, "seven77\t\t1000/udp\tlongalias b\t# c\n"},
      {3, "ftp", 21, "tcp", none, " old", 0, "ftp\t\t21/tcp\t\t\t\t#  old\n"},
      {3, "web", 8080, "tcp", nullptr, "c", 0, "web\t\t8080/tcp\t\t\t# c\n"},
      {1, nullptr, 0, nullptr, nullptr, "x", 0, "\t\t\t\t# x\n"},
      {1, nullptr, 0, nullptr, nullptr, nullptr, 0, "\n"},
      {3, "ftp", 21, "tcp", nullptr, nullptr, 0, "ftp\t\t21/tcp\n"},
      {2, nullptr, 21, "tcp", nullptr, nullptr, GENREG_RC_SERVICES_PACK_NO_NAME, "old"},
      {2, "ftp", 0, "tcp", nullptr, nullptr, GENREG_RC_SERVICES_PACK_NO_PORT, "old"},
      {2, "ftp", 21, nullptr, nullptr, nullptr, GENREG_RC_SERVICES_PACK_NO_PROTOCOL, "old"},
      {2, "f\np", 21, "tcp", nullptr, nullptr, GENREG_RC_BAD_ARGUMENT, "old"},
      {2, longName.c_str(), 21, "tcp", longer, nullptr, OSS_RC_BUFFER_TOO_SMALL, "old"},
  };
  Services services(registry());
  for (const auto& row : cases) {
    ServiceEntryRecord record{};
    record.Contains = row.contains;
    record.name = row.name;
    record.port = htons(static_cast<std::uint16_t>(row.port));
    record.protocol = row.protocol;
    record.aliases = row.aliases;
    record.comment = row.comment;
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
      {1, {2, nullptr, "b", nullptr, nullptr, 0, {}, {}}, 0, 2},
      {2, {2, nullptr, nullptr, nullptr, nullptr, htons(3), {}, {}}, 0, 3},
      {4, {2, nullptr, nullptr, nullptr, "udp", 0, {}, {}}, 0, 3},
      {7, {2, nullptr, "b", nullptr, "udp", htons(3), {}, {}}, 0, 3},
      {7, {2, nullptr, "B", nullptr, "udp", htons(3), {}, {}}, 0, 0},
      {1, {2, nullptr, nullptr, nullptr, nullptr, 0, {}, {}}, GENREG_RC_SERVICES_NO_NAME, 0},
      {2, {2, nullptr, "b", nullptr, nullptr, 0, {}, {}}, GENREG_RC_SERVICES_NO_PORT_KEY, 0},
      {4, {2, nullptr, "b", nullptr, nullptr, 0, {}, {}}, GENREG_RC_SERVICES_NO_PROTOCOL_KEY, 0},
      {1, {0, nullptr, "b", nullptr, nullptr, 0, {}, {}}, GENREG_RC_KEY_EMPTY, 0},
  };
  writeFile(registry(), "# c\na 1/tcp\nb 2/tcp\nb 3/udp\n");
  Services file(registry());
  for (const auto& row : cases) {
    ServiceEntryRecord key = row.key;
    ServiceEntryRecord record;
    EXPECT_EQ(file.ValidateKey(row.mask, &key), row.refused);
    const Code code = file.Get(row.mask, &key, &record);
    EXPECT_EQ(code, row.refused != 0 ? GENREG_RC_KEY_REJECTED
                    : row.port == 0  ? GENREG_RC_NOT_FOUND
                                     : 0u);
    EXPECT_TRUE(code != 0 || ntohs(record.port) == row.port);
  }
  // A comment line is addressed by its text, whatever the mask.
  ServiceEntryRecord comment{SERVICES_HAS_COMMENT, " c", nullptr, nullptr, nullptr, 0, {}, {}};
  EXPECT_EQ(file.Delete(0, &comment), 0u);
  EXPECT_EQ(readFile(registry()), "a 1/tcp\nb 2/tcp\nb 3/udp\n");
  ServiceEntryRecord added{2, nullptr, "b", nullptr, "udp", htons(3), {}, {}};
  EXPECT_EQ(file.Add(7, &added), GENREG_RC_DUPLICATE);
  added.port = htons(4);
  EXPECT_EQ(file.Add(7, &added), 0u);
  EXPECT_EQ(readFile(registry()), "a 1/tcp\nb 2/tcp\nb 3/udp\nb\t\t4/udp\n");

  VarVal variables(path("v"));
  VarValRecord key{};
  EXPECT_EQ(variables.ValidateKey(1, nullptr), GENREG_RC_NO_ARGUMENT);
  EXPECT_EQ(variables.ValidateKey(0, &key), GENREG_RC_KEY_EMPTY);
  key.Contains = VARVAL_HAS_VARIABLE;
  EXPECT_EQ(variables.ValidateKey(1, &key), GENREG_RC_VARVAL_NO_VARIABLE);
  EXPECT_EQ(variables.ValidateKey(2, &key), GENREG_RC_VARVAL_NO_VALUE);
  EXPECT_EQ(variables.ValidateKey(4, &key), 0u);
}

TEST_F(TextFlavoursTest, RecordsArePrintedFieldByField) {
  VarValRecord variable{3, " c", "A", "1", {}};
  VarValRecord comment{1, " c", nullptr, nullptr, {}};
  ServiceEntryRecord service{2, nullptr, "echo", nullptr, "udp", htons(7), {}, {}};
  ServiceEntryRecord blank{};
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(GenRegVarVal::PrintRecord(&variable), 0u);
  EXPECT_EQ(GenRegVarVal::PrintRecord(&comment), 0u);
  EXPECT_EQ(GenRegServices::PrintRecord(&service), 0u);
  EXPECT_EQ(GenRegServices::PrintRecord(&blank), 0u);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Record Dump:\n   Variable = |A|\n   Value    = |1|\n   Contains = 3\n"
            "   Comment  = | c|\n"
            "Record Dump:\n   Contains = 1\n   Comment  = | c|\n"
            "   name     = |echo|\n   port     = 7\n   protocol = |udp|\n   comment  = NULL\n"
            "   name     = NULL\n   port     = 0\n   protocol = NULL\n   comment  = NULL\n");
}

}  // namespace
