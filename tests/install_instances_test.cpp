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

class Instances : public MachineTest {
 protected:
  static void expectInChild(const std::function<void()>& body) {
    EXPECT_EQ(inChild([&] {
                body();
                return HasFailure() ? 1 : 0;
              }),
              0);
  }
};

const std::string zem = "ZEM_PROFILES";
const std::string here = "\"ZORINSTPROF\"=\"D:\\\\p\"\n";

std::string named(const std::string& value, const std::string& text) {
  return "\"" + value + "\"=\"" + text + "\"\n";
}

std::string serviceKey(const std::string& name, const std::string& start) {
  return "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\" + name + "]\n" + start + "\n";
}

std::string clusterKey(const std::string& below, const std::string& value) {
  return "[HKEY_LOCAL_MACHINE\\Cluster\\NUV\\ZOR\\" + below + "]\n" + value;
}

TEST_F(Instances, AreListedAsTheRegistryHasThem) {
  const std::string full(70, 'N');
  const std::string reported(63, 'N');
  const std::string thousand(1000, 'p');
  const struct {
    const char* name;
    const char* kind;
    std::string lines;
    std::string answer;
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
      {"default entry alone", "ZOR", defaultKeys("8") + instanceKey("", "I"),
       "I - C:\\D\\I 0 -;end;"},
      {"default entry of version 9", "ZOR", defaultKeys("9") + instanceKey("", "I"), "end;"},
      {"ZEM profiles as they are", "ZEM",
       copyKeys("A") + instanceKey("A", "I1", named("ZORZEMPROF", "Z:\\\\z") + here, zem) +
           instanceKey("A", "I2", "", zem) + instanceKey("A", "I3"),
       "I1 A Z:\\z 0 -;I2 A C:\\X 0 -;end;"},
      {"an empty profile", "ZOR", copyKeys("A") + instanceKey("A", "I", named("ZORINSTPROF", "")),
       "I A - 0 -;end;"},
      {"a long name is found whole and reported in part", "ZOR",
       copyKeys("A") + instanceKey("A", full, here) + serviceKey(full, "\"Start\"=dword:2") +
           serviceKey(reported, "\"Start\"=dword:4"),
       reported + " A D:\\p\\" + full + " 1 -;end;"},
      {"a profile directory at the limit and beyond", "ZOR",
       copyKeys("A") + instanceKey("A", std::string(22, 'a'), named("ZORINSTPROF", thousand)) +
           instanceKey("A", std::string(23, 'b'), named("ZORINSTPROF", thousand)) +
           instanceKey("A", std::string(30, 'c'), named("ZORINSTPROF", thousand)) +
           instanceKey("A", "d", here),
       std::string(22, 'a') + " A " + thousand + "\\" + std::string(22, 'a') +
           " 0 -;0x90000266;0x90000266;d A D:\\p\\d 0 -;end;"},
      {"start types", "ZOR",
       copyKeys("A") + instanceKey("A", "I1") + instanceKey("A", "I2") + instanceKey("A", "I3") +
           instanceKey("A", "I4") + serviceKey("i1", "\"Start\"=dword:00000002") +
           serviceKey("I2", "\"Start\"=dword:00000004") + serviceKey("I3", "\"Start\"=\"2\"") +
           serviceKey("I4", "\"Start\"=dword:00000102"),
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

TEST_F(Instances, EveryFieldOfTheRecordIsFilled) {
  machine(copyKeys("A") + instanceKey("A", "INST1", here));
  OSSInstanceInfo_t record;
  std::memset(&record, 0xAA, sizeof record);
  ASSERT_EQ(ossGetInstanceInfo(nullptr, 0, nullptr, &record), 0u);
  EXPECT_EQ(record.flags, 0u);
  EXPECT_EQ(record.versionCode, 0x0009000100020003u);
  EXPECT_EQ(std::string(record.instanceName) + "|" + record.service + "|" + record.instancePath +
                "|" + record.usage + "|" + record.installPath + "|" + record.hostName + "|" +
                record.comment + "|" + record.copyName,
            "INST1|ZOR|D:\\p\\INST1||C:\\X|||A");
}

TEST_F(Instances, AProfileOnAnotherMachineIsReadThere) {
  const struct {
    const char* name;
    std::string remote;  // the value that names the machine
    std::string kind;
    std::string answer;
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
  const auto profile = [](const std::string& text) {
    return productKey("\\INSTALLEDCOPIES\\A\\I", named("ZORINSTPROF", text));
  };
  remoteMachine("OTHER", profile("R:\\\\r"));
  std::filesystem::create_directory(path("below"));
  remoteMachine("below/OTHER", profile("R:\\\\r"));
  remoteMachine("LONG", profile(std::string(259, 'r')));
  remoteMachine("LONGER", profile(std::string(260, 'r')));
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
    EXPECT_EQ(instances("ZEM"), "Z1 A S:\\z 8 CLU;end;");
  });
}

TEST_F(Instances, WithoutAClusterTheOthersAreListedAndTheLibraryIsLookedForOnce) {
  machine(copyKeys("A") + instanceKey("A", "I1", named("ZORCLUSTER", "CLU")) +
          instanceKey("A", "I2", named("ZORCLUSTER", "CLU")) + instanceKey("A", "I3"));
  expectInChild([] {
    const FaultPlan loads(0, 0, false, "LoadLibraryA");
    const std::string answer = "0x90000266;0x90000266;I3 A C:\\X\\I3 0 -;end;";
    EXPECT_EQ(instances(), answer);
    EXPECT_EQ(instances(), answer);
    EXPECT_EQ(loads.calls(), 1u);
  });
}

TEST_F(Instances, TwoThreadsThatMeetTheirFirstClusterInstanceAtOnceLoadTheLibraryOnce) {
  machine(copyKeys("A") + instanceKey("A", "I", named("ZORCLUSTER", "CLU")) +
          clusterKey("PROFILES\\I", here));
  expectInChild([] {
    static std::atomic<int> loads{0};
    static std::atomic<int> ready{0};
    ossSetFaultHook(
        [](const char* operation, const char*, void*) {
          if (std::strcmp(operation, "LoadLibraryA") == 0) ++loads;
          return 0;
        },
        nullptr);
    std::string answers[2];
    const auto run = [&](std::string& answer) {
      for (++ready; ready < 2;) std::this_thread::yield();
      answer = instances();
    };
    std::thread other(run, std::ref(answers[0]));
    run(answers[1]);
    other.join();
    for (const std::string& answer : answers) EXPECT_EQ(answer, "I A D:\\p\\I 8 CLU;end;");
    EXPECT_EQ(loads, 1);
  });
}

TEST_F(Instances, ALookupFindsTheFirstInstanceThatAgreesWithEveryArgument) {
  const std::string longName(63, 'L');
  machine(copyKeys("A") + instanceKey("A", "INST1") + instanceKey("A", "inst2") +
          copyKeys("B", "10") + instanceKey("B", "INST1") + instanceKey("B", "ZEM1", "", zem) +
          instanceKey("B", longName + "TAIL"));
  const struct {
    const char* kind;
    std::uint64_t version;
    std::string name;  // empty: null
    const char* copy;
    const char* found;  // copy and instance; null: none
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
}

// Each row makes the one call that must give the code, where the operation named fails as told.
TEST_F(Instances, EveryCodeOfEveryExport) {
  machine(copyKeys("A") + instanceKey("A", "I") +
          instanceKey("A", "J", named("ZORCLUSTER", "CLU")) + copyKeys("B") +
          instanceKey("B", "K") + defaultKeys("8") + instanceKey("", "L") +
          clusterKey("PROFILES\\J", here));
  OSSInstanceInfo_t record;
  void* const unopened = &record;
  const auto open = [&](const char* kind) {
    void* list = unopened;
    const unsigned int code = ossOpenInstanceList(kind, &list);
    if (code == 0) (void)ossCloseInstanceList(list);
    EXPECT_EQ(list == unopened, code != 0);
    return code;
  };
  const auto openZor = [&] { return open("ZOR"); };
  const auto next = [&](unsigned int steps) {
    return [&record, steps] {
      void* list = nullptr;
      EXPECT_EQ(ossOpenInstanceList("ZOR", &list), 0u);
      unsigned int code = 0;
      for (unsigned int i = 0; i < steps; ++i) code = ossGetNextInstance(list, &record);
      (void)ossCloseInstanceList(list);
      return code;
    };
  };
  const auto close = [] {
    void* list = nullptr;
    EXPECT_EQ(ossOpenInstanceList("ZOR", &list), 0u);
    return ossCloseInstanceList(list);
  };
  const auto find = [&] { return ossGetInstanceInfo("ZOR", 0, "NONE", nullptr, &record); };
  const std::vector<ExportCall> calls{
      {0, openZor},
      {0x90000280, [&] { return open(nullptr); }},
      {0x90000263, [&] { return open("zor"); }, {}, 135, 0x90000263},
      {0x90000263, [] { return ossOpenInstanceList("ZOR", nullptr); }},
      {0x90000263, openZor, {"RegEnumKeyExA", 1, 5}, 135, 0x90000263},
      {0x90000282, [&] { return open("ZEM"); }, {}, 135, 0x90000282},
      {0x9000000D, openZor, {"calloc", 1, ENOMEM}, 135, 0x9000000D},
      {0x9000000A, openZor, {"RegOpenKeyExA", 1, ENOSPC}, 135, 0x9000000A},
      {0, openZor, {"RegOpenKeyExA", 1, 2}},  // the default entry has profiles
      {0, next(4)},
      {0x900001BE, next(5)},
      {0x900001BE, next(6)},
      {0x90000262, [&] { return ossGetNextInstance(nullptr, &record); }},
      {0x90000261, [&] { return ossGetNextInstance(unopened, nullptr); }},
      {0x90000266, next(1), {"RegEnumKeyExA", 2, 5}, 138, 0x90000266},
      {0x90000266, next(3), {"RegEnumKeyExA", 5, 5}, 138, 0x90000266},
      {0x90000266, next(1), {"RegQueryValueExA", 1, 5}, 138, 0x90000268},
      {0x90000266, next(1), {"RegQueryValueExA", 5, 5}, 138, 0x90000268},
      {0x90000266, next(1), {"RegQueryValueExA", 9, 5}, 138, 0x90000268},
      {0x90000266, next(1), {"RegOpenKeyExA", 6, 2}, 138, 0x90000282},
      {0x90000266, next(1), {"RegOpenKeyExA", 6, ENOSPC}, 138, 0x9000000A},
      {0x90000266, next(2), {"calloc", 2, ENOMEM}, 138, 0x9000000D},
      {0, next(3), {"calloc", 2, ENOMEM}, 138, 0x9000000D},  // met again, and read
      {0x90000266, next(2), {"OpenCluster", 1, 1}},
      {0x90000266, next(2), {"GetClusterKey", 1, 1}},
      {0, next(1), {"OpenSCManagerA", 1, 1}},
      {0x90000264, close, {"free", 2, EIO}, 104, 0x90000264},  // the first: the export's stream
      {0x90000262, [] { return ossCloseInstanceList(nullptr); }},
      {0x90000268, find},
      {0x90000268, find, {"RegEnumKeyExA", 1, 5}, 106, 0x90000268},
      {0x90000261, [] { return ossGetInstanceInfo(nullptr, 0, nullptr, nullptr); }},
      {0x90000261, [] { return ossSetInstanceInfo(nullptr); }},
      {0x90000005, [&] { return ossSetInstanceInfo(&record); }},
      {0x90000005, [] { return ossRemoveInstanceInfo("ZOR", 0, "I"); }},
  };
  expectInChild([&] { expectCodes(calls); });
}

}  // namespace
