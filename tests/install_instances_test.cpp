// The instances: the whole list of each registry, the lookups, and every code of every export.
//
// The cluster library is looked for once in a process, so everything that meets a cluster instance
// runs in a child process.
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <thread>

#include "support/machine_fixture.h"

namespace {

class Instances : public MachineTest {};

const std::string zem = "ZEM_PROFILES";
const std::string here = "\"ZORINSTPROF\"=\"D:\\\\p\"\n";

std::string named(const std::string& value, const std::string& text) {
  return "\"" + value + "\"=\"" + text + "\"\n";
}

std::string profile(const std::string& directory) { return named("ZORINSTPROF", directory); }

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
  const std::string thousand(1000, 'p');
  const struct {
    const char *name, *kind;
    std::string lines, answer;
  } cases[] = {
      {"no profiles", "ZOR", copyKeys("A") + defaultKeys("8"), "0x90000282"},
      {"nothing at all", "ZOR", "", "0x90000282"},
      {"kind in small letters", "zor", copyKeys("A") + instanceKey("A", "I"), "0x90000263"},
      {"a copy's name too long", "ZOR", copyKeys(std::string(129, 'N')), "0x90000263"},
      {"an empty profiles key", "ZOR", productKey("\\INSTALLEDCOPIES\\A\\PROFILES"), "end;"},
      {"copies in order, those without profiles skipped", "ZOR",
       copyKeys("b") + instanceKey("b", "I2") + instanceKey("b", "i1", here) + copyKeys("B2") +
           copyKeys("A") + instanceKey("A", "I3") + defaultKeys("8") + instanceKey("", "I4"),
       "I3 A C:\\X\\I3 0 -;i1 b D:\\p\\i1 0 -;I2 b C:\\X\\I2 0 -;I4 - C:\\D\\I4 0 -;end;"},
      {"default entry of version 9", "ZOR", defaultKeys("9") + instanceKey("", "I"), "end;"},
      {"ZEM profiles as they are", "ZEM",
       copyKeys("A") + instanceKey("A", "I1", named("ZORZEMPROF", "Z:\\\\z") + here, zem) +
           instanceKey("A", "I2", "", zem) + instanceKey("A", "I3"),
       "I1 A Z:\\z 0 -;I2 A C:\\X 0 -;end;"},
      {"an empty profile", "ZOR", copyKeys("A") + instanceKey("A", "I", profile("")),
       "I A - 0 -;end;"},
      {"a long name is found whole and reported in part", "ZOR",
       copyKeys("A") + instanceKey("A", full, here) + serviceKey(full, "dword:2") +
           serviceKey(reported, "dword:4"),
       reported + " A D:\\p\\" + full + " 1 -;end;"},
      {"a profile directory at the limit and beyond", "ZOR",
       copyKeys("A") + instanceKey("A", std::string(22, 'a'), profile(thousand)) +
           instanceKey("A", std::string(23, 'b'), profile(thousand)) +
           instanceKey("A", std::string(30, 'c'), profile(thousand)) + instanceKey("A", "d", here),
       std::string(22, 'a') + " A " + thousand + "\\" + std::string(22, 'a') +
           " 0 -;0x90000266;0x90000266;d A D:\\p\\d 0 -;end;"},
      {"start types", "ZOR",
       copyKeys("A") + instanceKey("A", "I1") + instanceKey("A", "I2") + instanceKey("A", "I3") +
           instanceKey("A", "I4") + serviceKey("i1", "dword:00000002") +
           serviceKey("I2", "dword:00000004") + serviceKey("I3", "\"2\"") +
           serviceKey("I4", "dword:00000102"),
       "I1 A C:\\X\\I1 1 -;I2 A C:\\X\\I2 16 -;I3 A C:\\X\\I3 0 -;I4 A C:\\X\\I4 0 -;end;"},
      {"a copy that cannot be read holds up the list", "ZOR",
       instanceKey("A", "I") + copyKeys("B") + instanceKey("B", "I"),
       "0x90000266;0x90000266;0x90000266;"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    machine(row.lines);
    EXPECT_EQ(instances(row.kind), row.answer);
  }
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
      {"no such machine", "NONE", "ZOR", "0x90000266;"},
      {"no name", "", "ZOR", "0x90000266;"},
      {"a name that leads elsewhere", "below/OTHER", "ZOR", "0x90000266;"},
      {"not an export", "BROKEN", "ZOR", "0x90000266;"},
      {"nothing of this instance", "EMPTY", "ZOR", "0x90000266;"},
      {"a directory at the limit", "LONG", "ZOR", "I A " + std::string(259, 'r') + "\\I 4 LONG;"},
      {"a directory beyond it", "LONGER", "ZOR", "0x90000266;"},
      {"a ZEM instance has none", "OTHER", "ZEM", "I A C:\\X 0 -;"},
      {"a name of 15 characters", "NAMEOF15LETTERS", "ZOR", "0x90000266;"},
      {"a name of 16 characters does not read", "NAMEOF16LETTERS_", "ZOR", "I A C:\\X\\I 0 -;"},
  };
  const auto other = [&](const std::string& name, const std::string& directory) {
    remoteMachine(name, productKey("\\INSTALLEDCOPIES\\A\\I", profile(directory)));
  };
  std::filesystem::create_directory(path("below"));
  other("OTHER", "R:\\\\r");
  other("below/OTHER", "R:\\\\r");
  other("LONG", std::string(259, 'r'));
  other("LONGER", std::string(260, 'r'));
  remoteMachine("BROKEN", "broken");
  remoteMachine("EMPTY", copyKeys("A"));
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    const std::string profiles = row.kind == "ZEM" ? zem : "PROFILES";
    machine(copyKeys("A") + instanceKey("A", "I", named("ZORREMOTEPREG", row.remote), profiles) +
            instanceKey("A", "J", "", profiles));
    const std::string last = row.kind == "ZEM" ? "J A C:\\X 0 -;end;" : "J A C:\\X\\J 0 -;end;";
    EXPECT_EQ(instances(row.kind.c_str()), row.answer + last);
  }
  machine(defaultKeys("8") + instanceKey("", "I", named("ZORREMOTEPREG", "OTHER")));
  remoteMachine("OTHER", productKey("\\INSTALLEDCOPIES\\I", here));
  EXPECT_EQ(instances(), "I - D:\\p\\I 4 OTHER;end;");
}

