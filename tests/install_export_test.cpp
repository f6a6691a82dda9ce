// Registry exports: what each form of a line means, what makes an export worthless, how that is
// logged, and when a file is read again.
#include <algorithm>
#include <cerrno>
#include <clocale>
#include <filesystem>
#include <regex>
#include <thread>

#include "support/machine_fixture.h"

namespace {

const std::string firstLine = "Windows Registry Editor Version 5.00\n";
const std::string keyOfA = productKey("\\INSTALLEDCOPIES\\A");
const std::string missing = "none";

class RegistryExport : public MachineTest {
 protected:
  void SetUp() override {
    MachineTest::SetUp();
    SKIP_WITHOUT(Need::RegistryExports);
  }

  // The installation path of the copy "A".
  static std::string pathOfA() {
    OSSServiceInfo_t record;
    const Code code = ossGetServiceInfo("ZOR", 0, nullptr, "A", &record);
    return code == 0 ? record.installPath : missing;
  }

  // The machine's export must be refused on that line for that reason, and be empty.
  void expectRefusal(unsigned int line, const std::string& reason) const {
    const FailureLog log;
    EXPECT_EQ(copies(), "0x90000263");
    EXPECT_EQ(log.refusals, path("machine.reg") + "|" + std::to_string(line) + "|" + reason + ";");
  }

  // As if nobody had touched the machine's export for an hour, or for two.
  void makeOld(int hours = 1) const {
    namespace fs = std::filesystem;
    static const auto now = fs::file_time_type::clock::now();
    fs::last_write_time(path("machine.reg"), now - std::chrono::hours(hours));
  }
};

std::string utf16(const std::string& ascii) {
  std::string bytes = "\xFF\xFE";
  for (const char character : ascii) (bytes += character) += '\0';
  return bytes;
}

TEST_F(RegistryExport, EveryFormOfAValueIsRead) {
  const std::string name = "\"ZOR Path Name\"";
  const struct {
    std::string lines;  // below the key of the copy
    std::string path;
  } cases[] = {
      {name + "=\"C:\\\\a \\\"b\\\" c\"", "C:\\a \"b\" c"},
      {name + "=\"two\nlines\\r\\nmore\"", "two\nlines\nmore"},
      {" " + name + " = \"x\" ; why", "x"},
      {"\"zor PATH name\"=\"x\"\n" + name + "=\"y\"", "y"},
      {name + "=\"x\"\n" + name + "=-", missing},
      {name + "=-\n" + name + "=\"x\"\n@=\"y\"", "x"},
      {name + "=hex(1):78,00,e4,00,00,00", "x\xC3\xA4"},
      {name + "=hex(2):78,00,\\\n  79,00,\\\n\t00,00", "xy"},
      {name + "=hex(7):78,00,00,00,79,00,00,00,00,00", "x"},
      {name + "=hex(1):00,d8,78", "\xEF\xBF\xBD\xEF\xBF\xBD"},
      {name + "=hex(1):", ""},
      {name + "=hex:78,00", missing},
      {name + "=dword:78", missing},
      {name + "=\"x\"\n[-HKEY_LOCAL_MACHINE\\software\\nuv\\zor\\installedcopies\\a]", missing},
      {"[-HKEY_LOCAL_MACHINE\\SOFTWARE\\NUV]\n" + keyOfA + name + "=\"x\"\n" + versionKey("A", "9"),
       "x"},
      {"[-HKEY_LOCAL_MACHINE\\NONE\\NONE]\n[HKEY_CURRENT_USER\\A]]\n"
       "[hkey_local_machine\\\\SOFTWARE\\NUV\\ZOR\\INSTALLEDCOPIES\\a\\]\n" +
           name + "=\"x\"",
       "x"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.lines);
    const FailureLog log;
    const std::string text = firstLine + versionKey("A", "9") + keyOfA + row.lines;
    for (const std::string& bytes :
         {text, "\xEF\xBB\xBF" + text + "\n", std::regex_replace(text, std::regex("\n"), "\r\n"),
          utf16(text + "\n")}) {
      machineBytes(bytes);
      std::string path = pathOfA();
      path.erase(std::remove(path.begin(), path.end(), '\r'), path.end());
      EXPECT_EQ(path, row.path);
    }
    EXPECT_EQ(log.refusals, "");
  }
  const std::string half("\x00\xD8", 2);
  machineBytes(utf16(firstLine + "[HKEY_USERS\\") + half + utf16("]\n" + copyKeys("A")).substr(2));
  EXPECT_EQ(pathOfA(), "C:\\X");
}

TEST_F(RegistryExport, AMalformedOneIsRefusedWithItsLineAndReasonAndIsEmpty) {
  // A whole machine stands before the fault, in lines 2 to 8, and none of it may be seen.
  const std::string start = firstLine + copyKeys("A");
  const std::string value = start + "\"a\"=";
  const char* const version = "not a registry export of version 5.00";
  const char* const encoding = "neither UTF-8 nor UTF-16LE with its mark";
  const char* const noKey = "a value that belongs to no key";
  const struct {
    std::string bytes;
    unsigned int line;
    const char* reason;
  } cases[] = {
      {"", 1, version},
      {"REGEDIT4\n" + copyKeys("A"), 1, version},
      {utf16(start).substr(2), 1, "a NUL character"},
      {firstLine + "\n;\n\"a\"=\"b\"\n", 4, noKey},
      {start + "[-HKEY_LOCAL_MACHINE\\A]\n@=\"b\"\n", 10, noKey},
      {start + "[-HKEY_LOCAL_MACHINE]\n", 9, "a root key cannot be deleted"},
      {start + "[HKEY_LOCAL_MACHINE\\A\n", 9, "a key without its closing bracket"},
      {start + "[HKEY_NONE\\A]\n", 9, "an unknown root key"},
      {start + "[HKEY_LOCAL_MACHINE\\" + std::string(256, 'n') + "]\n", 9,
       "a key name of more than 255 characters"},
      {value + "\"b\n\n", 9, "a text without its closing quote"},
      {value + "\"b\\t\"", 9, "a backslash in a text that escapes nothing known"},
      {value + "\"two\nlines\"\nx", 11, "neither a key, a value nor a comment"},
      {value + "dword:123456789", 9, "text after a value"},
      {value + "hex(x):00", 9, "a value of unknown type"},
      {value + "hex:00,\\\n", 10, "a byte that is not two hexadecimal digits"},
      {value + "hex:00,\\ x", 9, "a backslash that is not at the end of a line"},
      {value + "\"\xC0\x80\"", 9, encoding},
      {value + "\"\xED\xA0\x80\"", 9, encoding},
      {utf16(start) + "x", 9, encoding},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.bytes);
    machineBytes(row.bytes);
    expectRefusal(row.line, row.reason);
  }
}

