// zorreg export-file, and what the tool says of words that it does not know.
#include "support/tool.h"

namespace {

class ExportTool : public RegistryTest {};

const std::string start = "Windows Registry Editor Version 5.00\r\n\r\n";
const std::string lines =
    "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Maker\\Tool]\r\n"
    "@=\"the default\"\r\n\"Text\"=\"C:\\\\b \\\"q\\\"\"\r\n\"Number\"=dword:0000001e\r\n"
    "\"Long\"=hex(b):00,00,00,00,01,00,00,00\r\n\"Short\"=hex(4):01,02\r\n"
    "\"List\"=hex(7):61,00,00,00,62,00,63,00,00,00,00,00\r\n\"Bytes\"=hex:00,1f,\\\r\n  ff\r\n"
    "\"Path\"=hex(2):25,00,41,00,25,00,00,00\r\n\"Bell\"=\"a\ab\\nc\"\r\n\"Taken\"=\"x\"\r\n"
    "\"Taken\"=-\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Maker\\a/b]\r\n\"x\"=\"slash\"\r\n"
    "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Gone]\r\n\"Gone\"=\"maker\"\r\n"
    "[-HKEY_LOCAL_MACHINE\\SOFTWARE\\Gone]\r\n[HKEY_USERS\\S-1]\r\n\"tool\"=\"x\"\r\n";

std::string inUtf16(const std::string& ascii) {
  std::string bytes = "\xFF\xFE";
  for (const char character : ascii) (bytes += character) += '\0';
  return bytes;
}

TEST_F(ExportTool, FindsKeysAndValuesOfAnExportInEachEncoding) {
  const std::string file = "export-file " + path("machine.reg") + " ";
  const std::string tool = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Maker\\Tool";
  for (const std::string& bytes :
       {start + lines, "\xEF\xBB\xBF" + start + lines, inUtf16(start + lines)}) {
    writeFile(path("machine.reg"), bytes);
    expectSteps(
        file,
        {{"list", 0, "HKEY_LOCAL_MACHINE\nHKEY_USERS\n"},
         {"list hklm/software/MAKER", 0, "a/b\nTool\n"},
         {"list 'HKLM\\SOFTWARE' --json", 0,
          "[\n  {\n    \"name\": \"Maker\",\n"
          "    \"key\": \"HKEY_LOCAL_MACHINE\\\\SOFTWARE\\\\Maker\"\n  }\n]\n"},
         {"get '" + tool + "'", 0,
          "@       REG_SZ         the default\nBell    REG_SZ         a?b?c\n"
          "Bytes   REG_BINARY     hex:00,1f,ff\nList    REG_MULTI_SZ   a; bc\n"
          "Long    REG_QWORD      4294967296\nNumber  REG_DWORD      30\n"
          "Path    REG_EXPAND_SZ  %A%\nShort   REG_DWORD      hex(4):01,02\n"
          "Text    REG_SZ         C:\\b \"q\"\n"},
         {"get HKLM/SOFTWARE/Maker/Tool @", 0, "the default\n"},
         {"get HKLM/SOFTWARE/Maker/Tool NUMBER", 0, "30\n"},
         {"get HKLM/SOFTWARE/Maker/Tool List", 0, "a\nbc\n"},
         {"get HKLM/SOFTWARE/Maker/Tool Bell --json", 0,
          "{\n  \"name\": \"Bell\",\n  \"type\": \"REG_SZ\",\n  \"data\": \"a\\u0007b\\nc\"\n}\n"},
         {"get HKLM/SOFTWARE/Maker/Tool List --json", 0,
          "{\n  \"name\": \"List\",\n  \"type\": \"REG_MULTI_SZ\",\n"
          "  \"data\": [\n    \"a\",\n    \"bc\"\n  ]\n}\n"},
         {"get 'HKLM\\SOFTWARE\\Maker\\a/b' x", 0, "slash\n"},
         {"get HKLM/SOFTWARE/Maker/Tool Taken", 1, "", tool + " has no value Taken"},
         {"get HKLM/SOFTWARE/maker/none/x", 1, "",
          "HKEY_LOCAL_MACHINE\\SOFTWARE\\Maker is the deepest part that exists"},
         {"list HKLM/SOFTWARE/Gone", 1, "", "HKEY_LOCAL_MACHINE\\SOFTWARE is the deepest"},
         {"list HKCU", 1, "", "there is no key HKCU; the export has no such root key"},
         {"find TOOL", 0, tool + "\nHKEY_USERS\\S-1" + std::string(26, ' ') + "tool  REG_SZ  x\n"},
         {"find BC --json", 0,
          "[\n  {\n    \"key\": \"HKEY_LOCAL_MACHINE\\\\SOFTWARE\\\\Maker\\\\Tool\",\n"
          "    \"name\": \"List\",\n    \"type\": \"REG_MULTI_SZ\",\n"
          "    \"data\": [\n      \"a\",\n      \"bc\"\n    ]\n  }\n]\n"},
         {"find gone", 1, "", "nothing holds gone"},
         {"find ''", 2, "", "PATTERN"}});
  }
  writeFile(path("machine.reg"), start + "[HKEY_LOCAL_MACHINE\\A]\n\"x\"=dword:\n");
  expectSteps(file, {{"list", 3, "", "machine.reg, line 4: a dword without its one to eight"}});
  expectSteps("export-file " + path("none") + " ", {{"list", 1, "", "GENREG_RC_NO_FILE"}});
}

TEST_F(ExportTool, NamesTheNearestWordAndTakesJsonAnywhere) {
  const std::string file = registry();
  const std::string listed = "[\n  {\n    \"Variable\": \"A\",\n    \"Value\": 1\n  }\n]\n";
  expectSteps("", {{"bin " + file + " set A 1", 0},
                   {"--json bin " + file + " list", 0, listed},
                   {"bin --json " + file + " list", 0, listed},
                   {"bin " + file + " --json list", 0, listed},
                   {"bin " + file + " set A 1 --comment --json", 0},
                   {"--json bin " + file + " set A 1", 2, "", "'--json' is no option of bin set\n"},
                   {"bin list lsit", 2, "", "'lsit' is no verb of bin; did you mean list?"},
                   {"bin " + file + " rep", 2, "", "did you mean repair?"},
                   {"bin " + file + " xyzzy", 2, "", "'xyzzy' is no verb of bin\n"},
                   {"srvices", 2, "", "'srvices' is no command; did you mean services?"},
                   {"bin " + file + " list --jsno", 2, "",
                    "'--jsno' is no option of bin list; did you mean"},
                   {"bin " + file + " list --big-endian", 2, "", "; it stands before list"},
                   {"", 2, "", "usage: zorreg COMMAND ...\n  bin  "},
                   {"bin " + file, 2, "", "usage: zorreg bin FILE VERB ...\n  list  "},
                   {"help bin lst", 2, "", "'lst' is no verb of bin; did you mean list?"}});
  EXPECT_EQ(runTool("help bin set").output, runTool("bin " + file + " set --help").output);
  EXPECT_EQ(runTool("help").output, runTool("--help").output);
}

}  // namespace
