// What the exports answer and log when a call fails below them, or an argument is missing.
#include <cerrno>

#include "support/machine_fixture.h"

namespace {

class InstallFailures : public MachineTest {};

std::string zors() { return instances("ZOR"); }
std::string zems() { return instances("ZEM"); }

TEST_F(InstallFailures, GiveTheCodesOfTheirPlaceAndAreLoggedThere) {
  const struct {
    std::string (*list)();
    const char* operation;
    unsigned long call;  // number of its call that fails
    int error;
    const char *answer, *log;
  } cases[] = {
      {copies, "calloc", 1, ENOMEM, "0x90000263", "140.10:0x9000000D;99.20:0x90000263;"},
      {copies, "malloc", 1, ENOMEM, "0x90000263", "140.10:0x9000000D;99.20:0x90000263;"},
      {copies, "RegOpenKeyExA", 1, 2, "0x90000263", "140.20:0x90000282;99.20:0x90000263;"},
      {copies, "RegOpenKeyExA", 1, ENOSPC, "0x90000263",
       "140.10:0x9000000A;140.20:0x9000000A;99.20:0x90000263;"},
      {copies, "RegOpenKeyExA", 2, 5, "ZOR A;ZOR -;end;", ""},
      {copies, "RegOpenKeyExA", 4, 5, "0x90000265 A;ZOR A;ZOR -;end;",
       "144.20:0x00000005;139.70:0x90000267;100.30:0x90000265;"},
      {copies, "RegOpenKeyExA", 5, 5, "ZEM A;0x90000265 A;ZOR -;end;",
       "139.50:0x90000265;100.30:0x90000265;"},
      {copies, "RegOpenKeyExA", 7, 5, "ZEM A;ZOR A;0x90000265 -;end;",
       "139.20:0x00000005;100.30:0x90000265;"},
      {copies, "RegOpenKeyExA", 8, 5, "ZEM A;ZOR A;end;", "145.30:0x00000005;139.50:0x900001BE;"},
      {copies, "RegEnumKeyExA", 1, 5, "0x90000265 -;ZOR -;end;",
       "139.30:0x90000265;100.30:0x90000265;"},
      {copies, "RegQueryInfoKeyA", 1, 5, "ZOR A;ZOR -;end;", ""},
      {copies, "RegQueryValueExA", 4, 5, "0x90000265 A;ZOR A;ZOR -;end;",
       "139.50:0x90000265;100.30:0x90000265;"},
      {copies, "RegQueryValueExA", 10, 5, "ZEM A;0x90000265 A;ZOR -;end;",
       "139.70:0x90000267;100.30:0x90000265;"},
      {zors, "calloc", 1, ENOMEM, "0x9000000D", "135.5:0x9000000D;102.30:0x9000000D;"},
      {zors, "RegOpenKeyExA", 1, 2, "L - C:\\D\\L 0 -;end;", ""},
      {zors, "RegOpenKeyExA", 1, ENOSPC, "0x9000000A",
       "135.10:0x9000000A;135.10:0x9000000A;102.30:0x9000000A;"},
      {zors, "RegOpenKeyExA", 2, 5, "0x90000263", "135.30:0x90000263;102.30:0x90000263;"},
      {zors, "RegOpenKeyExA", 3, 5, "L - C:\\D\\L 0 -;end;", ""},
      {zors, "RegOpenKeyExA", 5, 5, "0x90000266 I A;I A C:\\X\\I 0 -;L - C:\\D\\L 0 -;end;",
       "144.20:0x00000005;138.30:0x90000268;103.30:0x90000266;"},
      {zors, "RegOpenKeyExA", 6, 2, "0x90000266 I A;I A C:\\X\\I 0 -;L - C:\\D\\L 0 -;end;",
       "138.40:0x90000282;103.30:0x90000266;"},
      {zors, "RegOpenKeyExA", 6, ENOSPC, "0x90000266 I A;I A C:\\X\\I 0 -;L - C:\\D\\L 0 -;end;",
       "138.10:0x9000000A;138.40:0x9000000A;103.30:0x90000266;"},
      {zors, "RegOpenKeyExA", 7, 5, "I A C:\\X\\I 0 -;0x90000266 - -;end;",
       "142.30:0x00000005;138.10:0x90000266;103.30:0x90000266;"},
      {zors, "RegOpenKeyExA", 8, 2, "I A C:\\X\\I 0 -;end;", ""},
      {zors, "RegOpenKeyExA", 8, 5, "I A C:\\X\\I 0 -;0x90000266 - -;end;",
       "138.10:0x90000266;103.30:0x90000266;"},
      {zors, "RegOpenKeyExA", 9, 5, "I A C:\\X\\I 0 -;end;",
       "145.30:0x00000005;138.20:0x900001BE;"},
      {zors, "RegEnumKeyExA", 1, 5, "0x90000263", "135.30:0x90000263;102.30:0x90000263;"},
      {zors, "RegEnumKeyExA", 3, 5, "I A C:\\X\\I 0 -;0x90000266 - A;L - C:\\D\\L 0 -;end;",
       "138.20:0x90000266;103.30:0x90000266;"},
      {zors, "RegEnumKeyExA", 4, 5, "I A C:\\X\\I 0 -;0x90000266 - -;end;",
       "138.10:0x90000266;103.30:0x90000266;"},
      {zors, "RegQueryValueExA", 1, 5, "0x90000266 I A;I A C:\\X\\I 0 -;L - C:\\D\\L 0 -;end;",
       "138.20:0x90000268;103.30:0x90000266;"},
      {zors, "OpenSCManagerA", 1, 5, "I A C:\\X\\I 0 -;L - C:\\D\\L 0 -;end;", ""},
      {zems, "RegOpenKeyExA", 3, 2, "0x90000282", "135.30:0x90000282;102.30:0x90000282;"},
  };
  machine(copyKeys("A") + instanceKey("A", "I") + instanceKey("A", "Z", "", "ZEM_PROFILES") +
          defaultKeys("8") + instanceKey("", "L"));
  for (const auto& row : cases) {
    SCOPED_TRACE(std::string(row.operation) + " " + std::to_string(row.call));
    const FaultPlan plan(row.call, row.error, false, row.operation);
    const FailureLog log;
    EXPECT_EQ(row.list(), row.answer);
    EXPECT_EQ(log.failures, row.log);
    EXPECT_GE(plan.calls(), row.call);
  }
}

// Each row makes one call on an open list of copies and one of instances.
TEST_F(InstallFailures, OfTheCallerAndOfReleasingAListHaveTheirCodes) {
  machine(copyKeys("A") + instanceKey("A", "I"));
  void *copyList = nullptr, *instanceList = nullptr, *untouched = this;
  ASSERT_EQ(ossOpenServiceList(&copyList) + ossOpenInstanceList("ZOR", &instanceList), 0u);
  OSSServiceInfo_t copy;
  OSSInstanceInfo_t instance;
  const struct {
    Code code, answer;
  } cases[] = {
      {0x90000263, ossOpenServiceList(nullptr)},
      {0x90000263, ossOpenInstanceList("ZOR", nullptr)},
      {0x90000263, ossOpenInstanceList("zor", &untouched)},
      {0x90000280, ossOpenInstanceList(nullptr, &untouched)},
      {0x90000282, ossOpenInstanceList("ZEM", &untouched)},
      {0x90000262, ossGetNextService(nullptr, &copy)},
      {0x90000260, ossGetNextService(copyList, nullptr)},
      {0x90000262, ossGetNextInstance(nullptr, &instance)},
      {0x90000261, ossGetNextInstance(instanceList, nullptr)},
      {0x90000262, ossCloseServiceList(nullptr)},
      {0x90000262, ossCloseInstanceList(nullptr)},
      {0x90000260, ossGetServiceInfo(nullptr, 0, nullptr, nullptr)},
      {0x90000261, ossGetInstanceInfo(nullptr, 0, nullptr, nullptr)},
      {0x90000260, ossSetServiceInfo(nullptr)},
      {0x90000261, ossSetInstanceInfo(nullptr)},
      {0x90000005, ossSetServiceInfo(&copy)},
      {0x90000005, ossSetInstanceInfo(&instance)},
      {0x90000005, ossRemoveServiceInfo("ZOR", 0)},
      {0x90000005, ossRemoveInstanceInfo("ZOR", 0, "I")},
  };
  for (const auto& row : cases) EXPECT_EQ(row.answer, row.code) << "row " << &row - cases;
  EXPECT_EQ(untouched, this);
  // A list that has ended stays so.
  EXPECT_EQ(ossGetNextService(copyList, &copy), 0u);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(ossGetNextService(copyList, &copy), GENREG_RC_END);
  const FailureLog log;
  for (const auto close : {ossCloseServiceList, ossCloseInstanceList}) {
    const FaultPlan plan(1, EIO, false, "free");
    EXPECT_EQ(close(close == ossCloseServiceList ? copyList : instanceList), 0x90000264);
  }
  const FaultPlan plan(1, 5, false, "RegEnumKeyExA");
  EXPECT_EQ(ossGetServiceInfo("ZOR", 0, nullptr, &copy), 0x90000267);
  EXPECT_EQ(log.failures,
            "101.20:0x90000264;104.20:0x90000264;139.30:0x90000265;105.20:0x90000267;");
}

TEST_F(InstallFailures, OnlyTheInnerRoutinesTraceEntryAndExit) {
  machine(copyKeys("A"));
  OSSServiceInfo_t record;
  g_pGTCB->enabled = 1;
  Diagnostics diagnostics;
  EXPECT_EQ(ossGetServiceInfo("ZOR", 0, nullptr, &record), 0u);
  g_pGTCB->enabled = 0;
  std::string entered;
  for (const auto& made : diagnostics.records) {
    if (made.kind == OSSRecordKind::Entry) entered += std::to_string(made.probe & 0xFFFF) + " ";
  }
  EXPECT_EQ(entered, "143 140 139 146 145 144 141 ");
}

}  // namespace
