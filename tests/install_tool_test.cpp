// zorreg version, copies and instances: what each prints and the status it exits with.
#include "support/machine_fixture.h"
#include "support/tool.h"

namespace {

class InstallTool : public MachineTest {};

TEST_F(InstallTool, EachCommandAnswersForTheExampleMachine) {
  machineOf(ZORGENREG_SOURCE_DIR "/docs/example/machine.reg");
  const std::string headings = "SERVICE  VERSION   COPY   PATH\n";
  expectSteps(
      "", {{"version 9.1.0.0", 0, "9.1.0.0  0x0009000100000000  9010000\n"},
           {"copies", 0,
            headings + "ZOR      9.1.0.0   COPY1  C:\\Program Files\\NUV\\COPY1\n"
                       "ZEM      10.5.3.1  COPY2  D:\\NUV\\COPY2\n"
                       "ZOR      10.5.3.1  COPY2  D:\\NUV\\COPY2\n"
                       "ZOR      8.2.0.7   -      C:\\NUV\\ZOR\n"},
           {"copies find --service ZOR --version 10.5.3.1 --path 'D:\\NUV\\COPY2' --copy COPY2", 0,
            headings + "ZOR      10.5.3.1  COPY2  D:\\NUV\\COPY2\n"},
           {"copies find --service zor", 1, "", "GENREG_RC_SERVICE_INFO (0x90000267)"},
           {"copies find --version x", 2, "", "a version is"},
           {"instances find --name none", 1, "", "GENREG_RC_INSTANCE_INFO (0x90000268)"},
           {"instances --kind zor", 2, "", "zor"},
           {"instances", 0,
            "KIND  INSTANCE  VERSION   COPY   FLAGS      HOST      PATH\n"
            "ZOR   INST1     9.1.0.0   COPY1  autostart  -         D:\\profiles\\INST1\n"
            "ZOR   INST2     9.1.0.0   COPY1  disabled   -         C:\\Program "
            "Files\\NUV\\COPY1\\INST2\n"
            "ZOR   REMOTE1   9.1.0.0   COPY1  remote     NODE2     R:\\profiles\\REMOTE1\n"
            "ZOR   SHARED1   9.1.0.0   COPY1  cluster    CLUSTER1  S:\\shared\\SHARED1\n"
            "ZOR   TEST      10.5.3.1  COPY2  -          -         E:\\test\\TEST\n"
            "ZOR   OLD       8.2.0.7   -      -          -         C:\\NUV\\profiles\\OLD\n"
            "ZEM   ZEM1      10.5.3.1  COPY2  autostart  -         E:\\zem\\ZEM1\n"
            "ZEM   ZEM2      10.5.3.1  COPY2  cluster    CLUSTER1  S:\\zem\\ZEM2\n"},
           {"instances find --kind ZOR --name shared1 --version 9.1 --copy COPY1 --json", 0,
            "{\n  \"kind\": \"ZOR\",\n  \"instanceName\": \"SHARED1\",\n  \"version\": "
            "\"9.1.0.0\",\n  \"versionCode\": \"0x0009000100000000\",\n  \"copyName\": \"COPY1\",\n"
            "  \"installPath\": \"C:\\\\Program Files\\\\NUV\\\\COPY1\",\n  \"instancePath\": "
            "\"S:\\\\shared\\\\SHARED1\",\n  \"flags\": [\n    \"cluster\"\n  ],\n"
            "  \"hostName\": \"CLUSTER1\"\n}\n"}});
}

TEST_F(InstallTool, WhatCannotBeReadIsReportedAndTheRestIsListed) {
  machine(keys("A; A/I1|ZORREMOTEPREG=NONE; A/I2; B//I0; B/I3; C; C/I4"));
  const ToolRun copiesRun = runTool("copies --json");
  EXPECT_EQ(copiesRun.status, 3);
  EXPECT_NE(copiesRun.output.find("\"versionCode\": \"0x0009000100020003\",\n"
                                  "    \"level\": 2,\n    \"copyName\": \"C\",\n"
                                  "    \"installPath\": \"C:\\\\X\"\n"),
            std::string::npos);
  EXPECT_NE(copiesRun.error.find("copy 'B'"), std::string::npos);
  // The list stays at an instance of a copy that cannot be read; the tool must not.
  const ToolRun instancesRun = runTool("instances --kind ZOR");
  EXPECT_EQ(instancesRun.status, 3);
  EXPECT_NE(instancesRun.output.find("C:\\X\\I2"), std::string::npos);
  for (const char* which : {"instance 'I1' of copy 'A'", "instance 'I3' of copy 'B'"})
    EXPECT_NE(instancesRun.error.find(which), std::string::npos);
  machine("");
  expectSteps("",
              {{"copies", 3, "", "GENREG_RC_LIST_OPEN"}, {"instances", 1, "", "KEY_NOT_FOUND"}});
}

TEST_F(InstallTool, AnExportThatIsRefusedIsReportedWithItsLine) {
  machine(keys("A") + "x\n");
  const std::string reason = path("machine.reg") + ", line 9: neither a key, a value nor a comment";
  for (const char* command : {"copies", "instances", "copies find"})
    expectSteps("", {{command, 3, "", reason}});
}

}  // namespace
