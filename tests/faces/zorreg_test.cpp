// The C interface: two writers of one record at once, which texts are UTF-8, values longer than a
// line, and memory that ends in the midst of an operation.
#include "zorreg.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "support/registry_fixture.h"

namespace {

using Record = std::shared_ptr<zorreg_record>;

Record recordOf(const std::vector<std::pair<const char*, std::string>>& fields) {
  Record record(zorreg_record_new(), zorreg_record_free);
  for (const auto& row : fields) zorreg_record_set(record.get(), row.first, row.second.c_str());
  return record;
}

class ZorregTest : public RegistryTest {
 protected:
  std::shared_ptr<zorreg> open(const char* kind) const {
    zorreg* handle = nullptr;
    (void)zorreg_open(kind, registry().c_str(), &handle);
    return {handle, zorreg_close};
  }
  // Whether each change of `field` was there still when it was looked for.
  bool changeOften(const char* field) const {
    const auto handle = open("services");
    const Record key = recordOf({{"Name", "web"}});
    bool isThere = true;
    for (int i = 1; i <= 100 && isThere; ++i) {
      const Record record = recordOf({{field, std::to_string(i)}});
      isThere = zorreg_change(handle.get(), key.get(), record.get()) == 0 &&
                zorreg_get(handle.get(), key.get(), record.get()) == 0 &&
                zorreg_record_get(record.get(), field) == std::to_string(i);
    }
    return isThere;
  }
};

TEST_F(ZorregTest, WritersOfDifferentFieldsOfARecordKeepEachOthersChanges) {
  writeFile(registry(), "web 1000/tcp a # c\n");
  std::thread other([&] { EXPECT_TRUE(changeOften("Comment")); });
  EXPECT_TRUE(changeOften("Port"));
  other.join();
}

TEST_F(ZorregTest, ANameMayBeAddedTwiceAlsoAfterAnEndOfMemory) {
  const Record nine = recordOf({{"Variable", "A"}, {"Value", "9"}});
  bool hasEnded = true;
  for (long n = 1; hasEnded; ++n) {
    writeFile(registry(), "A = 1\nA = 2\n");
    const auto handle = open("var");
    hasEnded = endsInTheMidst(n, [&] { (void)zorreg_set(handle.get(), nine.get()); });
    EXPECT_EQ(zorreg_add(handle.get(), nine.get()), 0u) << n << zorreg_cause(handle.get());
  }
}

TEST_F(ZorregTest, StoresUtf8AndUnknownFieldsOfAnyLengthAndOutlivesAnEndOfMemory) {
  auto handle = open("global");
  const auto add = [&](const char* field, const std::string& value) {
    const Record record = recordOf({{"Type", "variable"}, {"Service", field}, {field, value}});
    return zorreg_add(handle.get(), record.get());
  };
  for (const char* bad : {"\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xED\xBF\xBF",
                          "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80", "a\xC3", "\xC3("}) {
    EXPECT_EQ(add("Value", bad), GENREG_RC_BAD_VALUE);
  }
  EXPECT_EQ(add("Value", "\xC2\x80\xE0\xA0\x80\xED\x9F\xBF\xEF\xBF\xBF\xF4\x8F\xBF\xBF"), 0U);
  const std::string content = "0x" + std::string(std::size_t{2} * 0xFFFF, 'a');
  EXPECT_EQ(add("Field0x10", content + "aa"), GENREG_RC_BAD_VALUE);
  EXPECT_EQ(add("Field0x10", content), 0U) << zorreg_cause(handle.get());
  const Record key = recordOf({{"Type", "variable"}, {"Service", "Field0x10"}});
  const Record given = recordOf({{"Type", "variable"}, {"Service", "Field0x10"}, {"Value", "v"}});
  const std::string before = readFile(registry());
  unsigned code = OSS_RC_NO_MEMORY;
  for (long left = 1; code == OSS_RC_NO_MEMORY && left < 1000; ++left) {
    handle = open("global");  // which keeps no memory of an operation before
    (void)endsInTheMidst(left, [&] {
      code = zorreg_get(handle.get(), key.get(), key.get());
      if (code == 0) code = zorreg_set(handle.get(), given.get());
    });
    EXPECT_TRUE(code == 0 || (*zorreg_cause(handle.get()) != 0 && readFile(registry()) == before));
  }
  EXPECT_EQ(code, 0U) << zorreg_cause(handle.get());
  EXPECT_EQ(zorreg_record_get(key.get(), "Field0x10"), content);
}

}  // namespace
