// zorreg bin, global, var and services: what each verb prints and writes, and the status it exits
// with.
#include "support/stored_record.h"
#include "support/tool.h"

namespace {

class RecordsTool : public RegistryTest {};

TEST_F(RecordsTool, EachVerbOfBinDoesItsWorkAndSaysHowItWent) {
  const std::string file = registry();
  const std::string damaged = path("damaged");
  writeFile(damaged, frameBytes(1000, "torn"));
  const std::vector<ToolStep> steps{
      {"list", 1, "", "zorreg: GENREG_RC_NO_FILE (0x90000513): the registry file does not exist"},
      {"get a", 1, "", "GENREG_RC_NO_FILE"},
      {"unset a", 1, "", "GENREG_RC_NO_FILE"},
      {"set a 1 --comment 'first one'", 0},
      {"set b -5", 0},
      {"set a 2", 0},
      {"set a 2", 0},
      {"set a 2 --comment changed", 0},
      {"get a --json", 0,
       "{\n  \"name\": \"a\",\n  \"value\": 2,\n  \"comment\": \"changed\"\n}\n"},
      {"get a", 0, "2\n"},
      {"get c", 1, "", "zorreg: GENREG_RC_NOT_FOUND (0x900001F6): no record matches the key"},
      {"import", 0, "", "", "c 3\n# a comment\n\n  d   4 \n"},
      {"import", 2, "", "line 2", "e 5\nf six\n"},
      {"unset b", 0},
      {"unset b", 1, "", "GENREG_RC_NOT_FOUND"},
      {"list", 0,
       "a                         2  changed\n"
       "c                         3\n"
       "d                         4\n"
       "e                         5\n"},
      {"set sixteen_letters_ 1", 2, "", "at most 15"},
      {"set a 2147483648", 2, "", "whole number"},
      {"set a", 2, "", "VALUE"},
      {"frobnicate", 2},
      {"", 2},
      {"unset a", 0},
      {"unset c", 0},
      {"dump", 0,
       "   Variable = |d|\n   Value    = 4\n   Comment  = ||\n"
       "   Variable = |e|\n   Value    = 5\n   Comment  = ||\n"},
  };
  expectSteps("bin " + file + " ", steps);
  const ToolRun failed = runTool("bin " + damaged + " list");
  EXPECT_EQ(failed.status, 3);
  EXPECT_NE(failed.error.find("GENREG_RC_READ_FAILED (0x900001CD)"), std::string::npos);
  EXPECT_NE(failed.error.find(damaged), std::string::npos);
  // Names that another program stored twice.
  writeFile(registry(),
            frame(variable("a", 1)) + frame(variable("a", 2)) + frame(variable("a", 3)));
  const std::string line = "a                         2\n";
  expectSteps("bin " + file + " ", {{"set a 2", 0}, {"list", 0, line + line + line}});
  EXPECT_EQ(files(), "damaged r");
}

TEST_F(RecordsTool, AnOutputThatIsFullAndAnInputThatCannotBeReadAreTold) {
  SKIP_WITHOUT(Need::Devices);
  writeFile(registry(), frame(variable("a", 1)));
  expectSteps("bin " + registry() + " ", {{"list >/dev/full", 3}, {"import </", 3}});
}

TEST_F(RecordsTool, EachVerbOfGlobalDoesItsWorkAndSaysHowItWent) {
  // A newer writer's record, with a field of its own.
  writeFile(registry(), framed(stored(4, 0x13, {text("ZOR"), text("NEW"), entry("??")})));
  const std::vector<ToolStep> steps{
      {"add --type instance Service=ZOR InstanceName=one VersionCode=9.1.0.2 StartAtBoot=1", 0},
      {"add --type instance InstanceName=one", 3, "", "GENREG_RC_DUPLICATE (0x900001F1)"},
      {"add --type services Service=ZOR InstallPath=/opt/zor Byte1=255", 0},
      {"list", 0,
       "variable  Service=ZOR  Variable=NEW  unknown field 0x10\n"
       "instance  Service=ZOR  VersionCode=9.1.0.2  InstanceName=one  StartAtBoot=1\n"
       "services  Service=ZOR  InstallPath=/opt/zor  Byte1=255\n"},
      {"change --type variable Variable=NEW --to 'Value=a b'", 0},
      {"change --type instance InstanceName=one --to VersionCode=10 StartAtBoot=", 0},
      {"get --type variable Variable=NEW", 0,
       "variable  Service=ZOR  Variable=NEW  Value=\"a b\"  unknown field 0x10\n"},
      {"get --type instance InstanceName=one --json", 0,
       "{\n  \"type\": \"instance\",\n  \"fields\": {\n    \"Service\": \"ZOR\",\n"
       "    \"VersionCode\": \"10.0.0.0\",\n    \"InstanceName\": \"one\"\n  },\n"
       "  \"unknownFields\": [],\n  \"checkSum\": 0\n}\n"},
      {"list --type services --json", 0,
       "[\n  {\n    \"type\": \"services\",\n    \"fields\": {\n      \"Service\": \"ZOR\",\n"
       "      \"InstallPath\": \"/opt/zor\",\n      \"Byte1\": 255\n    },\n"
       "    \"unknownFields\": [],\n    \"checkSum\": 0\n  }\n]\n"},
      {"get --type instance InstanceName=two", 1, "", "GENREG_RC_NOT_FOUND (0x900001F6)"},
      {"delete --type services Service=ZOR", 0},
      {"delete --type services Service=ZOR", 1, "", "GENREG_RC_NOT_FOUND"},
      {"add --type instance StartAtBoot=2", 2, "", "from 0 to 1"},
      {"add --type instance VersionCode=1.2.3.4.5", 2, "", "four numbers"},
      {"add --type instance Nothing=2", 2, "", "which has Service VersionCode"},
      {"add --type instance", 2, "", "at least one"},
      {"add Service=ZOR", 2, "", "--type"},
      {"list --type none", 2, "", "none"},
  };
  expectSteps("global --file " + registry() + " ", steps);
  EXPECT_EQ(readFile(registry()).find(entry("??")) != std::string::npos, true);
  EXPECT_EQ(runTool("global --file " + registry() + " dump").output.find("   RecordType   = 4\n"),
            0u);
  EXPECT_EQ(runTool("global --file ''", "").status, 2);
}

TEST_F(RecordsTool, VarSetsEveryLineOfANameAndEachKeepsItsOwnComment) {
  const struct {
    std::string before;
    const char* arguments;
    int status;
    std::string after;
  } cases[] = {
      {"A = 1 # x\nA = 2 # y\n", "A 3", 0, "A = 3 # x\nA = 3 # y\n"},
      {"A = 1 # x\nA = 1 # y\n", "A 1 --comment x", 0, "A = 1 # x\nA = 1 # x\n"},
      {"A = 1 #  two blanks\n", "A 2", 0, "A = 2 #  two blanks\n"},
      {"A = 1\n", "A 1 --comment ' x'", 0, "A = 1 #  x\n"},
      {std::string("A = 1\0junk\nB = 2\n", 17), "A 2", 3, std::string("A = 1\0junk\nB = 2\n", 17)},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.before + row.arguments);
    writeFile(registry(), row.before);
    EXPECT_EQ(runTool("var " + registry() + " set " + row.arguments).status == 0, row.status == 0);
    EXPECT_EQ(readFile(registry()), row.after);
  }
}

