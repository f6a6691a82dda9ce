// What the exports answer and log when a call fails below them, or an argument is missing.
#include <cerrno>

#include "support/machine_fixture.h"

namespace {

class InstallFailures : public MachineTest {};

std::string zors() { return instances("ZOR"); }
std::string zems() { return instances("ZEM"); }

TEST_F(InstallFailures, GiveTheCodesOfTheirPlaceAndAreLoggedThere) {
  const char* const open = "RegOpenKeyExA";
  const char* const enumerate = "RegEnumKeyExA";
  const char* const query = "RegQueryValueExA";
  const std::string onlyI = "I A C:\\X\\I 0 -;";
  const std::string onlyL = "L - C:\\X\\L 0 -;end;";
  const std::string again = "266 I A;" + onlyI + onlyL;
  const struct {
    std::string (*list)();
    const char* operation;
    unsigned long call;  // number of its call that fails
    int error;
    std::string answer, log;
  } cases[] = {
      {copies, "calloc", 1, ENOMEM, "263", "140.10:00D;99.20:263;"},
      {copies, "malloc", 1, ENOMEM, "263", "140.10:00D;99.20:263;"},
      {copies, open, 1, 2, "263", "140.20:282;99.20:263;"},
      {copies, open, 1, ENOSPC, "263", "140.10:00A;140.20:00A;99.20:263;"},
      {copies, open, 2, 5, "ZOR A;ZOR -;end;", ""},
      {copies, open, 4, 5, "265 A;ZOR A;ZOR -;end;", "144.20:e5;139.70:267;100.30:265;"},
      {copies, open, 7, 5, "ZEM A;ZOR A;265 -;end;", "139.20:e5;100.30:265;"},
      {copies, open, 8, 5, "ZEM A;ZOR A;end;", "145.30:e5;139.50:1BE;"},
      {copies, enumerate, 1, 5, "265 -;ZOR -;end;", "139.30:265;100.30:265;"},
      {copies, "RegQueryInfoKeyA", 1, 5, "ZOR A;ZOR -;end;", ""},
      {copies, query, 4, 5, "265 A;ZOR A;ZOR -;end;", "139.50:265;100.30:265;"},
      {copies, query, 10, 5, "ZEM A;265 A;ZOR -;end;", "139.70:267;100.30:265;"},
      {zors, "calloc", 1, ENOMEM, "00D", "135.5:00D;102.30:00D;"},
      {zors, open, 1, 2, onlyL, ""},
      {zors, open, 1, ENOSPC, "00A", "135.10:00A;135.10:00A;102.30:00A;"},
      {zors, open, 2, 5, "263", "135.30:263;102.30:263;"},
      {zors, open, 5, 5, again, "144.20:e5;138.30:268;103.30:266;"},
      {zors, open, 6, 2, again, "138.40:282;103.30:266;"},
      {zors, open, 6, ENOSPC, again, "138.10:00A;138.40:00A;103.30:266;"},
      {zors, open, 7, 5, onlyI + "266 - -;end;", "142.30:e5;138.10:266;103.30:266;"},
      {zors, open, 8, 2, onlyI + "end;", ""},
      {zors, open, 8, 5, onlyI + "266 - -;end;", "138.10:266;103.30:266;"},
      {zors, open, 9, 5, onlyI + "end;", "145.30:e5;138.20:1BE;"},
      {zors, enumerate, 1, 5, "263", "135.30:263;102.30:263;"},
      {zors, enumerate, 3, 5, onlyI + "266 - A;" + onlyL, "138.20:266;103.30:266;"},
      {zors, enumerate, 4, 5, onlyI + "266 - -;end;", "138.10:266;103.30:266;"},
      {zors, query, 1, 5, again, "138.20:268;103.30:266;"},
      {zors, "OpenSCManagerA", 1, 5, onlyI + onlyL, ""},
      {zems, open, 3, 2, "282", "135.30:282;102.30:282;"},
  };
  machine(keys("A; A/I; A//Z; -=8; -/L"));
  for (const auto& row : cases) {
    SCOPED_TRACE(std::string(row.operation) + " " + std::to_string(row.call));
    const FaultPlan plan(row.call, row.error, false, row.operation);
    const FailureLog log;
    EXPECT_EQ(row.list(), row.answer);
    EXPECT_EQ(log.failures, row.log);
    EXPECT_GE(plan.calls(), row.call);
  }
}

template <typename... Codes>
std::string codes(Codes... each) {
  return ((codeText(each) + " ") + ...);
}

TEST_F(InstallFailures, OfTheCallerAndOfReleasingAListHaveTheirCodes) {
  machine(keys("A; A/I"));
  void *copyList = nullptr, *instanceList = nullptr, *untouched = this;
  ASSERT_EQ(ossOpenServiceList(&copyList) + ossOpenInstanceList("ZOR", &instanceList), 0u);
  OSSServiceInfo_t copy;
  OSSInstanceInfo_t instance;
  EXPECT_EQ(codes(ossOpenServiceList(nullptr), ossOpenInstanceList("ZOR", nullptr),
                  ossOpenInstanceList("zor", &untouched), ossOpenInstanceList(nullptr, &untouched),
                  ossGetNextService(nullptr, &copy), ossGetNextService(copyList, nullptr),
                  ossGetNextInstance(nullptr, &instance), ossGetNextInstance(instanceList, nullptr),
                  ossCloseServiceList(nullptr), ossCloseInstanceList(nullptr)),
            "263 263 263 280 262 260 262 261 262 262 ");
  EXPECT_EQ(
      codes(ossGetServiceInfo(nullptr, 0, nullptr, nullptr),
            ossGetInstanceInfo(nullptr, 0, nullptr, nullptr), ossSetServiceInfo(nullptr),
            ossSetInstanceInfo(nullptr), ossSetServiceInfo(&copy), ossSetInstanceInfo(&instance),
            ossRemoveServiceInfo("ZOR", 0), ossRemoveInstanceInfo("ZOR", 0, "I")),
      "260 261 260 261 005 005 005 005 ");
  EXPECT_EQ(untouched, this);
  EXPECT_EQ(ossGetNextService(copyList, &copy), 0u);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(ossGetNextService(copyList, &copy), GENREG_RC_END);
  const FailureLog log;
  for (const auto close : {ossCloseServiceList, ossCloseInstanceList}) {
    const FaultPlan plan(1, EIO, false, "free");
    EXPECT_EQ(close(close == ossCloseServiceList ? copyList : instanceList), GENREG_RC_LIST_CLOSE);
  }
  const FaultPlan plan(1, 5, false, "RegEnumKeyExA");
  EXPECT_EQ(ossGetServiceInfo("ZOR", 0, nullptr, &copy), GENREG_RC_SERVICE_INFO);
  EXPECT_EQ(log.failures, "101.20:264;104.20:264;139.30:265;105.20:267;");
}

TEST_F(InstallFailures, OnlyTheInnerRoutinesTraceTheirEntry) {
  machine(keys("A"));
  OSSServiceInfo_t record;
  const FailureLog log;
  g_pGTCB->enabled = 1;
  EXPECT_EQ(ossGetServiceInfo("ZOR", 0, nullptr, &record), 0u);
  g_pGTCB->enabled = 0;
  EXPECT_EQ(log.entries, "143 140 139 146 145 144 141 ");
}

}  // namespace
