// What the exports answer and log when a call fails below them, or an argument is missing.
#include <cerrno>

#include "support/machine_fixture.h"
#include "support/told.h"

namespace {

class InstallFailures : public MachineTest {};

std::string zems() { return instances("ZEM"); }
std::string zors() { return instances("ZOR"); }

// A failure is told by each list with the code of its place, and logged there.
TEST_F(InstallFailures, AreToldByTheListsAndLogged) {
  machine(keys("A; A/I; A//Z; -=8; -/L"));
  std::string told;
  // Lists, call `k` of which (from 1) fails, and gives how many calls there were.
  const auto tell = [&](std::string (*list)(), unsigned long k, int error) {
    std::string failing = "undisturbed";
    unsigned long calls = 0;
    const FaultHook hook([&](const std::string& call) {
      if (call == "free") return 0;
      if (++calls == k) failing = call + " fails with " + std::to_string(error);
      return calls == k ? error : 0;
    });
    const FailureLog log;
    const std::string answer = list();
    told += failing + ": " + answer + ' ' + log.failures + '\n';
    return calls;
  };
  for (std::string (*const list)() : {copies, zors, zems}) {
    const unsigned long calls = tell(list, 0, 0);
    for (unsigned long k = 1; k <= calls; ++k) {
      for (const int error : {2, 5, ENOSPC}) (void)tell(list, k, error);
    }
  }
  expectTold("installed", told);
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
