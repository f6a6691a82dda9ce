// Repair of a damaged registry: what is whole stays, the original is kept aside.
#include <cerrno>

#include "support/flavours.h"

namespace {

class RepairTest : public RegistryTest {
 protected:
  struct Case {
    const char* name;
    std::string before, after;
    std::uint64_t kept, dropped, firstDamage;
    bool dropUnreadable = false;
  };

  template <typename Flavour>
  void expectRepaired(const std::vector<Case>& cases) {
    for (const Case& row : cases) {
      SCOPED_TRACE(row.name);
      clearDirectory();
      writeFile(registry(), row.before);
      typename Operations<Flavour>::Handle handle(registry(), verified);
      GenRegRepairReport report{9, 9, 9, 9};
      EXPECT_EQ(handle.RepairRegistry(row.dropUnreadable, &report), 0u);
      const bool damaged = row.before != row.after;
      EXPECT_EQ(readFile(registry()), row.after);
      EXPECT_EQ(readFile(corrupt()), damaged ? row.before : "") << "the original";
      EXPECT_EQ(files(), damaged ? "r r.cor" : "r");
      EXPECT_EQ(handle.isUpdateCommitted(), damaged);
      EXPECT_EQ(report.kept, row.kept);
      EXPECT_EQ(report.dropped, row.dropped);
      EXPECT_EQ(report.bytesLeftOut, row.before.size() - row.after.size());
      EXPECT_EQ(report.firstDamage, row.firstDamage);
      EXPECT_EQ(Operations<Flavour>::add(handle, "z", 9), 0u);
      EXPECT_EQ(readFile(registry()), row.after + Flavour::stored("z", 9));
      EXPECT_EQ(files(), "r") << "an update keeps no original";
      EXPECT_EQ(Operations<Flavour>::remove(handle, "x"), notFound);
      EXPECT_FALSE(handle.isUpdateCommitted());
    }
  }

  template <typename Flavour>
  static std::vector<Case> framedCases() {
    const std::string a = Flavour::stored("a", 1);
    const std::string b = Flavour::stored("b", 2);
    const std::string c = Flavour::stored("c", 5);
    const std::uint64_t at = a.size();
    const std::string lost = std::string("\xF0\xFF\xFF\xFF", 4) + b.substr(4);
    return {{"nothing to repair", a + b, a + b, 2, 0, 0},
            {"an empty file", "", "", 0, 0, 0},
            {"torn record", a + b.substr(0, 12), a, 1, 0, at},
            {"torn length", a + "xx", a, 1, 0, at},
            {"append that was cut off", a + std::string("\x24\0\x40\xDBxyz", 7), a, 1, 0, at},
            {"damaged length, two records behind", a + lost + a + c, a + a + c, 3, 0, at},
            {"damaged length, one behind", a + lost + c, a + c, 2, 0, at},
            {"damage at the start", lost + a + c, a + c, 2, 0, 0},
            {"damaged twice", lost + a + c + lost + a + c, a + c + a + c, 4, 0, 0},
            {"nothing but damage", lost, "", 0, 0, 0}};
  }
};

TEST_F(RepairTest, OfABinaryRegistry) {
  expectRepaired<BinaryVariables>(framedCases<BinaryVariables>());
  // The value of the damaged record looks like a length, and what follows it like a record.
  const std::string a = BinaryVariables::stored("a", 1);
  const std::string lost =
      std::string("\xF0\xFF\xFF\xFF", 4) + BinaryVariables::stored("b", 36).substr(4);
  expectRepaired<BinaryVariables>(
      {{"a false record", a + lost + a + a, a + a + a, 3, 0, a.size()}});
}

TEST_F(RepairTest, OfAGlobalRegistry) {
  expectRepaired<GlobalVariables>(framedCases<GlobalVariables>());
  const std::string a = GlobalVariables::stored("a", 1);
  const std::string newer = framed(stored(3, 0x1, {text("x")}));
  const std::string malformed = framed(stored(4, 0x1, {entry("x")}));
  const std::string both = a + newer + malformed + a;
  expectRepaired<GlobalVariables>({{"the unreadable dropped", both, a + a, 2, 2, a.size(), true},
                                   {"nothing to drop", a + a, a + a, 2, 0, 0, true}});
  // Without being asked, it keeps what a newer program may be able to read.
  writeFile(registry(), both);
  Operations<GlobalVariables>::Handle handle(registry(), verified);
  GenRegRepairReport report{};
  EXPECT_EQ(handle.RepairRegistry(false, &report), 0u);
  EXPECT_EQ(report.kept, 4u);
  EXPECT_EQ(readFile(registry()), both);
}

TEST_F(RepairTest, OfATextRegistry) {
  const std::string a = "A = 1\n";
  const std::string odd = "# x\n\nodd\n";
  const std::string nul("B = 1\0x\n", 8);
  const std::string tooLong = "C = " + std::string(5000, 'c') + "\n";
  expectRepaired<VariableLines>(
      {{"nothing to repair", a + odd, a + odd, 4, 0, 0},
       {"a line with a NUL", a + nul + a, a + a, 2, 1, a.size()},
       {"an append that was cut off", a + std::string("\0B = ", 5), a, 1, 1, a.size()},
       {"a line that is too long", a + tooLong + a, a + a, 2, 3, a.size()},
       {"the unreadable dropped", odd + a, "# x\n\n" + a, 3, 1, 5, true}});
}

TEST_F(RepairTest, ThatFailsLeavesTheRegistryAsItWas) {
  const std::string before = frame(variable("a", 1)) + "torn";
  TestRegistry missing(registry(), verified);
  EXPECT_EQ(missing.RepairRegistry(), opening);
  writeFile(registry(), before);
  for (const char* call : {"read", "write", "fsync", "flock", "open"}) {
    SCOPED_TRACE(call);
    TestRegistry handle(registry(), verified);
    {
      const FaultPlan plan(1, EIO, false, call);
      EXPECT_NE(handle.RepairRegistry(true), 0u);
    }
    EXPECT_FALSE(handle.isUpdateCommitted());
    EXPECT_EQ(readFile(registry()), before);
    EXPECT_FALSE(exists(temporary()) || exists(corrupt()));
  }
  Operations<VariableLines>::Handle lines(registry(), verified);
  for (const FaultPlan plan(1, EIO, false, "read"); plan.calls() == 0;) {
    EXPECT_EQ(lines.RepairRegistry(), readFailed);
  }
  TestRegistry scanning(registry(), verified);
  EXPECT_EQ(scanning.OpenScan(), 0u);
  EXPECT_EQ(scanning.RepairRegistry(), opening);
  EXPECT_EQ(scanning.CloseScan(), 0u);
}

}  // namespace
