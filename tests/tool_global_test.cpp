// zorreg global: a round of every verb on every type of record.
#include "support/stored_record.h"
#include "support/tool.h"

namespace {

class GlobalToolTest : public RegistryTest {};

TEST_F(GlobalToolTest, EachVerbDoesItsWorkAndSaysHowItWent) {
  // A newer writer's record, with a field of its own.
  writeFile(registry(), framed(stored(4, 0x13, {text("ZOR"), text("NEW"), entry("??")})));
  const struct {
    const char* arguments;
    int status;
    std::string output;
    std::string error;  // a part of what is on standard error
  } steps[] = {
      {"add --type instance Service=ZOR InstanceName=one VersionCode=9.1.0.2 StartAtBoot=1", 0, "",
       ""},
      {"add --type instance InstanceName=one", 3, "", "GENREG_RC_DUPLICATE (0x900001F1)"},
      {"add --type services Service=ZOR InstallPath=/opt/zor Byte1=255", 0, "", ""},
      {"list", 0,
       "variable  Service=ZOR  Variable=NEW  unknown field 0x10\n"
       "instance  Service=ZOR  VersionCode=9.1.0.2  InstanceName=one  StartAtBoot=1\n"
       "services  Service=ZOR  InstallPath=/opt/zor  Byte1=255\n",
       ""},
      {"change --type variable Variable=NEW --to 'Value=a b'", 0, "", ""},
      {"change --type instance InstanceName=one --to VersionCode=10 StartAtBoot=", 0, "", ""},
      {"get --type variable Variable=NEW", 0,
       "variable  Service=ZOR  Variable=NEW  Value=\"a b\"  unknown field 0x10\n", ""},
      {"get --type instance InstanceName=one --json", 0,
       "{\n  \"type\": \"instance\",\n  \"fields\": {\n    \"Service\": \"ZOR\",\n"
       "    \"VersionCode\": \"10.0.0.0\",\n    \"InstanceName\": \"one\"\n  },\n"
       "  \"unknownFields\": [],\n  \"checkSum\": 0\n}\n",
       ""},
      {"list --type services --json", 0,
       "[\n  {\n    \"type\": \"services\",\n    \"fields\": {\n      \"Service\": \"ZOR\",\n"
       "      \"InstallPath\": \"/opt/zor\",\n      \"Byte1\": 255\n    },\n"
       "    \"unknownFields\": [],\n    \"checkSum\": 0\n  }\n]\n",
       ""},
      {"get --type instance InstanceName=two", 1, "", "GENREG_RC_NOT_FOUND (0x900001F6)"},
      {"delete --type services Service=ZOR", 0, "", ""},
      {"delete --type services Service=ZOR", 1, "", "GENREG_RC_NOT_FOUND"},
      {"add --type instance StartAtBoot=2", 2, "", "from 0 to 1"},
      {"add --type instance VersionCode=1.2.3.4.5", 2, "", "four numbers"},
      {"add --type instance Nothing=2", 2, "", "which has Service VersionCode"},
      {"add --type instance", 2, "", "at least one"},
      {"add Service=ZOR", 2, "", "--type"},
      {"list --type none", 2, "", "none"},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(step.arguments);
    const ToolRun run = runTool("global --file " + registry() + " " + step.arguments);
    EXPECT_EQ(run.status, step.status) << run.error;
    EXPECT_EQ(run.output, step.output);
    EXPECT_NE(run.error.find(step.error), std::string::npos) << run.error;
  }
  EXPECT_EQ(readFile(registry()).find(entry("??")) != std::string::npos, true);
  EXPECT_EQ(runTool("global --file " + registry() + " dump").output.find("   RecordType   = 4\n"),
            0u);
  EXPECT_EQ(runTool("global --file ''", "").status, 2);
}

}  // namespace
