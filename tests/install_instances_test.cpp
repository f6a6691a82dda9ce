// The instances: the whole list of each registry, and the lookups.
//
// The cluster library is looked for once in a process, so everything that meets a cluster instance
// runs in a child process.
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <thread>

#include "support/machine_fixture.h"

namespace {

class Instances : public MachineTest {};

const std::string zem = "ZEM_PROFILES";
const std::string here = textValue("ZORINSTPROF", "D:\\\\p");
const std::string inCluster = textValue("ZORCLUSTER", "CLU");

std::string serviceKey(const std::string& name, const std::string& start) {
  return "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\" + name +
         "]\n\"Start\"=" + start + "\n";
}

std::string clusterKey(const std::string& below, const std::string& value) {
  return "[HKEY_LOCAL_MACHINE\\Cluster\\NUV\\ZOR\\" + below + "]\n" + value;
}

TEST_F(Instances, AreListedAsTheRegistryHasThem) {
  const std::string full(70, 'N');
  const std::string reported(63, 'N');
  const std::string split = std::string(62, 'N') + "\xC3\xA4";
  const std::string whole =
      systemText(split).size() > 63 ? std::string(62, 'N') : systemText(split);
  const std::string thousand(1000, 'p');
  const std::string atLimit(22, 'a');
  const struct {
    const char *name, *kind;
    std::string lines, answer;
  } cases[] = {
      {"no profiles", "ZOR", copyKeys("A") + defaultKeys("8"), "0x90000282"},
      {"nothing at all", "ZOR", "", "0x90000282"},
      {"kind in small letters", "zor", copyKeys("A") + instanceKey("A", "I"), "0x90000263"},
      {"a copy's name too long", "ZOR", copyKeys(std::string(129, 'N')), "0x90000263"},
      {"that of the second copy", "ZOR",
       copyKeys("A") + instanceKey("A", "I") + copyKeys(std::string(129, 'N')),
       "I A C:\\X\\I 0 -;0x90000266 - -;end;"},
      {"an empty profiles key", "ZOR", productKey("\\INSTALLEDCOPIES\\A\\PROFILES"), "end;"},
      {"copies in order, those without profiles skipped", "ZOR",
       copyKeys("b") + instanceKey("b", "I2") + instanceKey("b", "i1", here) + copyKeys("B2") +
           copyKeys("A") + instanceKey("A", "I3") + defaultKeys("8") + instanceKey("", "I4"),
       "I3 A C:\\X\\I3 0 -;i1 b D:\\p\\i1 0 -;I2 b C:\\X\\I2 0 -;I4 - C:\\D\\I4 0 -;end;"},
      {"default entry of version 9", "ZOR", defaultKeys("9") + instanceKey("", "I"), "end;"},
      {"ZEM profiles as they are", "ZEM",
       copyKeys("A") + instanceKey("A", "I1", textValue("ZORZEMPROF", "Z:\\\\z") + here, zem) +
           instanceKey("A", "I2", "", zem) + instanceKey("A", "I3"),
       "I1 A Z:\\z 0 -;I2 A C:\\X 0 -;end;"},
      {"an empty profile", "ZOR",
       copyKeys("A") + instanceKey("A", "I", textValue("ZORINSTPROF", "")), "I A - 0 -;end;"},
      {"a long name is found whole and reported in part", "ZOR",
       copyKeys("A") + instanceKey("A", full, here) + serviceKey(full, "dword:2") +
           serviceKey(reported, "dword:4"),
       reported + " A D:\\p\\" + full + " 1 -;end;"},
      {"a cut name ends with a whole character", "ZOR",
       copyKeys("A") + instanceKey("A", split + "TAIL", here),
       whole + " A D:\\p\\" + systemText(split) + "TAIL 0 -;end;"},
      {"a profile directory at the limit and beyond", "ZOR",
       copyKeys("A") + instanceKey("A", atLimit, textValue("ZORINSTPROF", thousand)) +
           instanceKey("A", atLimit + "b", textValue("ZORINSTPROF", thousand)) +
           instanceKey("A", "d", here),
       atLimit + " A " + thousand + "\\" + atLimit + " 0 -;0x90000266 " + atLimit +
           "b A;d A D:\\p\\d 0 -;end;"},
      {"start types", "ZOR",
       copyKeys("A") + instanceKey("A", "I1") + instanceKey("A", "I2") + instanceKey("A", "I3") +
           instanceKey("A", "I4") + serviceKey("i1", "dword:00000002") +
           serviceKey("I2", "dword:00000004") + serviceKey("I3", "\"2\"") +
           serviceKey("I4", "dword:00000102"),
       "I1 A C:\\X\\I1 1 -;I2 A C:\\X\\I2 16 -;I3 A C:\\X\\I3 0 -;I4 A C:\\X\\I4 0 -;end;"},
      {"a copy that cannot be read holds up the list", "ZOR",
       instanceKey("A", "I") + copyKeys("B") + instanceKey("B", "I"),
       "0x90000266 I A;0x90000266 I A;0x90000266 I A;"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    machine(row.lines);
    EXPECT_EQ(instances(row.kind), row.answer);
  }
}

TEST_F(Instances, AHostThatCannotBeReadIsIgnoredAndLogged) {
  machine(copyKeys("A") +
          instanceKey("A", "I1", "\"ZORREMOTEPREG\"=dword:1\n\"ZORCLUSTER\"=dword:1\n") +
          instanceKey("A", "I2", textValue("ZORREMOTEPREG", "NAMEOF16LETTERS_")));
  const FailureLog log;
  EXPECT_EQ(instances(), "I1 A C:\\X\\I1 0 -;I2 A C:\\X\\I2 0 -;end;");
  EXPECT_EQ(log.failures, "138.43:0x0000065D;138.47:0x0000065D;138.43:0x000000EA;");
}

TEST_F(Instances, ACopyIsReadOnceForAllOfItsInstances) {
  machine(copyKeys("A") + instanceKey("A", "I1") + instanceKey("A", "I2"));
  const FaultPlan values(0, 0, false, "RegQueryValueExA");
  EXPECT_EQ(instances(), "I1 A C:\\X\\I1 0 -;I2 A C:\\X\\I2 0 -;end;");
  EXPECT_EQ(values.calls(), 5u + 2 * 3);
}

TEST_F(Instances, AProfileOnAnotherMachineIsReadThere) {
  SKIP_WITHOUT(Need::OtherMachines);
  const struct {
    const char* name;
    std::string remote;  // the value that names the machine
    std::string kind, answer;
  } cases[] = {
      {"there", "OTHER", "ZOR", "I A R:\\r\\I 4 OTHER;"},
      {"written as a network name", "\\\\\\\\OTHER", "ZOR", "I A R:\\r\\I 4 \\\\OTHER;"},
      {"no such machine", "NONE", "ZOR", "0x90000266 I A;"},
      {"no name", "", "ZOR", "0x90000266 I A;"},
      {"a name that leads elsewhere", "below/OTHER", "ZOR", "0x90000266 I A;"},
      {"not an export", "BROKEN", "ZOR", "0x90000266 I A;"},
      {"a directory at the limit", "LONG", "ZOR", "I A " + std::string(259, 'r') + "\\I 4 LONG;"},
      {"a directory beyond it", "LONGER", "ZOR", "0x90000266 I A;"},
      {"a ZEM instance has none", "OTHER", "ZEM", "I A C:\\X 0 -;"},
      {"a name of 15 characters", "NAMEOF15LETTERS", "ZOR", "0x90000266 I A;"},
  };
  const auto other = [&](const std::string& name, const std::string& directory) {
    remoteMachine(name, productKey("\\INSTALLEDCOPIES\\A\\I", textValue("ZORINSTPROF", directory)));
  };
  std::filesystem::create_directory(path("below"));
  other("OTHER", "R:\\\\r");
  other("below/OTHER", "R:\\\\r");
  other("LONG", std::string(259, 'r'));
  other("LONGER", std::string(260, 'r'));
  remoteMachine("BROKEN", "broken");
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    const std::string profiles = row.kind == "ZEM" ? zem : "PROFILES";
    machine(copyKeys("A") +
            instanceKey("A", "I", textValue("ZORREMOTEPREG", row.remote), profiles) +
            instanceKey("A", "J", "", profiles));
    const std::string last = row.kind == "ZEM" ? "J A C:\\X 0 -;end;" : "J A C:\\X\\J 0 -;end;";
    EXPECT_EQ(instances(row.kind.c_str()), row.answer + last);
  }
  machine(defaultKeys("8") + instanceKey("", "I", textValue("ZORREMOTEPREG", "OTHER")));
  remoteMachine("OTHER", productKey("\\INSTALLEDCOPIES\\I", here));
  EXPECT_EQ(instances(), "I - D:\\p\\I 4 OTHER;end;");
}

// Two threads meet their first cluster instance at once; then the cluster fails in each way.
TEST_F(Instances, AProfileInTheClusterIsReadThere) {
  SKIP_WITHOUT(Need::Cluster);
  const std::string fits(256, 'p');
  const std::string answer = "I1 A S:\\\xC3\xA4\xF0\x9D\x84\x9E\\I1 8 CLU;I2 A " + fits +
                             "\\I2 8 CLU;0x90000266 I3 A;I4 A S:\\I4 8 CLU;0x90000266 I5 A;end;";
  machine(copyKeys("A") + instanceKey("A", "I1", inCluster) + instanceKey("A", "I2", inCluster) +
          instanceKey("A", "I3", inCluster) + instanceKey("A", "I4", inCluster) +
          instanceKey("A", "I5", inCluster) + instanceKey("A", "Z1", inCluster, zem) +
          clusterKey("PROFILES\\I1", textValue("ZORINSTPROF", "S:\\\\\xC3\xA4\xF0\x9D\x84\x9E")) +
          clusterKey("PROFILES\\I2", textValue("ZORINSTPROF", fits)) +
          clusterKey("PROFILES\\I3", textValue("ZORINSTPROF", fits + "p")) +
          clusterKey("PROFILES\\I4", "\"ZORINSTPROF\"=hex(1):53,00,3a,00\n") +
          clusterKey("ZEM_PROFILES\\Z1", textValue("ZORZEMPROF", "S:\\\\z")));
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
      EXPECT_EQ(instances("ZEM"), "0x90000266 Z1 A;end;");
    }
    const FaultPlan plan(2, ENOMEM, false, "calloc");
    const FailureLog log;
    EXPECT_EQ(instances("ZEM"), "0x90000266 Z1 A;Z1 A S:\\z 8 CLU;end;");
    return log.failures == "138.60:0x9000000D;103.30:0x90000266;";
  });
}