TEST_F(RegistryExport, AFileThatCannotBeReadAsAWholeIsRefused) {
  const auto refusalOf = [this](const std::string& file) {
    machineOf(file);
    const FailureLog log;
    EXPECT_EQ(copies(), "0x90000263");
    return log.refusals;
  };
  EXPECT_EQ(refusalOf(path("none.reg")), path("none.reg") + "|0|the file does not exist;");
  EXPECT_EQ(refusalOf(directory_), directory_ + "|0|not a plain file;");
  EXPECT_EQ(refusalOf(""), "");
  // Two reads long; the first half would be an export, too.
  const std::string lines = copyKeys("A") + std::string(300'000, '\n');
  machine(lines);
  {
    const FaultPlan plan(2, EIO, false, "read");
    expectRefusal(0, "Input/output error");
  }
  for (const auto& changed : {lines.substr(0, 1000), lines + "\n"}) {
    machine(lines);
    unsigned int reads = 0;
    const FaultHook changing([&](const std::string& call) {
      if (call == "read" && ++reads == 2) remoteMachine("machine", changed);
      return 0;
    });
    expectRefusal(0, "the file was changed while it was read");
  }
  EXPECT_EQ(copies(), "ZOR A;end;");
}

TEST_F(RegistryExport, IsParsedOnceUntilItsFileChangesAndAListKeepsWhatItSaid) {
  const auto keys = [](const std::string& name) { return copyKeys(name) + instanceKey(name, "I"); };
  machine(keys("A"));
  makeOld();
  void* list = nullptr;
  {
    const FaultPlan reads(0, 0, false, "read");
    std::string answer;
    std::thread other([&] { answer = copies(); });
    EXPECT_EQ(copies(), "ZOR A;end;");
    other.join();
    EXPECT_EQ(answer, "ZOR A;end;");
    ASSERT_EQ(ossOpenInstanceList("ZOR", &list), 0u);
    EXPECT_EQ(reads.calls(), 1u);
  }
  makeOld(2);
  {
    const FaultPlan reads(0, 0, false, "read");
    EXPECT_EQ(copies(), "ZOR A;end;");
    EXPECT_EQ(reads.calls(), 1u);
  }
  // Another file of the same size and time.
  std::filesystem::rename(path("machine.reg"), path("old.reg"));
  machine(keys("B"));
  makeOld(2);
  EXPECT_EQ(copies(), "ZOR B;end;");
  machineBytes("broken");
  makeOld();
  for (int i = 0; i < 2; ++i) expectRefusal(1, "not a registry export of version 5.00");
  // What has only just been written may be written again within the same tick of the clock.
  machine(keys("C"));
  EXPECT_EQ(copies(), "ZOR C;end;");
  machine(keys("D"));
  EXPECT_EQ(copies(), "ZOR D;end;");
  OSSInstanceInfo_t record;
  EXPECT_EQ(ossGetNextInstance(list, &record), 0u);
  EXPECT_STREQ(record.copyName, "A");
  EXPECT_EQ(ossCloseInstanceList(list), 0u);
}

TEST_F(RegistryExport, AnotherMachinesIsReadOnceForAList) {
  const std::string remote = textValue("ZORREMOTEPREG", "OTHER");
  const std::string profile = textValue("ZORINSTPROF", "R:");
  remoteMachine("OTHER", productKey("\\INSTALLEDCOPIES\\A\\I", profile) +
                             productKey("\\INSTALLEDCOPIES\\A\\J", profile));
  machine(copyKeys("A") + instanceKey("A", "I", remote) + instanceKey("A", "J", remote));
  const FaultPlan opened(0, 0, false, "open");
  EXPECT_EQ(instances(), "I A R:\\I 4 OTHER;J A R:\\J 4 OTHER;end;");
  EXPECT_EQ(opened.calls(), 2u);
}

TEST_F(RegistryExport, NamesMatchInEitherCaseOfAnyLetter) {
  const struct {
    const char *small, *capital;
    bool match;
  } cases[] = {
      {"\xC3\xA4\xC3\xBF", "\xC3\x84\xC5\xB8", true},          // Latin-1
      {"\xC7\x8E\xE1\xBA\xA1", "\xC7\x8D\xE1\xBA\xA0", true},  // Latin Extended
      {"\xD1\xA1\xD3\x91", "\xD1\xA0\xD3\x90", true},          // Cyrillic above U+045F
      {"\xCF\x82\xE1\xBC\x80", "\xCE\xA3\xE1\xBC\x88", true},  // Greek, a final sigma
      {"\xEF\xBD\x81", "\xEF\xBC\xA1", true},                  // fullwidth
      {"\xC4\xB1", "I", false},                                // a dotless i
      {"\xC2\xB5", "\xCE\x9C", false},                         // the micro sign and a capital mu
  };
  const std::string locale = std::setlocale(LC_ALL, nullptr);
  for (const auto& row : cases) {
    SCOPED_TRACE(row.small);
    machine(copyKeys(row.small) + productKey("\\INSTALLEDCOPIES\\" + std::string(row.capital)));
    EXPECT_EQ(copies() == "ZOR " + std::string(row.small) + ";end;", row.match);
  }
  EXPECT_EQ(std::setlocale(LC_ALL, nullptr), locale);
}

// A time that grows with the square of the keys would be noticed: the test would not end.
TEST_F(RegistryExport, AHundredThousandCopiesAreListedInOrder) {
  std::string lines;
  for (unsigned int i = 100'000; i > 0; --i)
    lines += productKey("\\INSTALLEDCOPIES\\C" + std::to_string(i));
  machine(lines + copyKeys("A"));
  EXPECT_EQ(copies(), "ZOR A;0x90000265 C1;0x90000265 C10;0x90000265 C100;");
}

}  // namespace
