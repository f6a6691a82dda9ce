// Registry exports: what each form of a line means, what is refused and how that is logged, and
// when a file is read again.
#include <algorithm>
#include <cerrno>
#include <clocale>
#include <filesystem>
#include <regex>
#include <thread>

#include "support/machine_fixture.h"

namespace {

const std::string firstLine = "Windows Registry Editor Version 5.00\n";

class RegistryExport : public MachineTest {
 protected:
  // An export whose copies are these answers and refusals: "263" and "path|line|reason;" if any.
  void expectCopies(const std::string& answer, const std::string& refusal = "") const {
    const FailureLog log;
    EXPECT_EQ(copies(), answer);
    EXPECT_EQ(log.refusals, refusal.empty() ? "" : path("machine.reg") + "|" + refusal + ";");
  }

  // As if nobody had touched the machine's export for so many hours.
  void makeOld(int hours) const {
    static const auto now = std::filesystem::file_time_type::clock::now();
    std::filesystem::last_write_time(path("machine.reg"), now - std::chrono::hours(hours));
  }
};

std::string utf16(const std::string& ascii) {
  std::string bytes = "\xFF\xFE";
  for (const char character : ascii) (bytes += character) += '\0';
  return bytes;
}

TEST_F(RegistryExport, EveryFormOfAValueIsRead) {
  const std::string none = "none";
  const std::string name = "\"ZOR Path Name\"=";
  const struct {
    std::string lines;  // below the key of the copy
    std::string path;
  } cases[] = {
      {name + "\"C:\\\\a \\\"b\\\" c\"", "C:\\a \"b\" c"},
      {name + "\"two\nlines\\r\\nmore\"", "two\nlines\nmore"},
      {" \"zor PATH name\" = \"x\" ; why\n" + name + "\"y\"\n@=\"z\"", "y"},
      {name + "\"x\"\n" + name + "-", none},
      {name + "hex(1):78,00,e4,00,00,00", "x\xC3\xA4"},
      {name + "hex(2):78,00,\\\n  79,00,\\\n\t00,00", "xy"},
      {name + "hex(7):78,00,00,00,79,00,00,00,00,00", "x"},
      {name + "hex(1):00,d8,78", "\xEF\xBF\xBD\xEF\xBF\xBD"},
      {name + "hex(1):", ""},
      {name + "hex:78,00", none},
      {name + "dword:78", none},
      {"[-HKEY_LOCAL_MACHINE\\software\\nuv\\zor\\installedcopies\\a]", none},
      {"[-HKEY_LOCAL_MACHINE\\SOFTWARE\\NUV]\n" + keys("A"), "C:\\X"},
      {"[-HKEY_LOCAL_MACHINE\\NONE\\NONE]\n[HKEY_CURRENT_USER\\A]]\n"
       "[hkey_local_machine\\\\SOFTWARE\\NUV\\ZOR\\INSTALLEDCOPIES\\a\\]\n" +
           name + "\"x\"",
       "x"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.lines);
    const std::string text = firstLine + keys("A") + productKey("\\INSTALLEDCOPIES\\A") + row.lines;
    const std::string withReturns = std::regex_replace(text, std::regex("\n"), "\r\n");
    for (const std::string& bytes : {text, "\xEF\xBB\xBF" + text, withReturns, utf16(text)}) {
      machineBytes(bytes);
      OSSServiceInfo_t record;
      const bool found = ossGetServiceInfo("ZOR", 0, nullptr, "A", &record) == 0;
      std::string path = found ? record.installPath : none;
      path.erase(std::remove(path.begin(), path.end(), '\r'), path.end());
      EXPECT_EQ(path, row.path);
    }
  }
  const std::string half("\x00\xD8", 2);
  machineBytes(utf16(firstLine + "[HKEY_USERS\\") + half + utf16("]\n" + keys("A")).substr(2));
  expectCopies("ZOR A;end;");
}

TEST_F(RegistryExport, AMalformedOneIsRefusedWithItsLineAndReasonAndIsEmpty) {
  // A whole machine stands before the fault, in lines 2 to 8, and none of it may be seen.
  const std::string start = firstLine + keys("A");
  const std::string longName(256, 'n');
  const std::string encoding = "9|neither UTF-8 nor UTF-16LE with its mark";
  const struct {
    std::string bytes, refusal;
  } cases[] = {
      {"REGEDIT4\n" + keys("A"), "1|not a registry export of version 5.00"},
      {utf16(start).substr(2), "1|a NUL character"},
      {start + "[-HKEY_USERS\\A]\n@=\"b\"\n", "10|a value that belongs to no key"},
      {start + "[-HKEY_LOCAL_MACHINE]\n", "9|a root key cannot be deleted"},
      {start + "[HKEY_LOCAL_MACHINE\\A\n", "9|a key without its closing bracket"},
      {start + "[HKEY_NONE\\A]\n", "9|an unknown root key"},
      {start + "[HKEY_USERS\\" + longName + "]\n", "9|a key name of more than 255 characters"},
      {start + "@=\"b\n\n", "9|a text without its closing quote"},
      {start + "@=\"b\\t\"", "9|a backslash in a text that escapes nothing known"},
      {start + "@=\"two\nlines\"\nx", "11|neither a key, a value nor a comment"},
      {start + "@=dword:123456789", "9|text after a value"},
      {start + "@=hex(x):00", "9|a value of unknown type"},
      {start + "@=hex:00,\\\n", "10|a byte that is not two hexadecimal digits"},
      {start + "@=hex:00,\\ x", "9|a backslash that is not at the end of a line"},
      {start + "@=\"\xC0\x80\"", encoding},
      {utf16(start) + "x", encoding},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.bytes);
    machineBytes(row.bytes);
    expectCopies("263", row.refusal);
  }
}

