// zorreg check tells a clean registry from one with leftovers and one with damage, and writes
// nothing.
#include <filesystem>

#include "support/stored_record.h"
#include "support/tool.h"

namespace {

class CheckToolTest : public RegistryTest {};

TEST_F(CheckToolTest, TellsCleanLeftOverAndDamagedApart) {
  const std::string a = frame(variable("a", 1));
  const std::string good = framed(stored(4, 0x3, {text("S"), text("V")}));
  const struct {
    const char* name;
    const char* type;
    std::string bytes;
    std::vector<std::string> companions;
    int status;
    const char* first;  // of the output, behind the file's name
    const char* part;   // of the output
  } cases[] = {
      {"binary", "bin", a, {}, 0, "bin, 1 records: clean", ""},
      {"empty", "bin", "", {}, 0, "bin, 0 records: clean", ""},
      {"global", "global", good, {}, 0, "global, 1 records: clean", ""},
      {"variables", "var", "A = 1\n# x\n", {}, 0, "var, 1 records: clean", ""},
      {"services", "services", "# x\nftp 21/tcp\n", {}, 0, "services, 1 records: clean", ""},
      {"lock file",
       "bin",
       a,
       {".r.lock"},
       1,
       "bin, 1 records: whole, with remarks",
       "takes the lock over"},
      {"temporary", "bin", a, {"r.tmp"}, 1, "bin, 1 records: whole, with remarks", "sets it aside"},
      {"corrupt", "bin", a, {"r.cor"}, 1, "bin, 1 records: whole, with remarks", "to be looked at"},
      {"stale backup",
       "bin",
       a,
       {".r.bkp"},
       1,
       "bin, 1 records: whole, with remarks",
       "at its very end"},
      {"name twice", "bin", a + a, {}, 1, "bin, 2 records: whole, with remarks", "offset 40"},
      {"torn record", "bin", a + a.substr(0, 20), {}, 3, "bin, 1 records: damaged", "offset 40"},
      {"stray byte", "bin", a + "x", {}, 3, "bin, 1 records: damaged", "GENREG_RC_READ_FAILED"},
      {"length 0", "bin", a + std::string(8, '\0'), {}, 3, "bin, 1 records: damaged", "offset 40"},
      {"malformed record",
       "global",
       good + framed(stored(4, 0x3, {text("S")})) + good,
       {},
       3,
       "global, 2 records: damaged",
       "GENREG_RC_UNPACK_FAILED"},
      {"no assignment",
       "var",
       "A = 1\nodd\n",
       {},
       1,
       "var, 1 records: whole, with remarks",
       "line 2"},
      {"open quote",
       "var",
       "A = \"1\n",
       {},
       1,
       "var, 0 records: whole, with remarks",
       "double quote"},
      {"no newline",
       "var",
       "A = 1",
       {},
       1,
       "var, 1 records: whole, with remarks",
       "lacks its newline"},
      {"long line",
       "var",
       "A = " + std::string(5000, 'x') + "\nA = 1\n",
       {},
       1,
       "var, 1 records: whole, with remarks",
       "2,046"},
      {"NUL byte",
       "var",
       std::string("A = 1\0\n", 7),
       {},
       1,
       "var, 1 records: whole, with remarks",
       "NUL"},
      {"no protocol",
       "services",
       "a 1\nb 1/tcp\nb 1/tcp\n",
       {},
       1,
       "services, 3 records: whole, with remarks",
       "line 3"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    std::filesystem::remove_all(directory_);
    std::filesystem::create_directory(directory_);
    writeFile(registry(), row.bytes);
    for (const std::string& companion : row.companions) writeFile(path(companion), "left");
    const std::string before = files();
    const ToolRun run = runTool("check " + registry() + " --type " + row.type);
    EXPECT_EQ(run.status, row.status) << run.error;
    EXPECT_EQ(run.output.find(registry() + ": " + row.first), 0u) << run.output;
    EXPECT_NE(run.output.find(row.part), std::string::npos) << run.output;
    EXPECT_EQ(readFile(registry()), row.bytes);
    EXPECT_EQ(files(), before);
    const bool guessable =
        row.type != std::string("var") || row.bytes.find('\0') == std::string::npos;
    if (guessable) {
      EXPECT_EQ(runTool("check " + registry()).output, run.output) << "the guess is the type";
    }
  }
  std::filesystem::rename(registry(), backup());
  const ToolRun crashed = runTool("check " + registry() + " --json");
  EXPECT_EQ(crashed.status, 1);
  EXPECT_NE(crashed.output.find("puts it back"), std::string::npos);
  EXPECT_EQ(runTool("check " + path("missing")).status, 1);
}

}  // namespace
