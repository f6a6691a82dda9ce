// When the export of a registry is read again, and that it is read whole. What its lines mean, and
// which are refused, is in tests/transcripts/installed.txt.
#include <cerrno>
#include <clocale>
#include <filesystem>
#include <thread>

#include "support/machine_fixture.h"

namespace {

class RegistryExport : public MachineTest {
 protected:
  // An export whose copies are these answers and refusals: "263" and "path|line|reason;" if any.
  void expectCopies(const std::string& answer, const std::string& refusal = "") const {
    const FailureLog log;
    EXPECT_EQ(copies(), answer);
    EXPECT_EQ(log.refusals, refusal.empty() ? "" : path("machine.reg") + "|" + refusal + ";");
  }

  // As if nobody had touched the machine's export for so many hours.
  void makeOld(int hours) const {
    static const auto now = std::filesystem::file_time_type::clock::now();
    std::filesystem::last_write_time(path("machine.reg"), now - std::chrono::hours(hours));
  }
};

TEST_F(RegistryExport, AFileThatCannotBeReadAsAWholeIsRefused) {
  // Two reads long; the first half would be an export, too.
  const std::string lines = keys("A") + std::string(300'000, '\n');
  machine(lines);
  {
    const FaultPlan plan(2, EIO, false, "read");
    expectCopies("263", "0|Input/output error");
  }
  for (const auto& changed : {lines.substr(0, 1000), lines + "\n"}) {
    machine(lines);
    unsigned int reads = 0;
    const FaultHook changing([&](const std::string& call) {
      if (call == "read" && ++reads == 2) remoteMachine("machine", changed);
      return 0;
    });
    expectCopies("263", "0|the file was changed while it was read");
  }
  expectCopies("ZOR A;end;");
}

TEST_F(RegistryExport, IsParsedOnceUntilItsFileChangesAndAListKeepsWhatItSaid) {
  machine(keys("A; A/I"));
  makeOld(1);
  void* list = nullptr;
  FaultPlan reads(0, 0, false, "read");
  std::string answer;
  std::thread other([&] { answer = copies(); });
  expectCopies("ZOR A;end;");
  other.join();
  EXPECT_EQ(answer, "ZOR A;end;");
  ASSERT_EQ(ossOpenInstanceList("ZOR", &list), 0u);
  EXPECT_EQ(reads.calls(), 1u);
  makeOld(2);
  expectCopies("ZOR A;end;");
  EXPECT_EQ(reads.calls(), 2u);
  // Another file of the same size and time.
  std::filesystem::rename(path("machine.reg"), path("old.reg"));
  machine(keys("B; B/I"));
  makeOld(2);
  expectCopies("ZOR B;end;");
  writeFile(path("machine.reg"), "broken");
  makeOld(1);
  for (int i = 0; i < 2; ++i) expectCopies("263", "1|not a registry export of version 5.00");
  EXPECT_EQ(reads.calls(), 4u);
  // What has only just been written may be written again within the same tick of the clock.
  machine(keys("C"));
  for (int i = 0; i < 2; ++i) expectCopies("ZOR C;end;");
  EXPECT_EQ(reads.calls(), 6u);
  OSSInstanceInfo_t record;
  EXPECT_EQ(ossGetNextInstance(list, &record), 0u);
  EXPECT_STREQ(record.copyName, "A");
  EXPECT_EQ(ossCloseInstanceList(list), 0u);
}

TEST_F(RegistryExport, TheLocaleOfTheProgramStays) {
  const std::string locale = std::setlocale(LC_ALL, nullptr);
  machine(keys("\xC3\xA4") + productKey("\\INSTALLEDCOPIES\\\xC3\x84"));
  expectCopies("ZOR \xC3\xA4;end;");
  EXPECT_EQ(std::setlocale(LC_ALL, nullptr), locale);
}

}  // namespace
