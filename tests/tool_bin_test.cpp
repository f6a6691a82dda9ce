// zorreg bin: what each verb prints and the status it exits with.
#include "support/tool.h"

namespace {

class BinToolTest : public RegistryTest {};

TEST_F(BinToolTest, EachVerbDoesItsWorkAndSaysHowItWent) {
  const std::string file = registry();
  const std::string damaged = path("damaged");
  writeFile(damaged, frameBytes(1000, "torn"));
  const struct {
    std::string arguments;
    std::string input;
    int status;
    std::string output;
    std::string error;  // a part of what is on standard error
  } cases[] = {
      {"list", "", 1, "",
       "zorreg: GENREG_RC_NO_FILE (0x90000513): the registry file does not exist"},
      {"get a", "", 1, "", "GENREG_RC_NO_FILE"},
      {"unset a", "", 1, "", "GENREG_RC_NO_FILE"},
      {"set a 1 --comment 'first one'", "", 0, "", ""},
      {"set b -5", "", 0, "", ""},
      {"set a 2", "", 0, "", ""},
      {"set a 2", "", 0, "", ""},
      {"set a 2 --comment changed", "", 0, "", ""},
      {"get a", "", 0, "2\n", ""},
      {"get c", "", 1, "", "zorreg: GENREG_RC_NOT_FOUND (0x900001F6): no record matches the key"},
      {"import", "c 3\n# a comment\n\n  d   4 \n", 0, "", ""},
      {"import", "e 5\nf six\n", 2, "", "line 2"},
      {"unset b", "", 0, "", ""},
      {"unset b", "", 1, "", "GENREG_RC_NOT_FOUND"},
      {"list", "", 0,
       "a                         2  changed\n"
       "c                         3\n"
       "d                         4\n"
       "e                         5\n",
       ""},
      {"set sixteen_letters_ 1", "", 2, "", "at most 15"},
      {"set a 2147483648", "", 2, "", "whole number"},
      {"set a", "", 2, "", "VALUE"},
      {"frobnicate", "", 2, "", ""},
      {"", "", 2, "", ""},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.arguments);
    const ToolRun run = runTool("bin " + file + " " + row.arguments, row.input);
    EXPECT_EQ(run.status, row.status) << run.error;
    EXPECT_EQ(run.output, row.output);
    EXPECT_NE(run.error.find(row.error), std::string::npos) << run.error;
    EXPECT_EQ(run.error.empty(), row.status == 0);
  }
  EXPECT_EQ(runTool("bin " + file + " unset a").status, 0);
  EXPECT_EQ(runTool("bin " + file + " unset c").status, 0);
  EXPECT_EQ(runTool("bin " + file + " dump").output,
            "   Variable = |d|\n   Value    = 4\n   Comment  = ||\n"
            "   Variable = |e|\n   Value    = 5\n   Comment  = ||\n");
  const ToolRun failed = runTool("bin " + damaged + " list");
  EXPECT_EQ(failed.status, 3);
  EXPECT_NE(failed.error.find("GENREG_RC_READ_FAILED (0x900001CD)"), std::string::npos);
  EXPECT_NE(failed.error.find(damaged), std::string::npos);
  // Names that another program stored twice.
  writeFile(registry(),
            frame(variable("a", 1)) + frame(variable("a", 2)) + frame(variable("a", 3)));
  EXPECT_EQ(runTool("bin " + file + " set a 2").status, 0);
  EXPECT_EQ(
      runTool("bin " + file + " list").output,
      "a                         2\na                         2\na                         2\n");
  EXPECT_EQ(runTool("bin " + file + " list >/dev/full").status, 3);
  EXPECT_EQ(runTool("bin " + file + " import </").status, 3);
  EXPECT_EQ(files(), "damaged r");
}

}  // namespace