TEST_F(Instances, AProfileInTheClusterIsReadThere) {
  SKIP_WITHOUT(Need::Cluster);
  const std::string inCluster = named("ZORCLUSTER", "CLU");
  const std::string fits(256, 'p');
  machine(copyKeys("A") + instanceKey("A", "I1", inCluster) + instanceKey("A", "I2", inCluster) +
          instanceKey("A", "I3", inCluster) + instanceKey("A", "I4", inCluster) +
          instanceKey("A", "I5", inCluster) + instanceKey("A", "Z1", inCluster, zem) +
          clusterKey("PROFILES\\I1", named("ZORINSTPROF", "S:\\\\\xC3\xA4\xF0\x9D\x84\x9E")) +
          clusterKey("PROFILES\\I2", named("ZORINSTPROF", fits)) +
          clusterKey("PROFILES\\I3", named("ZORINSTPROF", fits + "p")) +
          clusterKey("PROFILES\\I4", "\"ZORINSTPROF\"=hex(1):53,00,3a,00\n") +
          clusterKey("ZEM_PROFILES\\Z1", named("ZORZEMPROF", "S:\\\\z")));
  expectInChild([] {
    const FaultPlan opened(0, 0, false, "OpenCluster");
    EXPECT_EQ(instances(), "I1 A S:\\\xC3\xA4\xF0\x9D\x84\x9E\\I1 8 CLU;I2 A " +
                               std::string(256, 'p') +
                               "\\I2 8 CLU;0x90000266;I4 A S:\\I4 8 CLU;0x90000266;end;");
    EXPECT_EQ(opened.calls(), 1u);
    return instances("ZEM") == "Z1 A S:\\z 8 CLU;end;";
  });
}

