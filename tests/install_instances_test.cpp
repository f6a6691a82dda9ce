// The instances: the whole list of each registry, and the lookups.
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

std::string serviceKey(const std::string& name, const std::string& start) {
  return "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\" + name +
         "]\n\"Start\"=" + start + "\n";
}

std::string clusterKey(const std::string& below, const std::string& name,
                       const std::string& value) {
  return "[HKEY_LOCAL_MACHINE\\Cluster\\NUV\\ZOR\\" + below + "]\n\"" + name + "\"=" + value + "\n";
}

TEST_F(Instances, AreListedAsTheRegistryHasThem) {
  const std::string tooLong(129, 'N');
  const std::string full(70, 'N');
  const std::string cut = full.substr(0, 63);
  const std::string split = full.substr(0, 62) + "\xC3\xA4";
  const std::string thousand(1000, 'p');
  const std::string atLimit(22, 'a');
  const struct {
    const char* kind;
    std::string lines, answer;
  } cases[] = {
      {"ZOR", "", "282"},
      {"ZOR", keys("A; -=8"), "282"},
      {"ZOR", keys(tooLong), "263"},
      {"ZOR", keys("A; A/I; " + tooLong), "I A C:\\X\\I 0 -;266 - -;end;"},
      {"ZOR", productKey("\\INSTALLEDCOPIES\\A\\PROFILES"), "end;"},
      {"ZOR", keys("b=9|B:; b/I2; b/i1|ZORINSTPROF=D:; B2; A; A/I3; -=8; -/I4"),
       "I3 A C:\\X\\I3 0 -;i1 b D:\\i1 0 -;I2 b B:\\I2 0 -;I4 - C:\\X\\I4 0 -;end;"},
      {"ZOR", keys("-=9; -/I"), "end;"},
      {"ZEM", keys("A; A//I2|ZORREMOTEPREG=X; A/I3; A//I1|ZORZEMPROF=Z:\\z|ZORINSTPROF=D:"),
       "I1 A Z:\\z 0 -;I2 A C:\\X 0 -;end;"},
      // Names and directories that just fit or do not; a long name is found whole, reported in
      // part.
      {"ZOR",
       keys("A; A/0|ZORINSTPROF=; A/" + atLimit + "|ZORINSTPROF=" + thousand + "; A/" + atLimit +
            "b|ZORINSTPROF=" + thousand + "; A/" + full + "; A/" + split + "T") +
           serviceKey(full, "dword:2") + serviceKey(cut, "dword:4"),
       "0 A - 0 -;" + atLimit + " A " + thousand + "\\" + atLimit + " 0 -;266 " + atLimit + "b A;" +
           cut + " A C:\\X\\" + full + " 1 -;" + full.substr(0, 62) + " A C:\\X\\" + split +
           "T 0 -;end;"},
      {"ZOR",
       keys("A; A/I1; A/I2; A/I3; A/I4") + serviceKey("i1", "dword:2") +
           serviceKey("I2", "dword:4") + serviceKey("I3", "\"2\"") + serviceKey("I4", "dword:102"),
       "I1 A C:\\X\\I1 1 -;I2 A C:\\X\\I2 16 -;I3 A C:\\X\\I3 0 -;I4 A C:\\X\\I4 0 -;end;"},
      {"ZOR", keys("A/I; B; B/I"), "266 I A;266 I A;266 I A;"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.lines);
    machine(row.lines);
    EXPECT_EQ(instances(row.kind), row.answer);
  }
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

TEST_F(Instances, AProfileOnAnotherMachineIsReadThere) {
  const auto of = [](const std::string& name, const std::string& directory) {
    return productKey("\\INSTALLEDCOPIES\\" + name, "\"ZORINSTPROF\"=\"" + directory + "\"\n");
  };
  const std::string longest(259, 'r');
  std::filesystem::create_directory(path("below"));
  remoteMachine("OTHER", of("A\\I1", "R:") + of("A\\I2", "R:") + of("A\\I3", longest) +
                             of("A\\I4", longest + "r") + of("L", "R:"));
  remoteMachine("below/OTHER", of("A\\I6", "R:"));
  remoteMachine("BROKEN", "broken");
  machine(
      keys("A; A/I1|ZORREMOTEPREG=OTHER; A/I2|ZORREMOTEPREG=\\\\OTHER; "
           "A/I3|ZORREMOTEPREG=OTHER; A/I4|ZORREMOTEPREG=OTHER; A/I5|ZORREMOTEPREG=OTHER; "
           "A/I6|ZORREMOTEPREG=below/OTHER; A/I7|ZORREMOTEPREG=BROKEN; A/I8|ZORREMOTEPREG=; "
           "A/I9|ZORREMOTEPREG=NAMEOF15LETTERS; -=8; -/L|ZORREMOTEPREG=OTHER"));
  const FaultPlan opened(0, 0, false, "open");
  EXPECT_EQ(instances(), "I1 A R:\\I1 4 OTHER;I2 A R:\\I2 4 \\\\OTHER;I3 A " + longest +
                             "\\I3 4 OTHER;266 I4 A;266 I5 A;266 I6 A;266 I7 A;266 I8 A;266 I9 A;"
                             "L - R:\\L 4 OTHER;end;");
  EXPECT_EQ(opened.calls(), 4u);  // each export once: this machine's, two others', one missing
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

TEST_F(Instances, ALookupFindsTheFirstInstanceThatAgreesWithEveryArgument) {
  const std::string longName(63, 'L');
  machine(keys("A; A/INST1; A/inst2; B=10; B/INST1|ZORINSTPROF=D:; B//ZEM1; B/" + longName + "T"));
  const struct {
    const char* kind;
    std::uint64_t version;
    std::string name;  // empty: null
    const char* copy;
    std::string found;  // copy and instance; empty: none
  } cases[] = {
      {nullptr, 0, "", nullptr, "A INST1"},
      {"ZOR", 0, "inst1", nullptr, "A INST1"},
      {"ZOR", 0, "INST1", "B", "B INST1"},
      {"ZOR", 0, longName, nullptr, "B " + longName},
      {"zor", 0, "", nullptr, "B ZEM1"},
      {"ZOR", 0, "inst2", nullptr, ""},
      {"ZOR", 0, "INST1", "b", ""},
      {"ZOR", 1, "", nullptr, ""},
      {"ZOR", 0, longName + "T", nullptr, ""},
      {"ZOR", 0x000A000100020003, "INST1", nullptr, "B INST1"},
  };
  OSSInstanceInfo_t record;
  std::memset(&record, 0xAA, sizeof record);
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    const char* const name = row.name.empty() ? nullptr : row.name.c_str();
    const Code code = ossGetInstanceInfo(row.kind, row.version, name, row.copy, &record);
    EXPECT_EQ(code, row.found.empty() ? GENREG_RC_INSTANCE_INFO : 0u);
    const std::string found = std::string(record.copyName) + " " + record.instanceName;
    EXPECT_EQ(code == 0 ? found : "", row.found);
  }
  EXPECT_EQ(record.versionCode, 0x000A000100020003u);
  EXPECT_EQ(std::string(record.service) + record.installPath, "ZORC:\\X");
  EXPECT_EQ(std::string(record.usage) + record.comment, "");
}

}  // namespace
