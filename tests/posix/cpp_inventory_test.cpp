// zorgenreg.hpp's lists of copies and instances, and those of the C interface.
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

TEST_F(CppInventory, AnEndOfMemoryLosesNoListAndBlamesNoEntry) {
  machine(keys("A; A/I; B; B/J"));
  const auto list = [] {
    try {
      EXPECT_EQ(zor::copies().size() + zor::instances().size(), 4u);
    } catch (const zor::Error& error) {
      EXPECT_EQ(error.file(), "") << error.what();
    }
  };
  list();
  for (long n = 1; endsInTheMidst(n, list); ++n) list();  // the machine is read and kept again
}

// What a list of the C interface gives: fields with their values, and codes.
template <typename Open>
std::string listed(Open open) {
  zorreg_list* list = nullptr;
  zorreg_record* record = zorreg_record_new();
  std::string all = open(&list) == 0 ? "" : "not opened";
  unsigned int code = 0;
  while ((code = zorreg_list_next(list, record)) != GENREG_RC_END && list != nullptr) {
    if (code != 0) all += codeText(code) + " ";
    const char* field = nullptr;
    for (std::size_t i = 0; (field = zorreg_record_field(record, i)) != nullptr; ++i) {
      all += std::string(field) + "=" + zorreg_record_get(record, field) + " ";
    }
    all += ";";
  }
  EXPECT_EQ(zorreg_list_next(list, record), code);
  zorreg_record_free(record);
  zorreg_list_close(list);
  return all;
}

TEST_F(CppInventory, TheCInterfaceListsTheFieldsThatTheToolPrints) {
  machine(keys("A; A/I1|ZORINSTPROF=D:; A/I2|ZORREMOTEPREG=OTHER; B; B/J") +
          productKey("\\INSTALLEDCOPIES\\B", "\"ZOR Path Name\"=-\n"));
  const auto instances = [](const char* kind) {
    return listed([=](zorreg_list** list) { return zorreg_instances(kind, list); });
  };
  remoteMachine("OTHER", productKey("\\INSTALLEDCOPIES\\A\\I2", "\"ZORINSTPROF\"=\"R:\"\n"));
  const std::string version = "version=9.1.2.3 versionCode=0x0009000100020003 ";
  const std::string of = version + "copyName=A installPath=C:\\X instancePath=";
  EXPECT_EQ(listed(zorreg_copies),
            "service=ZOR " + version + "level=2 copyName=A installPath=C:\\X ;265 copyName=B ;");
  EXPECT_EQ(instances("ZOR"),
            "kind=ZOR instanceName=I1 " + of +
                "D:\\I1 flags= hostName= ;kind=ZOR instanceName=I2 " + of +
                "R:\\I2 flags=remote hostName=OTHER ;266 instanceName=J copyName=B ;" +
                "266 instanceName=J copyName=B ;266 instanceName=J copyName=B ;");
  EXPECT_EQ(instances("ZEM"), "");
  std::error_code error;
  const zor::Instance remote = zor::instances("ZOR", error).at(1);
  EXPECT_EQ(remote.instancePath + remote.installPath + remote.hostName, "R:\\I2C:\\XOTHER");
  EXPECT_EQ(remote.flags, OSS_INSTANCE_REMOTE);
  zorreg_list* list = nullptr;
  EXPECT_EQ(zorreg_instances("x", &list), GENREG_RC_LIST_OPEN);
  EXPECT_TRUE(list == nullptr && *zorreg_cause(nullptr) != '\0');
  EXPECT_EQ(zorreg_instances(nullptr, &list), OSS_RC_NULL_ARGUMENT);
}

}  // namespace
