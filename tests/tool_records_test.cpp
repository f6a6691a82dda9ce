// zorreg bin, global, var and services: what each verb prints and writes, and the status it exits
// with. What the README, the demo and the checks of the Windows build show is run there.
#include <cstring>
#include <iomanip>
#include <sstream>

#include "support/stored_record.h"
#include "support/tool.h"

namespace {

class RecordsTool : public RegistryTest {
 protected:
  // Runs the steps on a registry of these bytes.
  void expectOn(const std::string& bytes, const std::string& command,
                const std::vector<ToolStep>& steps) {
    writeFile(registry(), bytes);
    expectSteps(command + " " + registry() + " ", steps);
  }
};

const std::string global36 = framed(stored(4, 0x3, {text("S"), text("VVVVV")}));

TEST_F(RecordsTool, BinChangesEveryOneOfANameAndSaysHowItWent) {
  const std::vector<ToolStep> steps{
      {"list", 1, "", registry() + ": the registry file cannot be opened: the file does not exist"},
      {"set a 1 --comment 'first one'", 0},
      {"set a 2", 0},
      {"set a 2 --comment changed", 0},
      {"get a --json", 0,
       "{\n  \"Variable\": \"a\",\n  \"Value\": 2,\n  \"Comment\": \"changed\"\n}\n"},
      {"import", 0, "", "", "c 3\n# a comment\n\n  d   4 \n"},
      {"import", 2, "", "line 2", "e 5\nf six\n"},
      {"unset b", 1, "", "GENREG_RC_NOT_FOUND"},
      {"set sixteen_letters_ 1", 2, "", "at most 15"},
      {"set a 2147483648", 2, "", "whole number"},
      {"set '' 1", 2, "", "NAME: must not be empty"},
  };
  expectSteps("bin " + registry() + " ", steps);
  expectSteps("bin '' ", {{"list", 2, "", "FILE: must not be empty"}});
  // Names that another program stored twice; each keeps its comment.
  const std::string line = "a                         2\n";
  expectOn(frame(variable("a", 1)) + frame(variable("a", 2)) + frame(variable("a", 1, "x")), "bin",
           {{"set a 2", 0}, {"list", 0, line + line + "a                         2  x\n"}});
  expectOn(frame(variable("a", 1)) + frameBytes(36, "torn"), "bin",
           {{"list", 3, "a                         1\n", "GENREG_RC_READ_FAILED (0x900001CD)"},
            {"list --json", 3, "", registry()}});
  EXPECT_EQ(files(), "r");
}

TEST_F(RecordsTool, AnOutputThatIsFullAndAnInputThatCannotBeReadAreReported) {
  SKIP_WITHOUT(Need::Devices);
  expectOn(frame(variable("a", 1)), "bin", {{"list >/dev/full", 3}, {"import </", 3}});
}

TEST_F(RecordsTool, ARegistryOfAnotherKindIsNotTouched) {
  const std::string bin = frame(variable("a", 1));
  const std::string services = "# x\nftp 21/tcp www=x\nhttp\t80/tcp # a=b\n";
  const char* const updates[][2] = {{"bin", "set z 1"},
                                    {"global --file", "add --type services Service=Z"},
                                    {"var", "set z 1"},
                                    {"services", "add z 1/tcp"}};
  const struct {
    std::string bytes;
    const char* mayBe;  // b, g, v, s
    const char* reason;
  } cases[] = {
      {bin, "b", "kind bin"},
      {bin.substr(0, 20), "b", "kind bin"},
      {global36, "g", "kind global"},
      {framed(stored(8, 0x1, {text("S")})), "g", "kind global"},  // of a newer writer
      {"A = 1\nB=2 # 80/tcp\n", "v", "kind var"},
      {services, "s", "kind services"},
      {services + "A = 1\n", "vs", "looks like a text"},
      {"# x\n\nodd\nodd line\n", "vs", "looks like a text"},
      {std::string("A\0=\0001\0\n\0", 8), "bg", "holds bytes that no text has"},
      {"", "bgvs", "looks"},
  };
  for (const auto& row : cases) {
    for (const auto& [kind, update] : updates) {
      SCOPED_TRACE(row.bytes + " as " + kind);
      clearDirectory();
      writeFile(registry(), row.bytes);
      const ToolRun run = runTool(std::string(kind) + " " + registry() + " " + update);
      const bool refused = std::strchr(row.mayBe, *kind) == nullptr;
      EXPECT_EQ(run.error.find(row.reason) != std::string::npos, refused) << run.error;
      if (!refused) continue;
      EXPECT_EQ(run.status, 3);
      EXPECT_EQ(readFile(registry()), row.bytes);
      EXPECT_EQ(files(), "r") << "nothing is written beside it";
    }
  }
  expectOn(bin, "bin --big-endian", {{"set z 1", 3, "", "low byte first"}});
  expectOn(std::string(3, '\0') + "\x24" + bin.substr(4), "bin", {{"list", 3, "", "high byte"}});
  // A commit that a crash cut short left the registry under its backup name.
  (void)std::remove(registry().c_str());
  writeFile(backup(), bin);
  expectSteps("var " + registry() + " ", {{"list", 3, "", "kind bin"}});
}

TEST_F(RecordsTool, GlobalChangesWhatWasAskedForAndReportsNothingElseAsDone) {
  // A newer writer's record, with a field of its own.
  const std::string newer = framed(stored(4, 0x13, {text("ZOR"), text("NEW"), entry("??")}));
  const std::vector<ToolStep> steps{
      {"add --type instance Service=ZOR InstanceName=one VersionCode=9.1.0.2 Usage=x", 0},
      {"add --type instance InstanceName=one", 4, "", "GENREG_RC_DUPLICATE (0x900001F1)"},
      {"add --type instance InstanceName=two Usage=x", 0},
      {"add --type services Service=ZOR InstallPath=/opt/zor Byte1=255", 0},
      {"change --type variable Variable=NEW --to 'Value=a b'", 0},
      // One that matches is so already, another is not.
      {"change --type instance Usage=x --to Service=ZOR", 3, "", "GENREG_RC_AMBIGUOUS"},
      {"change --type instance InstanceName=two --to InstanceName=one", 4, "",
       "another record has the new identity"},
      {"change --type instance InstanceName=two --to StartAtBoot=0", 0},
      {"change --type instance InstanceName=two --to Maintenance=1 InstanceName=2", 0},
      {"get --type instance StartAtBoot=0", 0,
       "instance  InstanceName=2  Usage=x  StartAtBoot=0  Maintenance=1\n"},
      {"delete --type instance InstanceName=2 Usage=", 2, "", "Usage has no value"},
      {"delete --type instance InstanceName=one InstanceName=2", 2, "", "given twice"},
      {"delete --type instance", 2, "", "at least one"},
      {"get --type instance Maintenance=0", 1, "", "GENREG_RC_NOT_FOUND"},
      {"change --type instance InstanceName=one --to VersionCode=10 Usage=", 0},
      // Without its service a variable is another one.
      {"add --type variable Variable=NEW", 0},
      {"add --type variable Variable=NEW Value=1", 4, "", "GENREG_RC_DUPLICATE"},
      {"list", 0,
       "variable  Service=ZOR  Variable=NEW  Value=\"a b\"  Field0x10=0x3f3f\n"
       "instance  Service=ZOR  VersionCode=10.0.0.0  InstanceName=one\n"
       "instance  InstanceName=2  Usage=x  StartAtBoot=0  Maintenance=1\n"
       "services  Service=ZOR  InstallPath=/opt/zor  Byte1=255\n"
       "variable  Variable=NEW\n"},
      {"delete --type variable Variable=NEW", 0},
      {"add --type instance StartAtBoot=2", 2, "", "from 0 to 1"},
      {"add --type instance VersionCode=1.2.3.4.5", 2, "", "four numbers"},
      {"add --type instance Nothing=2", 2, "", "which has Service VersionCode"},
  };
  expectOn(newer, "global --file", steps);
  EXPECT_NE(readFile(registry()).find(entry("??")), std::string::npos);
  EXPECT_EQ(runTool("global --file '' list").status, 2);
}

TEST_F(RecordsTool, VarChangesAWholeLineOrSaysWhatIsOddAboutIt) {
  const struct {
    std::string before;
    const char* arguments;
    std::string after;        // the same: refused
    const char* reason = "";  // and why
  } cases[] = {
      {"A = 1 # x\nA = 2 # y\n", "set A 3", "A = 3 # x\nA = 3 # y\n"},
      {"A = 1 # x\nA = 1 # y\n", "set A 1 --comment x", "A = 1 # x\nA = 1 # x\n"},
      {"A = 1 #  two blanks\n", "set A 2", "A = 2 #  two blanks\n"},
      {"D = C:\\\nA = 1 # '\n# A=0\n", "set D 2", "D = 2\nA = 1 # '\n# A=0\n"},
      {"D = C:\\\nA = 1 # '\n# A=0\n", "unset A", "D = C:\\\n# A=0\n"},
      {"A=1 \\\n  2\n", "set A 3", "A=3\n"},
      {"A=1 \\\n2\nB=1 \\\n2\n", "unset A", "B=1 \\\n2\n"},
      {"D=C:\\\nE=\nA=1 \\\n  2\n", "set A 3", "", ", line 3: it goes on in the next line"},
      {"D=C:\\\nE=\nB=1 \\\n  A=2\n", "unset A", "", "line 4: it continues the line before"},
      {"\nexport A=1\n", "set A 2", "", "line 2: 'export' stands before"},
      {"declare -x A=1\nA=1\n", "unset A", "", "line 1: 'declare -x' stands before"},
      {"\xEF\xBB\xBF"
       "A=1\n",
       "set A 2", "", "line 1: a byte order mark"},
      {"A=\"a # b\"\n", "set A 2", "", "line 1: its quotes do not close"},
      {"A = 'a # b'\n", "unset A", "", "line 1: its quotes do not close"},
      {"A = " + std::string(3000, 'x') + "\n", "set A 2", "", "line 1: it is longer"},
      {std::string("A = 1\0junk\nB = 2\n", 17), "set A 2", "", "line 1: it holds a NUL"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.before.substr(0, 40) + row.arguments);
    const bool refused = row.after.empty();
    expectOn(row.before, "var", {{row.arguments, refused ? 3 : 0, "", row.reason}});
    EXPECT_EQ(readFile(registry()), refused ? row.before : row.after);
  }
}

TEST_F(RecordsTool, VarKeepsWhatItWasNotAskedToChange) {
  const std::string head = "# gr\xC3\xB6\xC3\x9F\n  HOME\t= /";
  const std::string tail = " # \xC3\x9F\nodd\n";
  const std::vector<ToolStep> steps{
      {"list", 0, "HOME  /opt    \xC3\x9F\nX     \"a  b\"\n"},
      {"set HOME /usr", 0},
      {"set N 42 --comment changed", 0},
      {"set C 1 --compact", 0},
      {"get N --type uint --json", 0,
       "{\n  \"Variable\": \"N\",\n  \"Value\": 42,\n  \"Comment\": \"changed\"\n}\n"},
      {"get HOME --type sint", 3, "", "zorreg: '/usr': the value of HOME is no sint"},
      {"unset NONE", 1, "", "GENREG_RC_NOT_FOUND"},
      {"unset X", 0},
      {"set A '1#2'", 2, "", "would start the comment"},
      {"set A 'a  b'", 2, "", "double quotes"},
      {"set A '\"open'", 2, "", "second double quote"},
      {"set 'A B' 1", 2, "", "one word"},
  };
  expectOn(head + "opt" + tail + "X=\"a  b\"\n", "var", steps);
  EXPECT_EQ(readFile(registry()), head + "usr" + tail + "N = 42 # changed\nC=1\n");
}

TEST_F(RecordsTool, ServicesKeepsWhatItWasNotAskedToChange) {
  const std::string kept = "# head\nssh 22/tcp\ndomain\t53/tcp\n";
  const std::string twice = "dup 1/tcp\ndup 2/tcp\nodd\n";
  const std::vector<ToolStep> steps{
      {"find 53", 0, "domain  53/tcp\ndomain  53/udp    names\n"},
      {"find nothing", 1, "", "GENREG_RC_NOT_FOUND"},
      {"add web 8080/tcp www http --comment text", 0},
      {"add web 8081/tcp", 4, "", "GENREG_RC_DUPLICATE"},
      {"change web 80/tcp", 0},
      {"change web 80/tcp other", 0},
      {"find other", 0, "web  80/tcp  other  text\n"},
      {"change dup 2/tcp", 3, "", "GENREG_RC_AMBIGUOUS"},
      {"remove domain", 3, "", "GENREG_RC_AMBIGUOUS"},
      {"remove domain ''", 2, "", "PORT/PROTOCOL: must not be empty"},
      {"remove domain 53/udp", 0},
      {"add x 0/tcp", 2, "", "from 1 to 65535"},
      {"add x 5/icmp", 2, "", "tcp, udp"},
      {"add x 5/tcp 'a b'", 2, "", "one word"},
  };
  expectOn(kept + "domain\t53/udp # names\n" + twice, "services", steps);
  EXPECT_EQ(readFile(registry()), kept + twice + "web 80/tcp  other # text\n");
}

TEST_F(RecordsTool, RepairKeepsWhatIsWholeAndSetsTheOriginalAside) {
  const std::string a = frame(variable("a", 1));
  const std::string bad = framed(stored(4, 0x3, {text("S")}));
  std::ostringstream json;
  json << "{\n  \"file\": " << std::quoted(registry())
       << ",\n  \"kept\": 1,\n  \"dropped\": 1,\n  \"bytesLeftOut\": 4,\n"
       << "  \"firstDamage\": 6,\n  \"original\": " << std::quoted(corrupt())
       << ",\n  \"gaps\": [\n    {\n      \"offset\": 6,\n      \"length\": 4\n    }\n  ]\n}\n";
  const std::string aside =
      "\nthe original is now " + corrupt() + ", which the next update deletes\n";
  const std::string whole = registry() + ": 1 records kept; ";
  expectOn(a + a.substr(0, 20), "bin",
           {{"repair", 0, whole + "20 bytes left out, the first at offset 40" + aside},
            {"repair", 0, whole + "nothing to repair\n"}});
  EXPECT_EQ(readFile(registry()), a);
  EXPECT_EQ(readFile(corrupt()), a + a.substr(0, 20));
  expectOn(global36 + bad, "global --file",
           {{"repair", 0,
             registry() + ": 2 records kept; nothing to repair\nit holds records that cannot be "
                          "read: --drop-unreadable leaves them out\n"},
            {"repair --drop-unreadable", 0,
             whole + "32 bytes left out, the first at offset 40, among them 1 that cannot be read" +
                 aside}});
  EXPECT_EQ(readFile(registry()), global36);
  expectOn("A = 1\nodd\n", "var", {{"repair --drop-unreadable --json", 0, json.str()}});
  EXPECT_EQ(readFile(registry()), "A = 1\n");
}

TEST_F(RecordsTool, ImportsAllLinesOrNone) {
  const std::string bin = "bin " + registry() + " ";
  const auto input = [](const std::string& text) {
    ToolStep step{"import", 0};
    step.input = text;
    return step;
  };
  expectSteps(bin, {input("# c\n\nA 1\n B 2\r\n"),
                    input("B 3\nC 4\nA 1"),
                    {"import", 2, "", "Value is a whole number", "A 9\nA x\n"},
                    {"import", 2, "", "line 1: no NAME VALUE", "A\n"},
                    {"get A", 0, "1\n"},
                    {"get B", 0, "3\n"}});
  EXPECT_EQ(readFile(registry()),
            frame(variable("A", 1)) + frame(variable("B", 3)) + frame(variable("C", 4)));
  const struct {
    const char *kind, *before, *lines, *after, *wrong;
  } cases[] = {
      {"var", "# top\nA = 1 # old\n", "B=2\nA = x y # new\n", "# top\nA = x y # new\nB = 2\n",
       "B 2\n"},
      {"var", "A = 1 # a\x01.\n", "A = 2\n", "A = 2 # a\x01.\n", "= 1\n"},
      {"services", "web\t\t80/tcp\t\twww\n", "web 81/tcp\nftp 21/tcp f g # c\n",
       "web\t\t81/tcp\t\twww\nftp\t\t21/tcp\t\tf g\t\t# c\n", "web 81\n"},
  };
  for (const auto& row : cases) {
    writeFile(registry(), row.before);
    const std::string command = row.kind + (" " + registry() + " ");
    ToolStep wrong{"import", 2, "", "standard input, line 1"};
    wrong.input = row.wrong;
    expectSteps(command, {wrong, input(row.lines), input(row.lines)});
    EXPECT_EQ(readFile(registry()), row.after);
  }
  writeFile(registry(), "");
  expectSteps(
      "global --file " + registry() + " ",
      {input("instance InstanceName=I \"Comment=a b\"\nservices Service=S\n"),
       input("instance InstanceName=I Usage=u\n"),
       {"import", 2, "", "line 1 is not done", "x Service=S\n"},
       {"list", 0, "instance  InstanceName=I  Usage=u  Comment=\"a b\"\nservices  Service=S\n"}});
}

TEST_F(RecordsTool, ChangesOnlyWhatIsAsTheConditionSaysAndWaitsAsLongAsItIsTold) {
  writeFile(registry(), frame(variable("A", 1)));
  expectSteps("bin " + registry() + " ", {{"set A 2 --if-value 1", 0},
                                          {"set A 3 --if-value 1", 4, "", "A is 2, not 1"},
                                          {"set A 3 --if-absent", 4, "", "A is there already"},
                                          {"set B 3 --if-present", 1, "", "NOT_FOUND"},
                                          {"set B 3 --if-value 3", 1, "", "NOT_FOUND"},
                                          {"set B 3 --if-absent", 0},
                                          {"set B 4 --wait 2x", 2, "", "whole seconds"},
                                          {"set B 4 --wait 2 --no-wait", 2, "", "are given"}});
  const std::string before = readFile(registry());
  TestRegistry holder(registry());
  ASSERT_EQ(holder.BeginUpdate(), 0u);
  expectSteps("bin " + registry() + " ", {{"unset A --no-wait", 5, "", "GENREG_RC_BUSY"},
                                          {"set A 1 --wait 0", 5, "", "another holder"},
                                          {"import --no-wait", 5, "", "GENREG_RC_BUSY"},
                                          {"repair --no-wait", 5, "", "GENREG_RC_BUSY"},
                                          {"get A", 0, "2\n"}});
  EXPECT_EQ(holder.AbandonUpdate(), 0u);
  EXPECT_EQ(readFile(registry()), before);
}

}  // namespace
