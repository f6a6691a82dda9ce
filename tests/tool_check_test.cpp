// zorreg check distinguishes a healthy registry from one with remarks, one that needs a look and
// one with damage, and writes nothing.
#include <filesystem>

#include "support/stored_record.h"
#include "support/tool.h"

namespace {

class CheckToolTest : public RegistryTest {};

TEST_F(CheckToolTest, DistinguishesCleanRemarksAndDamage) {
  const std::string a = frame(variable("a", 1));
  const std::string good = framed(stored(4, 0x3, {text("S"), text("V")}));
  const std::string longLine = "A = " + std::string(5000, 'x') + "\nA = 1\n";
  const std::string malformed = framed(stored(4, 0x3, {text("S")}));
  const std::string nul("A = 1\0\n", 7);
  const struct {
    const char* name;
    const char* type;
    std::string bytes;
    int status, records;
    const char* part = "";       // of the output
    const char* companion = "";  // another file that is there
  } cases[] = {
      {"binary", "bin", a, 0, 1},
      {"empty", "bin", "", 0, 0},
      {"global", "global", good, 0, 1},
      {"variables", "var", "A = 1\n# x\n", 0, 1},
      {"services", "services", "# x\nftp 21/tcp\n", 0, 1},
      {"lock file", "bin", a, 0, 1, "takes the lock over", ".r.lock"},
      {"temporary", "bin", a, 0, 1, "sets it aside", "r.tmp"},
      {"corrupt", "bin", a, 0, 1, "copy it if", "r.cor"},
      {"stale backup", "bin", a, 0, 1, "at its very end", ".r.bkp"},
      {"name twice", "bin", a + a, 0, 2, "offset 40"},
      {"append in place", "bin", a + little(0xDB400000u + 36, 4) + "torn", 0, 1, "8 bytes of an"},
      {"torn record", "bin", a + a.substr(0, 20), 3, 1, "offset 40"},
      {"stray byte", "bin", a + "x", 3, 1, "GENREG_RC_READ_FAILED"},
      {"length 0", "bin", a + std::string(8, '\0'), 3, 1, " repair\n"},
      {"malformed record", "global", good + malformed + good, 3, 2, " repair --drop-unreadable\n"},
      {"same identity", "global", good + framed(stored(4, 0x7, {text("S"), text("V"), text("1")})),
       1, 2, "Variable=V"},
      {"another identity", "global", good + framed(stored(4, 0x2, {text("V")})), 0, 2},
      {"no assignment", "var", "A = 1\nodd\n", 0, 1, "line 2"},
      {"open quote", "var", "A = \"1\n", 0, 0, "double quote"},
      {"no newline", "var", "A = 1", 0, 1, "lacks its newline"},
      {"long line", "var", longLine, 0, 1, "2,046"},
      {"NUL byte", "var", nul, 0, 1, "NUL"},
      {"no protocol", "services", "a 1\nb 1/tcp\nb 1/tcp\n", 1, 3, "line 3"},
  };
  const char* const verdicts[] = {"whole, with remarks", "needs a look", "", "damaged"};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    clearDirectory();
    writeFile(registry(), row.bytes);
    if (*row.companion != '\0') writeFile(path(row.companion), "left");
    const std::string before = files();
    const ToolRun run = runTool("check " + registry() + " --type " + row.type);
    EXPECT_EQ(run.status, row.status) << run.error;
    const bool isRemarked = row.status != 0 || *row.part != '\0';
    const std::string first = registry() + ": " + row.type + ", " + std::to_string(row.records) +
                              " records: " + (isRemarked ? verdicts[row.status] : "clean");
    EXPECT_EQ(run.output.find(first), 0u) << run.output;
    EXPECT_NE(run.output.find(row.part), std::string::npos) << run.output;
    EXPECT_EQ(readFile(registry()), row.bytes);
    EXPECT_EQ(files(), before);
    const int strict = row.status == 0 && isRemarked ? 1 : row.status;
    EXPECT_EQ(runTool("check --strict " + registry() + " --type " + row.type).status, strict);
    EXPECT_EQ(run.output.find("    do: ") != std::string::npos, isRemarked) << run.output;
    if (row.bytes == nul) continue;
    EXPECT_EQ(runTool("check " + registry()).output, run.output) << "the guess is the type";
  }
  std::filesystem::rename(registry(), backup());
  const ToolRun crashed = runTool("check " + registry() + " --json");
  EXPECT_EQ(crashed.status, 1);
  EXPECT_NE(crashed.output.find("puts it back"), std::string::npos);
  EXPECT_EQ(runTool("check " + path("missing")).status, 1);
  const ToolRun unread = runTool("check " + directory_);
  EXPECT_EQ(unread.status, 3);
  EXPECT_EQ(unread.output.find(directory_ + ": cannot be read\n"), 0u) << "it is not damaged";
}

TEST_F(CheckToolTest, ARunningUpdateIsNoFaultAndWhatWouldBeRefusedIs) {
  writeFile(registry(), frame(variable("a", 1)));
  {
    TestRegistry writer(registry());
    ASSERT_EQ(writer.LockRegistry(GENREG_LOCK_EXCLUSIVE | GENREG_LOCK_NOWAIT), 0u);
    const ToolRun busy = runTool("check " + registry());
    EXPECT_EQ(busy.status, 0);
    EXPECT_NE(busy.output.find("  running: "), std::string::npos) << busy.output;
    ASSERT_EQ(writer.UnlockRegistry(), 0u);
  }
  EXPECT_EQ(files(), "r");
  std::filesystem::create_directory(lockFile());
  const ToolRun refused = runTool("check " + registry());
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.output.find("move it away"), std::string::npos) << refused.output;
}

TEST_F(CheckToolTest, EveryRecordSaysTheKindAndEveryGapIsReported) {
  const std::string a = frame(variable("a", 1));
  writeFile(registry(), a + a + framed(stored(4, 0x3, {text("ZOR"), text("ABC")})));
  const ToolRun mixed = runTool("check " + registry());
  EXPECT_EQ(mixed.status, 1);
  EXPECT_NE(mixed.output.find("bin or global"), std::string::npos) << mixed.output;
  writeFile(registry(), "\xff" + (a + a).substr(1));
  EXPECT_NE(runTool("check " + registry()).output.find("zorreg bin "), std::string::npos);
  writeFile(registry(), "A=1\nodd\nX=\"B=1\nB=1\n# odd\nodd\nC=1\n");
  const ToolRun repaired = runTool("var " + registry() + " repair --drop-unreadable");
  EXPECT_NE(repaired.output.find("offset 4: 11 bytes\n  offset 25: 4 bytes\n"), std::string::npos)
      << repaired.output;
}

}  // namespace
