// zorreg var and zorreg services: what each verb prints, writes, and exits with.
#include "support/tool.h"

namespace {

class TextToolTest : public RegistryTest {};

struct Step {
  std::string arguments;
  int status;
  std::string output;
  std::string error;  // a part of what is on standard error
};

template <std::size_t Count>
void runSteps(const std::string& prefix, const Step (&steps)[Count]) {
  for (const Step& step : steps) {
    SCOPED_TRACE(step.arguments);
    const ToolRun run = runTool(prefix + " " + step.arguments);
    EXPECT_EQ(run.status, step.status) << run.error;
    EXPECT_EQ(run.output, step.output);
    EXPECT_NE(run.error.find(step.error), std::string::npos) << run.error;
  }
}

TEST_F(TextToolTest, VarKeepsWhatItWasNotAskedToChange) {
  writeFile(registry(),
            "# gr\xC3\xB6\xC3\x9F"
            "e\n  HOME\t= /opt # der gro\xC3\x9F"
            "e\nodd\nX=\"a  b\"\n");
  const Step steps[] = {
      {"list", 0,
       "HOME  /opt    der gro\xC3\x9F"
       "e\nX     \"a  b\"\n",
       ""},
      {"get HOME", 0, "/opt\n", ""},
      {"set HOME /usr", 0, "", ""},
      {"set N 42 --comment answer", 0, "", ""},
      {"set N 42 --comment changed", 0, "", ""},
      {"set C 1 --compact", 0, "", ""},
      {"get N --type uint --json", 0, "{\n  \"name\": \"N\",\n  \"value\": 42\n}\n", ""},
      {"get N --type double", 0, "42.0\n", ""},
      {"get HOME --type sint", 3, "", "zorreg: '/usr': the value of HOME is no sint"},
      {"get NONE", 1, "", "zorreg: GENREG_RC_NOT_FOUND (0x900001F6)"},
      {"unset NONE", 1, "", "GENREG_RC_NOT_FOUND"},
      {"unset X", 0, "", ""},
      {"set A '1#2'", 2, "", "would start the comment"},
      {"set A 'a  b'", 2, "", "double quotes"},
      {"set A '\"open'", 2, "", "second double quote"},
      {"set 'A B' 1", 2, "", "one word"},
      {"set A \"1\n2\"", 2, "", "one line"},
      {"get N --type float", 2, "", "float"},
  };
  runSteps("var " + registry(), steps);
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

TEST_F(TextToolTest, ServicesKeepsWhatItWasNotAskedToChange) {
  const std::string before = "# head\nssh 22/tcp\ndomain\t53/tcp\ndomain\t53/udp # names\nodd\n";
  writeFile(registry(), before);
  const Step steps[] = {
      {"list", 0, "ssh     22/tcp\ndomain  53/tcp\ndomain  53/udp    names\nodd     0/ ?\n", ""},
      {"find 53", 0, "domain  53/tcp\ndomain  53/udp    names\n", ""},
      {"find 53/udp", 0, "domain  53/udp    names\n", ""},
      {"find domain/tcp", 0, "domain  53/tcp\n", ""},
      {"find nothing", 1, "", "GENREG_RC_NOT_FOUND"},
      {"add web 8080/tcp www http --comment text", 0, "", ""},
      {"add web 8081/tcp", 3, "", "GENREG_RC_DUPLICATE"},
      {"change web 80/tcp", 0, "", ""},
      {"change web 80/tcp other", 0, "", ""},
      {"find other --json", 0,
       "[\n  {\n    \"name\": \"web\",\n    \"port\": 80,\n    \"protocol\": \"tcp\",\n"
       "    \"aliases\": [\n      \"other\"\n    ],\n    \"comment\": \"text\"\n  }\n]\n",
       ""},
      {"remove domain", 3, "", "GENREG_RC_AMBIGUOUS"},
      {"remove domain 53/udp", 0, "", ""},
      {"remove domain 53/udp", 1, "", "GENREG_RC_NOT_FOUND"},
      {"add x 0/tcp", 2, "", "from 1 to 65535"},
      {"add x 5/icmp", 2, "", "tcp, udp"},
      {"add x 5/tcp 'a b'", 2, "", "one word"},
      {"add x", 2, "", "PORT/PROTOCOL"},
  };
  runSteps("services " + registry(), steps);
  EXPECT_EQ(readFile(registry()),
            "# head\nssh 22/tcp\ndomain\t53/tcp\nodd\nweb\t\t80/tcp\t\tother\t\t# text\n");
  EXPECT_EQ(runTool("services " + registry() + " dump").output.find("   name     = NULL\n"), 0u);
  (void)std::remove(corrupt().c_str());
  (void)std::remove(temporary().c_str());
  EXPECT_EQ(files(), "r");
}

}  // namespace