TEST_F(Instances, WithoutAClusterTheOthersAreListedAndTheLibraryIsLookedForOnce) {
  const std::string inCluster = named("ZORCLUSTER", "CLU");
  machine(copyKeys("A") + instanceKey("A", "I1", inCluster) + instanceKey("A", "I2", inCluster) +
          instanceKey("A", "I3"));
  expectInChild([] {
    const FaultPlan loads(0, 0, false, "LoadLibraryA");
    for (int i = 0; i < 2; ++i)
      EXPECT_EQ(instances(), "0x90000266;0x90000266;I3 A C:\\X\\I3 0 -;end;");
    return loads.calls() == 1;
  });
}

TEST_F(Instances, TwoThreadsThatMeetTheirFirstClusterInstanceAtOnceLoadTheLibraryOnce) {
  SKIP_WITHOUT(Need::Cluster);
  machine(copyKeys("A") + instanceKey("A", "I", named("ZORCLUSTER", "CLU")) +
          clusterKey("PROFILES\\I", here));
  expectInChild([] {
    std::atomic<int> loads{0};
    std::atomic<int> ready{0};
    const FaultHook counting([&](const std::string& call) {
      loads += call == "LoadLibraryA";
      return 0;
    });
    std::string answers[2];
    const auto run = [&](std::string& answer) {
      for (++ready; ready < 2;) std::this_thread::yield();
      answer = instances();
    };
    std::thread other(run, std::ref(answers[0]));
    run(answers[1]);
    other.join();
    for (const std::string& answer : answers) EXPECT_EQ(answer, "I A D:\\p\\I 8 CLU;end;");
    return loads == 1;
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
    std::string name;          // empty: null
    const char *copy, *found;  // found: copy and instance; null: none
  } cases[] = {
      {"ZOR", 0, "inst1", nullptr, "A INST1"},
      {nullptr, 0, "", nullptr, "A INST1"},
      {"ZOR", 0x000A000100020003, "INST1", nullptr, "B INST1"},
      {"ZOR", 0, "INST1", "B", "B INST1"},
      {"ZEM", 0, "", nullptr, "B ZEM1"},
      {"zor", 0, "", nullptr, "B ZEM1"},
      {"ZOR", 0, "inst2", nullptr, nullptr},
      {"ZOR", 0, "INST1", "b", nullptr},
      {"ZOR", 1, "", nullptr, nullptr},
      {"ZOR", 0, longName + "T", nullptr, nullptr},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    OSSInstanceInfo_t record;
    const char* const name = row.name.empty() ? nullptr : row.name.c_str();
    const unsigned int code = ossGetInstanceInfo(row.kind, row.version, name, row.copy, &record);
    ASSERT_EQ(code, row.found == nullptr ? GENREG_RC_INSTANCE_INFO : 0u);
    if (row.found != nullptr) {
      EXPECT_EQ(std::string(record.copyName) + " " + record.instanceName, row.found);
    }
  }
  OSSInstanceInfo_t record;
  EXPECT_EQ(ossGetInstanceInfo("ZOR", 0, longName.c_str(), &record), 0u);
  std::memset(&record, 0xAA, sizeof record);
  EXPECT_EQ(ossGetInstanceInfo("ZOR", 0x000A000100020003, "INST1", &record), 0u);
  EXPECT_EQ(record.flags, 0u);
  EXPECT_EQ(record.versionCode, 0x000A000100020003u);
  const std::string texts = std::string(record.instanceName) + "|" + record.service + "|" +
                            record.instancePath + "|" + record.usage + "|" + record.installPath +
                            "|" + record.hostName + "|" + record.comment + "|" + record.copyName;
  EXPECT_EQ(texts, "INST1|ZOR|D:\\p\\INST1||C:\\X|||B");
}

// Each row makes the one call that must give the code, where the operation named fails as told.
TEST_F(Instances, EveryCodeOfEveryExport) {
  machine(copyKeys("A") + instanceKey("A", "I") +
          instanceKey("A", "J", named("ZORCLUSTER", "CLU")) + copyKeys("B") +
          instanceKey("B", "K") + defaultKeys("8") + instanceKey("", "L") +
          clusterKey("PROFILES\\J", here));
  OSSInstanceInfo_t record;
  const auto zor = instanceList("ZOR");
  const auto openZor = [&] { return zor.open(); };
  const auto next = [&](unsigned int steps) { return zor.next(steps); };
  const auto close = [&] { return zor.close(); };
  const auto find = [&] { return ossGetInstanceInfo("ZOR", 0, "NONE", nullptr, &record); };
  const Code met = lacking(Need::Cluster) == nullptr ? 0 : 0x90000266;
  const std::vector<ExportCall> calls{
      {0, openZor},
      {0x90000280, [&] { return instanceList(nullptr).open(); }},
      {0x90000263, [&] { return instanceList("zor").open(); }, {}, 135, 0x90000263},
      {0x90000263, [] { return ossOpenInstanceList("ZOR", nullptr); }},
      {0x90000263, openZor, {"RegEnumKeyExA", 1, 5}, 135, 0x90000263},
      {0x90000282, [&] { return instanceList("ZEM").open(); }, {}, 135, 0x90000282},
      {0x9000000D, openZor, {"calloc", 1, ENOMEM}, 135, 0x9000000D},
      {0x9000000A, openZor, {"RegOpenKeyExA", 1, ENOSPC}, 135, 0x9000000A},
      {0, openZor, {"RegOpenKeyExA", 1, 2}},  // the default entry has profiles
      {0, next(4)},
      {0x900001BE, next(5)},
      {0x900001BE, next(6)},
      {0x90000262, [&] { return ossGetNextInstance(nullptr, &record); }},
      {0x90000261, [&] { return ossGetNextInstance(&record, nullptr); }},
      {0x90000266, next(1), {"RegEnumKeyExA", 2, 5}, 138, 0x90000266},
      {0x90000266, next(3), {"RegEnumKeyExA", 5, 5}, 138, 0x90000266},
      {0x90000266, next(1), {"RegQueryValueExA", 1, 5}, 138, 0x90000268},
      {0x90000266, next(1), {"RegQueryValueExA", 5, 5}, 138, 0x90000268},
      {0x90000266, next(1), {"RegQueryValueExA", 9, 5}, 138, 0x90000268},
      {0x90000266, next(1), {"RegOpenKeyExA", 6, 2}, 138, 0x90000282},
      {0x90000266, next(1), {"RegOpenKeyExA", 6, ENOSPC}, 138, 0x9000000A},
      {0x90000266, next(2), {"calloc", 2, ENOMEM}, 138, 0x9000000D},
      {met, next(3), {"calloc", 2, ENOMEM}, 138, 0x9000000D},  // met again, and read
      {0x90000266, next(2), {"OpenCluster", 1, 1}},
      {0x90000266, next(2), {"GetClusterKey", 1, 1}},
      {0, next(1), {"OpenSCManagerA", 1, 1}},
      {0x90000264, close, {"free", 1 + machineStreams, EIO}, 104, 0x90000264},
      {0x90000262, [] { return ossCloseInstanceList(nullptr); }},
      {0x90000268, find},
      {0x90000268, find, {"RegEnumKeyExA", 1, 5}, 106, 0x90000268},
      {0x90000261, [] { return ossGetInstanceInfo(nullptr, 0, nullptr, nullptr); }},
      {0x90000261, [] { return ossSetInstanceInfo(nullptr); }},
      {0x90000005, [&] { return ossSetInstanceInfo(&record); }},
      {0x90000005, [] { return ossRemoveInstanceInfo("ZOR", 0, "I"); }},
  };
  expectInChild([&] { return expectCodes(calls), true; });
}

}  // namespace