TEST_F(RecordsTool, VarKeepsWhatItWasNotAskedToChange) {
  writeFile(registry(),
            "# gr\xC3\xB6\xC3\x9F"
            "e\n  HOME\t= /opt # der gro\xC3\x9F"
            "e\nodd\nX=\"a  b\"\n");
  const std::vector<ToolStep> steps{
      {"list", 0,
       "HOME  /opt    der gro\xC3\x9F"
       "e\nX     \"a  b\"\n"},
      {"get HOME", 0, "/opt\n"},
      {"set HOME /usr", 0},
      {"set N 42 --comment answer", 0},
      {"set N 42 --comment changed", 0},
      {"set C 1 --compact", 0},
      {"get N --type uint --json", 0, "{\n  \"name\": \"N\",\n  \"value\": 42\n}\n"},
      {"get N --type double", 0, "42.0\n"},
      {"get HOME --type sint", 3, "", "zorreg: '/usr': the value of HOME is no sint"},
      {"get NONE", 1, "", "zorreg: GENREG_RC_NOT_FOUND (0x900001F6)"},
      {"unset NONE", 1, "", "GENREG_RC_NOT_FOUND"},
      {"unset X", 0},
      {"set A '1#2'", 2, "", "would start the comment"},
      {"set A 'a  b'", 2, "", "double quotes"},
      {"set A '\"open'", 2, "", "second double quote"},
      {"set 'A B' 1", 2, "", "one word"},
      {"set A \"1\n2\"", 2, "", "one line"},
      {"get N --type float", 2, "", "float"},
  };
  expectSteps("var " + registry() + " ", steps);
  EXPECT_EQ(readFile(registry()),
            "# gr\xC3\xB6\xC3\x9F"
            "e\n  HOME\t= /usr # der gro\xC3\x9F"
            "e\nodd\n"
            "N = 42 # changed\nC=1\n");
  EXPECT_EQ(
      runTool("var " + registry() + " list --json").output.find("[\n  {\n    \"name\": \"HOME\""),
      0u);
  EXPECT_EQ(runTool("var " + path("missing") + " list").status, 1);
  EXPECT_EQ(runTool("var " + registry() + " dump").output.find("Record Dump:\n   Contains = 1\n"),
            0u);
}