TEST_F(RegistryExport, AFileThatCannotBeReadAsAWholeIsRefused) {
  expectCopies("263", "0|the file does not exist");
  std::filesystem::create_directory(path("machine.reg"));
  expectCopies("263", "0|not a plain file");
  std::filesystem::remove(path("machine.reg"));
  // Two reads long; the first half would be an export, too.
  const std::string lines = keys("A") + std::string(300'000, '\n');
  machine(lines);
  {
    const FaultPlan plan(2, EIO, false, "read");
    expectCopies("263", "0|Input/output error");
  }
  for (const auto& changed : {lines.substr(0, 1000), lines + "\n"}) {
    machine(lines);
    unsigned int reads = 0;
    const FaultHook changing([&](const std::string& call) {
      if (call == "read" && ++reads == 2) remoteMachine("machine", changed);
      return 0;
    });
    expectCopies("263", "0|the file was changed while it was read");
  }
  expectCopies("ZOR A;end;");
}

TEST_F(RegistryExport, IsParsedOnceUntilItsFileChangesAndAListKeepsWhatItSaid) {
  machine(keys("A; A/I"));
  makeOld(1);
  void* list = nullptr;
  FaultPlan reads(0, 0, false, "read");
  std::string answer;
  std::thread other([&] { answer = copies(); });
  expectCopies("ZOR A;end;");
  other.join();
  EXPECT_EQ(answer, "ZOR A;end;");
  ASSERT_EQ(ossOpenInstanceList("ZOR", &list), 0u);
  EXPECT_EQ(reads.calls(), 1u);
  makeOld(2);
  expectCopies("ZOR A;end;");
  EXPECT_EQ(reads.calls(), 2u);
  // Another file of the same size and time.
  std::filesystem::rename(path("machine.reg"), path("old.reg"));
  machine(keys("B; B/I"));
  makeOld(2);
  expectCopies("ZOR B;end;");
  machineBytes("broken");
  makeOld(1);
  for (int i = 0; i < 2; ++i) expectCopies("263", "1|not a registry export of version 5.00");
  EXPECT_EQ(reads.calls(), 4u);
  // What has only just been written may be written again within the same tick of the clock.
  machine(keys("C"));
  for (int i = 0; i < 2; ++i) expectCopies("ZOR C;end;");
  EXPECT_EQ(reads.calls(), 6u);
  OSSInstanceInfo_t record;
  EXPECT_EQ(ossGetNextInstance(list, &record), 0u);
  EXPECT_STREQ(record.copyName, "A");
  EXPECT_EQ(ossCloseInstanceList(list), 0u);
}

TEST_F(RegistryExport, NamesMatchInEitherCaseOfAnyLetter) {
  const struct {
    std::string small, capital;
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
    machine(keys(row.small) + productKey("\\INSTALLEDCOPIES\\" + row.capital));
    EXPECT_EQ(copies() == "ZOR " + row.small + ";end;", row.match);
  }
  EXPECT_EQ(std::setlocale(LC_ALL, nullptr), locale);
}

// A time that grows with the square of the keys would be noticed: the test would not end.
TEST_F(RegistryExport, AHundredThousandKeysAreReadInOrder) {
  std::string lines = keys("A");
  for (unsigned int i = 100'000; i > 0; --i)
    lines += productKey("\\INSTALLEDCOPIES\\C" + std::to_string(i));
  machine(lines);
  OSSServiceInfo_t record;
  EXPECT_EQ(ossGetServiceInfo("ZEM", 0, nullptr, &record), GENREG_RC_SERVICE_INFO);
  EXPECT_STREQ(record.copyName, "C1");
}

}  // namespace
