// The text engine on profile variable files: what an update changes, and that it changes nothing
// else.
#include "support/flavours.h"
#include "sysservices/file_system.h"

namespace {

using Run = Operations<VariableLines>;
using VarVal = Run::Handle;

constexpr std::uint64_t joining = verified | GENREG_JOIN_CONTINUED_LINES;

class TextStoreTest : public RegistryTest {};

TEST_F(TextStoreTest, AnUpdateChangesItsOwnLineAndNothingElse) {
  constexpr Code refused = OSS_RC_BUFFER_TOO_SMALL;
  const std::string full(2045, 'x');
  const std::string barelyTooLong = "A = 1\n" + full + "xx\n";
  const std::string tooLong = "# " + std::string(5000, 'y') + " B = 1";
  const std::string longB = "B = " + std::string(3000, 'v') + "\n";
  const std::string nul("# a\0b\nB = 1\n", 12);
  const std::string hidden("A = 1\\\0\n", 8);
  const std::string nulB("B = 1\0x\nC = 1\n", 15);
  const std::string beforeB = "# comment\n\n  \t\nnot a variable\nQ = \"open\n";
  const std::string odd = beforeB + "B = 1\nend = x\n";
  const std::string folded = "A = 1\nB \\\n= 1\nC = 1\n";
  // One update of a file's bytes.
  const struct {
    const char* name;
    std::uint64_t features;
    std::string before;
    char operation;  // 'a'dd, 'c'hange, 'd'elete, of the variable B, to the value 2
    Code result;
    std::string after;
  } cases[] = {
      {"add to nothing", verified, "", 'a', 0, "B = 2\n"},
      {"add in place", unverified, odd, 'a', 0, odd + "B = 2\n"},
      {"add after an unended variable", verified, "A = 1", 'a', 0, "A = 1\r\nB = 2\n"},
      {"add in place after one", unverified, "A = 1", 'a', 0, "A = 1\r\nB = 2\n"},
      {"add with room", verified, full, 'a', 0, full + "\r\nB = 2\n"},
      {"add without room", verified, full + "x", 'a', refused, full + "x"},
      {"add beside a line too long", verified, barelyTooLong, 'a', refused, barelyTooLong},
      {"add behind a continued end", joining, "A = 1\\\n", 'a', 0, "A = 1\\\n\r\nB = 2\n"},
      {"the same in place", unverified | 128, "A = 1\\\n", 'a', 0, "A = 1\\\n\r\nB = 2\n"},
      {"add behind a backslash", joining, "A = 1\\", 'a', writeNewFailed, "A = 1\\"},
      {"in place behind one", unverified | 128, "A = 1\\", 'a', writeNewFailed, "A = 1\\"},
      {"add beside a NUL", unique, nulB, 'a', duplicate, nulB},
      {"add beside a long one", unique, longB, 'a', duplicate, longB},
      {"change", verified, odd, 'c', 0, beforeB + "B = 2\nend = x\n"},
      {"change keeps the layout", verified, "    B\t=  1   # old\n", 'c', 0, "    B\t=  2\n"},
      {"change before an unended line", verified, "B = 1\n# x", 'c', 0, "B = 2\n# x\n"},
      {"change an unended line", verified, "A\nB = 1", 'c', 0, "A\nB = 2\n"},
      {"change beside a full line without its end", verified, "B = 1\n" + full + "xx", 'c', 0,
       "B = 2\n" + full + "xx"},
      {"change in a CRLF file", verified, "A = 1\r\nB = 1\r\n", 'c', 0,
       ossPathSeparator == '/' ? "A = 1\r\nB = 2\n" : "A = 1\r\nB = 2\r\n"},
      {"change a continued line", joining, folded, 'c', packLineFailed, folded},
      {"change a continued value", joining, "B = 1\\\n1\nC = 1\n", 'c', 0, "B = 2\nC = 1\n"},
      {"change beside a continued line", joining, "A = 1\\\n  2\nB = 1\n", 'c', 0,
       "A = 1\\\n  2\nB = 2\n"},
      {"change behind a NUL behind a backslash", joining, hidden + "B = 1\n", 'c', 0,
       hidden + "B = 2\n"},
      {"change beside NUL bytes", verified, nul, 'c', 0, nul.substr(0, 10) + "2\n"},
      {"change a line with a NUL", verified, nulB, 'c', refused, nulB},
      {"change inside a long line", verified, tooLong, 'c', notFound, tooLong},
      {"change beside a long line", verified, tooLong + "\nB = 1\n", 'c', 0, tooLong + "\nB = 2\n"},
      {"delete", verified, odd, 'd', 0, beforeB + "end = x\n"},
      {"delete what begins as the next", joining, "A\n\\\nB = 1\n\\\nC = 1\n", 'd', 0,
       "A\n\\\nC = 1\n"},
      {"delete an unended line", verified, "A = 1\nB = 1", 'd', 0, "A = 1\n"},
      {"delete before an unended line", verified, "B = 1\n# x", 'd', verifying, "B = 1\n# x"},
      {"delete well before one", verified, "B = 1\nA = 1\n# x", 'd', 0, "A = 1\n# x"},
      {"delete in a CRLF file", verified, "A = 1\r\nB = 1\r\nC = 1\r\n", 'd', 0,
       "A = 1\r\nC = 1\r\n"},
      {"delete beside NUL bytes", verified, nul, 'd', 0, nul.substr(0, 6)},
      {"delete a line with a NUL", verified, nulB, 'd', refused, nulB},
      {"delete inside a long line that is continued", joining, full + "x\\\nB = 1\n", 'd', refused,
       full + "x\\\nB = 1\n"},
      {"delete a long line", verified, longB, 'd', refused, longB},
      {"delete beside a long line", verified, tooLong + "\nB = 1\n", 'd', 0, tooLong + "\n"},
      {"delete beside high bytes", verified, "\xE4\xFF = \x80\nB = 1\n", 'd', 0,
       "\xE4\xFF = \x80\n"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    writeFile(registry(), row.before);
    VarVal file(registry(), row.features);
    const Code result = row.operation == 'a'   ? Run::add(file, "B", 2)
                        : row.operation == 'c' ? Run::change(file, "B", 2)
                                               : Run::remove(file, "B");
    EXPECT_EQ(result, row.result);
    EXPECT_EQ(readFile(registry()), row.after);
    EXPECT_EQ(file.status, GENREG_STATUS_IDLE | GENREG_STATUS_READY);
    (void)std::remove(temporary().c_str());
  }
}

TEST_F(TextStoreTest, WhatCannotBeReadBackIsRefusedAndTheFileStaysAsItIs) {
  const std::string before = "A = 1\n";
  const std::string longValue(2042, 'v');
  const VarValRecord onlyComment{VARVAL_HAS_COMMENT, "x", nullptr, nullptr, {}};
  const struct {
    const char* name;
    VarValRecord record;
    std::uint64_t features;
    Code result;
  } cases[] = {
      {"a number sign in the value", assignment("B", "1#2"), verified, verifying},
      {"an open quote", assignment("B", "\"x"), verified, verifying},
      {"a value of blanks", assignment("B", "a  b"), verified, verifying},
      {"a newline in the value", assignment("B", "1\nC = 2"), verified, packLineFailed},
      {"a newline in the comment", assignment("B", "1", "x\ny"), verified, packLineFailed},
      {"a backslash at the end", assignment("B", "1\\"), joining, packLineFailed},
      {"one that would join", assignment("B", "1\\"), joining & ~verified, packLineFailed},
      {"no value", assignment("B", nullptr), verified, packLineFailed},
      {"no name", assignment(nullptr, "1"), verified, rejected},
      {"a comment alone", onlyComment, verified, rejected},
      {"the longest line", assignment("B", longValue.c_str()), verified, 0},
      {"one character more", assignment("BB", longValue.c_str()), verified, packLineFailed},
  };
  for (const auto& row : cases) {
    for (const bool isOneOfMany : {false, true}) {
      SCOPED_TRACE(row.name);
      writeFile(registry(), before);
      VarVal file(registry(), row.features);
      VarValRecord record = row.record;
      EXPECT_EQ(isOneOfMany ? file.BeginUpdate() : 0, 0u);
      EXPECT_EQ(file.Add(VARVAL_VARIABLE, &record), row.result);
      EXPECT_EQ(isOneOfMany ? file.CommitUpdate() : 0, 0u);
      EXPECT_EQ(readFile(registry()) == before, row.result != 0);
    }
  }
  VarVal file(registry(), unverified);
  EXPECT_EQ(file.Add(1, nullptr), rejected);
  EXPECT_EQ(file.Delete(1, nullptr), rejected);
  file.PackRecord.text = [](void*, char* line) -> Code {
    line[std::string(2047, 'x').copy(line, 2047)] = '\0';
    return 0;
  };
  EXPECT_EQ(Run::add(file, "B", 1), packLineFailed) << "no room for the newline";
}

TEST_F(TextStoreTest, ReadsEveryLineAsFarAsItCanBeRead) {
  const std::string longest(2043, 'v');
  writeFile(registry(), "# note\n\nA = 1\nodd\nA = 2 # two\n" + std::string("B = 1\0x\n", 8) +
                            "C = " + longest + "vv\nD = 3");
  VarVal file(registry(), verified);
  VarValRecord record;
  ASSERT_EQ(file.OpenScan(), 0u);
  const struct {
    unsigned int contains;
    const char *value, *comment;
  } lines[] = {{1, nullptr, " note"},         {0, nullptr, nullptr}, {2, "1", nullptr},
               {0, nullptr, nullptr},         {3, "2", " two"},      {2, "1", nullptr},
               {2, longest.c_str(), nullptr}, {0, nullptr, nullptr}, {2, "3", nullptr}};
  for (const auto& line : lines) {
    EXPECT_EQ(file.GetNext(0, nullptr, &record), 0u);
    EXPECT_EQ(record.Contains, line.contains);
    EXPECT_STREQ(record.Value, line.value);
    EXPECT_STREQ(record.Comment, line.comment);
  }
  EXPECT_GE(record.Value, record.text) << "the texts point into the caller's own record";
  EXPECT_LT(record.Value, record.text + sizeof record.text);
  EXPECT_EQ(file.GetNext(0, nullptr, &record), GENREG_RC_END);
  EXPECT_EQ(file.CloseScan(), 0u);
  VarValRecord key = assignment("B", "1\0y");  // no more than its text is compared
  EXPECT_EQ(file.Get(VARVAL_VARIABLE | VARVAL_VALUE, &key, &record), 0u);
  VarVal missing(path("missing"), verified);
  EXPECT_EQ(missing.Get(VARVAL_VARIABLE, &key, &record), opening);
}

TEST_F(TextStoreTest, ALastLineWithoutItsEndStaysWhereNothingIsDeleted) {
  writeFile(registry(), "# x");
  VarVal file(registry(), verified);
  EXPECT_EQ(file.BeginUpdate(), 0u);
  EXPECT_EQ(Run::remove(file, "B"), notFound);
  EXPECT_EQ(file.AbandonUpdate(), 0u);
}

TEST_F(TextStoreTest, AMissingHookFailsTheOperation) {
  constexpr Code unpack = GENREG_RC_NO_UNPACK_HOOK;
  const struct {
    void (*breakHook)(VarVal&);
    Code add, change, remove, get;
  } cases[] = {
      {[](VarVal& f) { f.ValidateKey = nullptr; }, hookMissing, noValidate, noValidate, noValidate},
      {[](VarVal& f) { f.GetRecordSize = nullptr; }, hookMissing, noSize, noSize, noSize},
      {[](VarVal& f) { f.UnpackRecord = nullptr; }, hookMissing, unpack, unpack, unpack},
      {[](VarVal& f) { f.compareHook() = nullptr; }, hookMissing, noCompare, noCompare, noCompare},
      {[](VarVal& f) { f.PackRecord = nullptr; }, hookMissing, GENREG_RC_NO_PACK_HOOK, verifying,
       0},
  };
  for (const auto& row : cases) {
    writeFile(registry(), "B = 1\n");
    VarVal file(registry(), verified);
    row.breakHook(file);
    const auto number = static_cast<unsigned int>(&row - cases);
    SCOPED_TRACE(number);
    {
      Diagnostics diagnostics;
      EXPECT_EQ(Run::add(file, "B", 2), row.add);
      EXPECT_EQ(diagnostics.records.front().point, 10 * (number + 1)) << "in the hooks' order";
    }
    EXPECT_EQ(Run::change(file, "B", 2), row.change);
    EXPECT_EQ(Run::get(file, "B"), row.get == 0 ? 1 : -std::int64_t{row.get});
    EXPECT_EQ(Run::remove(file, "B"), row.remove);
  }
}

}  // namespace
