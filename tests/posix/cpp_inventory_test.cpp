// zorgenreg.hpp's lists of copies and instances.
#include "support/machine_fixture.h"
#include "zorgenreg.hpp"

namespace {

class CppInventory : public MachineTest {};

// The entries, then the code and of which entry it was; the form that throws has to give the same.
template <typename Entries, typename Throwing>
std::string shown(const Entries& entries, const std::error_code& error, Throwing throwing) {
  std::string all;
  for (const auto& entry : entries) {
    all += entry.service + " " + entry.name + " " + zor::versionText(entry.versionCode) + ";";
  }
  try {
    EXPECT_EQ(throwing().size(), entries.size());
  } catch (const zor::Error& thrown) {
    EXPECT_EQ(thrown.code(), error);
    return all + codeText(zor::codeOf(error)) + " " + thrown.file();
  }
  EXPECT_FALSE(error);
  return all;
}

TEST_F(CppInventory, WhatCannotBeReadDoesNotHideTheRest) {
  const std::string unnamed(129, 'N');
  const std::string noPath = "\"ZOR Path Name\"=-\n";
  const struct {
    std::string lines, copies, instances;
  } rows[] = {
      {productKey(""), "263 ", ""},
      {keys("A; A/I; A//Z"), "ZEM A 9.1.2.3;ZOR A 9.1.2.3;", "ZOR I 9.1.2.3;"},
      // The same copy, twice in a list, and copies without a name in a row.
      {keys("A; B//Z; C") + productKey("\\INSTALLEDCOPIES\\B", noPath),
       "ZOR A 9.1.2.3;ZOR C 9.1.2.3;265 B", ""},
      {keys("A; " + unnamed + "; " + unnamed + "2; " + unnamed + "3; Z"),
       "ZOR A 9.1.2.3;ZOR Z 9.1.2.3;265 ", "263 "},
      // An instance that fails for ever.
      {keys("A; A/I; B; B/J") + productKey("\\INSTALLEDCOPIES\\B", noPath), "ZOR A 9.1.2.3;265 B",
       "ZOR I 9.1.2.3;266 J of copy B"},
  };
  for (const auto& row : rows) {
    machine(row.lines);
    std::error_code error;
    const auto copies = zor::copies(error);
    EXPECT_EQ(shown(copies, error, [] { return zor::copies(); }), row.copies);
    const auto instances = zor::instances("ZOR", error);
    EXPECT_EQ(shown(instances, error, [] { return zor::instances(); }), row.instances);
  }
}

}  // namespace