TEST_F(Instances, WithoutAClusterTheOthersAreListedAndTheLibraryIsLookedForOnce) {
  machine(copyKeys("A") + instanceKey("A", "I1", inCluster) + instanceKey("A", "I2", inCluster) +
          instanceKey("A", "I3"));
  expectInChild([] {
    const FaultPlan loads(0, 0, false, "LoadLibraryA");
    for (int i = 0; i < 2; ++i)
      EXPECT_EQ(instances(), "0x90000266 I1 A;0x90000266 I2 A;I3 A C:\\X\\I3 0 -;end;");
    return loads.calls() == 1;
  });
}

TEST_F(Instances, ALookupFindsTheFirstInstanceThatAgreesWithEveryArgument) {
  const std::string longName(63, 'L');
  machine(copyKeys("A") + instanceKey("A", "INST1") + instanceKey("A", "inst2") +
          copyKeys("B", "10") + instanceKey("B", "INST1", here) +
          instanceKey("B", "ZEM1", "", zem) + instanceKey("B", longName + "TAIL"));
  const struct {
    const char* kind;
    std::uint64_t version;
    std::string name;  // empty: null
    const char* copy;
    std::string found;  // copy and instance; empty: none
  } cases[] = {
      {"ZOR", 0, "inst1", nullptr, "A INST1"},
      {nullptr, 0, "", nullptr, "A INST1"},
      {"ZOR", 0x000A000100020003, "INST1", nullptr, "B INST1"},
      {"ZOR", 0, "INST1", "B", "B INST1"},
      {"ZOR", 0, longName, nullptr, "B " + longName},
      {"ZEM", 0, "", nullptr, "B ZEM1"},
      {"zor", 0, "", nullptr, "B ZEM1"},
      {"ZOR", 0, "inst2", nullptr, ""},
      {"ZOR", 0, "INST1", "b", ""},
      {"ZOR", 1, "", nullptr, ""},
      {"ZOR", 0, longName + "T", nullptr, ""},
  };
  OSSInstanceInfo_t record;
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    const char* const name = row.name.empty() ? nullptr : row.name.c_str();
    const Code code = ossGetInstanceInfo(row.kind, row.version, name, row.copy, &record);
    ASSERT_EQ(code, row.found.empty() ? GENREG_RC_INSTANCE_INFO : 0u);
    if (row.found.empty()) continue;
    EXPECT_EQ(std::string(record.copyName) + " " + record.instanceName, row.found);
  }
  EXPECT_EQ(ossGetInstanceInfo("ZOR", 0x000A000100020003, "INST1", &record), 0u);
  EXPECT_EQ(record.versionCode, 0x000A000100020003u);
  const std::string texts = std::string(record.service) + "|" + record.instancePath + "|" +
                            record.usage + "|" + record.installPath + "|" + record.comment;
  EXPECT_EQ(texts, "ZOR|D:\\p\\INST1||C:\\X|");
}

}  // namespace
