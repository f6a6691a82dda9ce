// Registry exports: what each form of a line means, what makes an export worthless, and how that is
// told.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <regex>

#include "support/machine_fixture.h"

namespace {

// What the log says of exports that cannot be read, while it lives: path, line and reason.
class ExportLog {
 public:
  ExportLog() {
    ossSetDiagnosticCallback(
        [](const OSSDiagnosticRecord& record, void* context) {
          if (record.probe != 0x081A0100 || record.valueCount != 3) return;
          auto& log = *static_cast<ExportLog*>(context);
          const auto text = [&](unsigned int index) {
            return std::string(static_cast<const char*>(record.values[index].address),
                               record.values[index].length);
          };
          log.path = text(0);
          log.line = *static_cast<const std::int32_t*>(record.values[1].address);
          log.reason = text(2);
          ++log.records;
        },
        this);
  }
  ~ExportLog() { ossSetDiagnosticCallback(nullptr, nullptr); }

  std::string path;
  std::int32_t line = 0;
  std::string reason;
  unsigned int records = 0;
};

class RegistryExport : public MachineTest {
 protected:
  void SetUp() override {
    MachineTest::SetUp();
    SKIP_WITHOUT(Need::RegistryExports);
  }

  // The installation path of the copy "A", or the code why there is none.
  static std::string pathOfA() {
    OSSServiceInfo_t record;
    const unsigned int code = ossGetServiceInfo("ZOR", 0, nullptr, "A", &record);
    return code == 0 ? record.installPath : codeText(code);
  }
};

const std::string firstLine = "Windows Registry Editor Version 5.00\n";
const std::string keyOfA = productKey("\\INSTALLEDCOPIES\\A");

std::string utf16(const std::string& ascii) {
  std::string bytes = "\xFF\xFE";
  for (const char character : ascii) (bytes += character) += '\0';
  return bytes;
}

std::string withCarriageReturns(const std::string& text) {
  return std::regex_replace(text, std::regex("\n"), "\r\n");
}

TEST_F(RegistryExport, EveryFormOfAValueIsRead) {
  const std::string missing = "0x90000267";
  const std::string name = "\"ZOR Path Name\"";
  const std::string otherSpelling =
      "[hkey_local_machine\\\\SOFTWARE\\NUV\\ZOR\\INSTALLEDCOPIES\\a\\]\n";
  const struct {
    std::string lines;  // below the key of the copy
    std::string path;
  } cases[] = {
      {name + "=\"C:\\\\a \\\"b\\\" c\"", "C:\\a \"b\" c"},
      {name + "=\"two\nlines\"", "two\nlines"},
      {" " + name + " = \"x\" ; why", "x"},
      {"\"zor PATH name\"=\"x\"", "x"},
      {name + "=\"x\"\n" + name + "=\"y\"", "y"},
      {name + "=\"x\"\n" + name + "=-", missing},
      {name + "=-\n" + name + "=\"x\"", "x"},
      {name + "=hex(1):78,00,e4,00,00,00", "x\xC3\xA4"},
      {name + "=hex(1):78,00,79,00", "xy"},
      {name + "=hex(2):78,00,\\\n  79,00,\\\n\t00,00", "xy"},
      {name + "=hex(7):78,00,00,00,79,00,00,00,00,00", "x"},
      {name + "=hex(1):00,d8,78", "\xEF\xBF\xBD\xEF\xBF\xBD"},
      {name + "=hex(1):", ""},
      {name + "=hex:78,00", missing},
      {name + "=hex(b):78,00,00,00,00,00,00,00", missing},
      {name + "=dword:78", missing},
      {name + "=\"x\"\n@=\"y\"", "x"},
      {name + "=\"x\"\n[-HKEY_LOCAL_MACHINE\\software\\nuv\\zor\\installedcopies\\a]", missing},
      {"[-HKEY_LOCAL_MACHINE\\SOFTWARE\\NUV]\n" + keyOfA + name + "=\"x\"\n" + versionKey("A", "9"),
       "x"},
      {"[-HKEY_LOCAL_MACHINE\\NONE\\NONE]\n" + keyOfA + name + "=\"x\"", "x"},
      {"[HKEY_CURRENT_USER\\A]]\n" + otherSpelling + name + "=\"x\"", "x"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.lines);
    const ExportLog log;
    const std::string text = firstLine + versionKey("A", "9") + keyOfA + row.lines;
    for (const std::string& bytes :
         {text, "\xEF\xBB\xBF" + text + "\n", withCarriageReturns(text), utf16(text + "\n")}) {
      machineBytes(bytes);
      std::string path = pathOfA();
      path.erase(std::remove(path.begin(), path.end(), '\r'), path.end());
      EXPECT_EQ(path, row.path);
    }
    EXPECT_EQ(log.records, 0u) << log.line << ": " << log.reason;
  }
}

TEST_F(RegistryExport, AMalformedOneIsToldWithItsLineAndReasonAndIsEmpty) {
  // A whole machine stands before the fault, in lines 2 to 8, and none of it may be seen.
  const std::string start = firstLine + copyKeys("A");
  const std::string value = start + "\"a\"=";
  const char* const version = "not a registry export of version 5.00";
  const char* const encoding = "neither UTF-8 nor UTF-16LE";
  const char* const noKey = "a value that belongs to no key";
  const char* const root = "an unknown root key";
  const char* const quote = "a text without its closing quote";
  const char* const escape = "escapes neither a backslash nor a quote";
  const char* const digits = "a byte that is not two hexadecimal digits";
  const char* const backslash = "a backslash that is not at the end of a line";
  const struct {
    std::string bytes;
    std::int32_t line;
    const char* reason;
  } cases[] = {
      {"", 1, version},
      {"REGEDIT4\n" + copyKeys("A"), 1, version},
      {utf16(start).substr(2), 1, "a NUL character"},
      {firstLine + "\n;\n\"a\"=\"b\"\n", 4, noKey},
      {start + "[-HKEY_LOCAL_MACHINE\\A]\n@=\"b\"\n", 10, noKey},
      {start + "x\n", 9, "neither a key, a value nor a comment"},
      {start + "[-HKEY_LOCAL_MACHINE]\n", 9, "a root key cannot be deleted"},
      {start + "[HKEY_LOCAL_MACHINE\\A\n", 9, "a key without its closing bracket"},
      {start + "[HKEY_NONE\\A]\n", 9, root},
      {start + "[]\n", 9, root},
      {start + "[HKEY_LOCAL_MACHINE\\" + std::string(256, 'n') + "]\n", 9, "255 characters"},
      {start + "\"a\n\n", 9, quote},
      {start + "\"a\" \"b\"", 9, "a value without its equals sign"},
      {value + "\"b\n", 9, quote},
      {value + "\"b\\", 9, escape},
      {value + "\"b\\n\"", 9, escape},
      {value + "\"two\nlines\"\nx", 11, "neither a key, a value nor a comment"},
      {value + "b", 9, "a value of unknown form"},
      {value, 9, "a value of unknown form"},
      {value + "\"b\" c", 9, "text after a value"},
      {value + "dword:", 9, "a dword without its one to eight digits"},
      {value + "dword:123456789", 9, "text after a value"},
      {value + "hex(x):00", 9, "a value of unknown type"},
      {value + "hex:0", 9, digits},
      {value + "hex:00,\\\n", 10, digits},
      {value + "hex:00,\\ x", 9, backslash},
      {value + "hex:00,\\", 9, backslash},
      {value + "\"\xC3\"\n", 9, encoding},
      {value + "\"\xC0\x80\"", 9, encoding},
      {value + "\"\xED\xA0\x80\"", 9, encoding},
      {utf16(start) + "x", 9, encoding},
      {utf16(start) + std::string("\x00\xD8\x41\x00", 4), 9, encoding},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.bytes);
    machineBytes(row.bytes);
    const ExportLog log;
    EXPECT_EQ(copies(), "0x90000263");
    EXPECT_EQ(log.records, 1u);
    EXPECT_EQ(log.path, path("machine.reg"));
    EXPECT_EQ(log.line, row.line);
    EXPECT_NE(log.reason.find(row.reason), std::string::npos) << log.reason;
  }
}

