// zorreg on every system: what each command prints and leaves, and the status it exits with. Far
// more of it is shown by tests/transcripts, which a shell runs.
#include <cstdlib>
#include <filesystem>

#include "support/stored_record.h"
#include "tools/report.h"

namespace {

using namespace tool;

struct ToolRun {
  int status;
  std::string output, error;
};

// One run of the tool: its arguments and input, and what must come of it. The arguments are words
// with blanks between them, in single quotes where they hold any.
struct ToolStep {
  std::string arguments;
  int status;
  std::string output = "", error = "", input = "";  // of the error a part is enough
};

class ToolTest : public RegistryTest {
 protected:
  // What a program wrote beside the directory of the test, with the ends of lines that the tests
  // have.
  static std::string takeText(const std::string& name) {
    std::string text = readFile(name);
    for (std::size_t at = 0; (at = text.find("\r\n", at)) != std::string::npos;) text.erase(at, 1);
    std::filesystem::remove(name);
    return text;
  }
  ToolRun runTool(const std::string& arguments, const std::string& input = "") const {
    const std::string in = directory_ + ".in", out = directory_ + ".out", err = directory_ + ".err";
    writeFile(in, input);
    const std::string streams = " <'" + in + "' >'" + out + "' 2>'" + err + "' ";
    const int status = std::system(shellCommand("'" ZORREG_PATH "'" + streams + arguments).c_str());
    std::filesystem::remove(in);
    return {exitStatus(status), takeText(out), takeText(err)};
  }
  void expectSteps(const std::string& prefix, const std::vector<ToolStep>& steps) const {
    for (const ToolStep& step : steps) {
      SCOPED_TRACE(step.arguments);
      const ToolRun run = runTool(prefix + step.arguments, step.input);
      EXPECT_EQ(run.status, step.status) << run.error;
      EXPECT_EQ(run.output, step.output);
      EXPECT_NE(run.error.find(step.error), std::string::npos) << run.error;
      EXPECT_TRUE(run.status == 0 || !run.error.empty()) << "a failure is explained";
    }
  }
  // Runs the steps on a registry of these bytes, which it must become in the end.
  void expectChange(const std::string& before, const std::string& command,
                    const std::vector<ToolStep>& steps, const std::string& after) {
    writeFile(registry(), before);
    expectSteps(command + " " + registry() + " ", steps);
    EXPECT_EQ(readFile(registry()), after);
  }
  void expectFound(int status, const std::string& part) {
    const ToolRun run = runTool("check " + registry());
    EXPECT_EQ(run.status, status);
    EXPECT_NE(run.output.find(part), std::string::npos) << run.output;
  }
  const std::string a_ = frame(variable("a", 1));
};

TEST_F(ToolTest, ChangesRecordsOfEachKindAndLeavesOtherKindsAlone) {
  expectChange(
      a_, "bin",
      {{"set a 2 --comment 'two words' --if-value 1", 0},
       {"import", 0, "", "", "# a comment\r\n  d   4 \r\n"},
       {"list", 0, "a                         2  two words\nd                         4\n"},
       {"unset d", 0},
       {"unset b", exitNotFound, "", "GENREG_RC_NOT_FOUND"},
       {"get a --json", 0,
        "{\n  \"Variable\": \"a\",\n  \"Value\": 2,\n  \"Comment\": \"two words\"\n}\n"}},
      frame(variable("a", 2, "two words")));
  expectChange("# gr\xC3\xB6\xC3\x9F\n  HOME\t= /opt # \xC3\x9F\nX=\"a  b\"\n", "var",
               {{"list", 0, "HOME  /opt    \xC3\x9F\nX     \"a  b\"\n"},
                {"set HOME '/usr lib'", 0},
                {"unset X", 0}},
               "# gr\xC3\xB6\xC3\x9F\n  HOME\t= /usr lib # \xC3\x9F\n");
  expectChange("ssh 22/tcp\ndomain\t53/udp # names\n", "services",
               {{"find 53", 0, "domain  53/udp    names\n"},
                {"add web 80/tcp www --comment text", 0},
                {"remove domain 53/udp", 0}},
               "ssh 22/tcp\nweb  80/tcp  www # text\n");
  const std::string global = framed(stored(4, 0x3, {text("S"), text("V")}));
  expectChange("", "global --file",
               {{"add --type variable Service=S Variable=W", 0},
                {"change --type variable Variable=W --to Variable=V", 0},
                {"list", 0, "variable  Service=S  Variable=V\n"}},
               global);
  for (const char* other : {"bin", "var", "services"})
    expectChange(global, other, {{"list", exitFailed, "", "kind global"}}, global);
  EXPECT_EQ(files(), "r");
}

TEST_F(ToolTest, SeesWhatIsBesideARegistryAndWaitsForNobodyWhereItIsTold) {
  writeFile(registry(), a_);
  TestRegistry holder(registry());
  ASSERT_EQ(holder.BeginUpdate(), 0u);
  expectSteps("bin " + registry() + " ",
              {{"set a 1 --no-wait", exitBusy, "", "GENREG_RC_BUSY"}, {"get a", 0, "1\n"}});
  expectFound(0, "  running: ");
  ASSERT_EQ(holder.AbandonUpdate(), 0u);
  expectFound(0, ": bin, 1 records: clean\n");
  writeFile(lockFile(), "left");
  expectFound(0, "takes the lock over");
  const std::string repaired =
      registry() + ": 1 records kept; 4 bytes left out, the first at offset " +
      "40\nthe original is now " + corrupt() + ", which the next update deletes\n";
  writeFile(registry(), a_ + "torn");
  expectFound(exitFailed, "offset 40: GENREG_RC_READ_FAILED");
  expectSteps("bin " + registry() + " ", {{"repair", 0, repaired}});
  EXPECT_EQ(readFile(registry()), a_);
  EXPECT_EQ(readFile(corrupt()), a_ + "torn");
}

TEST_F(ToolTest, ReadsAnExportWithReturnsAndNamesTheNearestWord) {
  writeFile(registry(),
            "Windows Registry Editor Version 5.00\r\n\r\n"
            "[HKEY_LOCAL_MACHINE\\SOFTWARE\\A]\r\n\"Text\"=\"C:\\\\b\"\r\n");
  expectSteps("", {{"export-file " + registry() + " get HKLM/SOFTWARE/A text", 0, "C:\\b\n"},
                   {"srvices", exitUsage, "", "did you mean services?"}});
}

}  // namespace