TEST_F(RecordsTool, ServicesKeepsWhatItWasNotAskedToChange) {
  const std::string before = "# head\nssh 22/tcp\ndomain\t53/tcp\ndomain\t53/udp # names\nodd\n";
  writeFile(registry(), before);
  const std::vector<ToolStep> steps{
      {"list", 0, "ssh     22/tcp\ndomain  53/tcp\ndomain  53/udp    names\nodd     0/ ?\n"},
      {"find 53", 0, "domain  53/tcp\ndomain  53/udp    names\n"},
      {"find 53/udp", 0, "domain  53/udp    names\n"},
      {"find domain/tcp", 0, "domain  53/tcp\n"},
      {"find nothing", 1, "", "GENREG_RC_NOT_FOUND"},
      {"add web 8080/tcp www http --comment text", 0},
      {"add web 8081/tcp", 3, "", "GENREG_RC_DUPLICATE"},
      {"change web 80/tcp", 0},
      {"change web 80/tcp other", 0},
      {"find other --json", 0,
       "[\n  {\n    \"name\": \"web\",\n    \"port\": 80,\n    \"protocol\": \"tcp\",\n"
       "    \"aliases\": [\n      \"other\"\n    ],\n    \"comment\": \"text\"\n  }\n]\n"},
      {"remove domain", 3, "", "GENREG_RC_AMBIGUOUS"},
      {"remove domain 53/udp", 0},
      {"remove domain 53/udp", 1, "", "GENREG_RC_NOT_FOUND"},
      {"add x 0/tcp", 2, "", "from 1 to 65535"},
      {"add x 5/icmp", 2, "", "tcp, udp"},
      {"add x 5/tcp 'a b'", 2, "", "one word"},
      {"add x", 2, "", "PORT/PROTOCOL"},
  };
  expectSteps("services " + registry() + " ", steps);
  EXPECT_EQ(readFile(registry()),
            "# head\nssh 22/tcp\ndomain\t53/tcp\nodd\nweb\t\t80/tcp\t\tother\t\t# text\n");
  EXPECT_EQ(runTool("services " + registry() + " dump").output.find("   name     = NULL\n"), 0u);
  (void)std::remove(corrupt().c_str());
  (void)std::remove(temporary().c_str());
  EXPECT_EQ(files(), "r");
}

}  // namespace
