// Installed copies and instances, as far as tests/transcripts/installed.txt does not list them: how
// often what is read, the cluster, and whole records.
//
// The cluster library is looked for once in a process, so everything that meets a cluster instance
// runs in a child process.
#include <atomic>
#include <cerrno>
#include <cstring>
#include <thread>

#include "support/machine_fixture.h"

namespace {

class Instances : public MachineTest {};

std::string clusterKey(const std::string& below, const std::string& name,
                       const std::string& value) {
  return "[HKEY_LOCAL_MACHINE\\Cluster\\NUV\\ZOR\\" + below + "]\n\"" + name + "\"=" + value + "\n";
}

TEST_F(Instances, ACopyIsReadOnceAndAHostThatCannotBeReadIsIgnoredAndLogged) {
  machine(keys("A; A/I2|ZORREMOTEPREG=NAMEOF16LETTERS_") +
          productKey("\\INSTALLEDCOPIES\\A\\PROFILES\\I1",
                     "\"ZORREMOTEPREG\"=dword:1\n\"ZORCLUSTER\"=dword:1\n"));
  const FaultPlan values(0, 0, false, "RegQueryValueExA");
  const FailureLog log;
  EXPECT_EQ(instances(), "I1 A C:\\X\\I1 0 -;I2 A C:\\X\\I2 0 -;end;");
  EXPECT_EQ(log.failures, "138.43:e1629;138.47:e1629;138.43:e234;");
  EXPECT_EQ(values.calls(), 5u + 2 * 3);
}

TEST_F(Instances, EveryExportIsReadOnce) {
  remoteMachine("OTHER", productKey("\\INSTALLEDCOPIES\\A\\I1", "\"ZORINSTPROF\"=\"R:\"\n"));
  machine(keys("A; A/I1|ZORREMOTEPREG=OTHER; A/I2|ZORREMOTEPREG=OTHER; A/I3|ZORREMOTEPREG=NONE"));
  const FaultPlan opened(0, 0, false, "open");
  EXPECT_EQ(instances(), "I1 A R:\\I1 4 OTHER;266 I2 A;266 I3 A;end;");
  EXPECT_EQ(opened.calls(), 3u);  // one of them is missing
}

// Two threads meet their first cluster instance at once; then the cluster fails in each way.
TEST_F(Instances, AProfileInTheClusterIsReadThere) {
  const std::string fits(256, 'p');
  const std::string answer = "I1 A S:\\\xC3\xA4\xF0\x9D\x84\x9E\\I1 8 CLU;I2 A " + fits +
                             "\\I2 8 CLU;266 I3 A;I4 A S:\\I4 8 CLU;266 I5 A;end;";
  machine(keys("A; A/I1|ZORCLUSTER=CLU; A/I2|ZORCLUSTER=CLU; A/I3|ZORCLUSTER=CLU; "
               "A/I4|ZORCLUSTER=CLU; A/I5|ZORCLUSTER=CLU; A//Z1|ZORCLUSTER=CLU") +
          clusterKey("PROFILES\\I1", "ZORINSTPROF", "\"S:\\\\\xC3\xA4\xF0\x9D\x84\x9E\"") +
          clusterKey("PROFILES\\I2", "ZORINSTPROF", "\"" + fits + "\"") +
          clusterKey("PROFILES\\I3", "ZORINSTPROF", "\"" + fits + "p\"") +
          clusterKey("PROFILES\\I4", "ZORINSTPROF", "hex(1):53,00,3a,00") +
          clusterKey("ZEM_PROFILES\\Z1", "ZORZEMPROF", "\"S:\\\\z\""));
  expectInChild([&] {
    std::atomic<int> loads{0}, opens{0}, ready{0};
    {
      const FaultHook counting([&](const std::string& call) {
        loads += call == "LoadLibraryA";
        opens += call == "OpenCluster";
        return 0;
      });
      const auto run = [&] {
        for (++ready; ready < 2;) std::this_thread::yield();
        EXPECT_EQ(instances(), answer);
      };
      std::thread other(run);
      run();
      other.join();
    }
    EXPECT_EQ(loads, 1);
    EXPECT_EQ(opens, 2);
    for (const char* call : {"OpenCluster", "GetClusterKey"}) {
      const FaultPlan plan(1, EIO, false, call);
      EXPECT_EQ(instances("ZEM"), "266 Z1 A;end;");
    }
    const FaultPlan plan(2, ENOMEM, false, "calloc");
    const FailureLog log;
    EXPECT_EQ(instances("ZEM"), "266 Z1 A;Z1 A S:\\z 8 CLU;end;");
    return log.failures == "138.60:00D;103.30:266;";
  });
}

TEST_F(Instances, WithoutAClusterTheOthersAreListedAndTheLibraryIsLookedForOnce) {
  machine(keys("A; A/I1|ZORCLUSTER=CLU; A/I2"));
  expectInChild([] {
    const FaultPlan loads(0, 0, false, "LoadLibraryA");
    for (int i = 0; i < 2; ++i) EXPECT_EQ(instances(), "266 I1 A;I2 A C:\\X\\I2 0 -;end;");
    return loads.calls() == 1;
  });
}

TEST_F(Instances, ALookupFillsTheWholeRecord) {
  machine(keys("A; B=10|C:\\Y z\\; B/I|ZORINSTPROF=D:; B//Z"));
  OSSServiceInfo_t copy;
  OSSInstanceInfo_t instance;
  std::memset(&copy, 0xAA, sizeof copy);
  std::memset(&instance, 0xAA, sizeof instance);
  EXPECT_EQ(ossGetServiceInfo("ZOR", 0, nullptr, "B", &copy), 0u);
  EXPECT_EQ(copy.versionCode, 0x000A000100020003u);
  EXPECT_EQ(copy.level, 2u);
  EXPECT_EQ(copy.flags + copy.number1 + copy.byte1 + copy.number2 + copy.number3, 0u);
  EXPECT_EQ(std::string(copy.installPath) + copy.text2 + copy.text3, "C:\\Y z");
  EXPECT_EQ(ossGetInstanceInfo("ZOR", copy.versionCode, "i", "B", &instance), 0u);
  EXPECT_EQ(instance.versionCode, copy.versionCode);
  EXPECT_EQ(std::string(instance.service) + instance.installPath, "ZORC:\\Y z");
  EXPECT_EQ(std::string(instance.usage) + instance.comment, "");
  EXPECT_EQ(ossGetInstanceInfo("zor", 0, nullptr, nullptr, &instance), 0u);
  EXPECT_STREQ(instance.instanceName, "Z") << "every other kind is ZEM";
}

}  // namespace