TEST_F(RegistryExport, AFileThatCannotBeReadIsToldAndIsEmpty) {
  const auto reasonOf = [this](const std::string& file) {
    machineOf(file);
    const ExportLog log;
    EXPECT_EQ(copies(), "0x90000263");
    return log.reason;
  };
  EXPECT_EQ(reasonOf(path("none.reg")), "the file does not exist");
  EXPECT_NE(reasonOf(directory_), "");
  EXPECT_NE(reasonOf(path(std::string(300, 'n'))), "");
  EXPECT_EQ(reasonOf(""), "");
  machine(copyKeys("A"));
  const FaultPlan plan(1, EIO, false, "read");
  EXPECT_NE(reasonOf(path("machine.reg")), "");
}

TEST_F(RegistryExport, IsReadOncePerOpenListAndThenKeepsWhatItSaid) {
  remoteMachine("OTHER", productKey("\\INSTALLEDCOPIES\\A\\I", "\"ZORINSTPROF\"=\"R:\"\n") +
                             productKey("\\INSTALLEDCOPIES\\A\\J", "\"ZORINSTPROF\"=\"R:\"\n"));
  const std::string remote = "\"ZORREMOTEPREG\"=\"OTHER\"\n";
  machine(copyKeys("A") + instanceKey("A", "I", remote) + instanceKey("A", "J", remote));
  const FaultPlan opened(0, 0, false, "open");
  void* list = nullptr;
  ASSERT_EQ(ossOpenInstanceList("ZOR", &list), 0u);
  machine("");
  OSSInstanceInfo_t record;
  EXPECT_EQ(ossGetNextInstance(list, &record), 0u);
  EXPECT_EQ(ossGetNextInstance(list, &record), 0u);
  EXPECT_EQ(ossGetNextInstance(list, &record), GENREG_RC_END);
  EXPECT_EQ(ossCloseInstanceList(list), 0u);
  EXPECT_EQ(opened.calls(), 2u);
}

TEST_F(RegistryExport, NamesStandInTheOrderOfTheirCapitals) {
  machine(copyKeys("b") + copyKeys("_") + copyKeys("A"));
  EXPECT_EQ(copies(), "ZOR A;ZOR b;ZOR _;end;");
}

// A time that grows with the square of the keys would be noticed: the test would not end.
TEST_F(RegistryExport, AHundredThousandCopiesAreListedInOrder) {
  constexpr unsigned int count = 100'000;
  std::string lines;
  for (unsigned int i = count; i > 0; --i)
    lines += productKey("\\INSTALLEDCOPIES\\C" + std::to_string(i));
  lines += copyKeys("A") + productKey("", "\"ZOR Path Name\"=\"C:\\\\D\"\n");
  machine(lines);
  EXPECT_EQ(copies(1), "ZOR A;0x90000265;");
  OSSServiceInfo_t record;
  EXPECT_EQ(ossGetServiceInfo("ZEM", 0, nullptr, &record), GENREG_RC_SERVICE_INFO);
  EXPECT_STREQ(record.copyName, "C1");
}

}  // namespace
