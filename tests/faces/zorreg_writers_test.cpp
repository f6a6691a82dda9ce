// The C interface with two writers of one record at once: each changes a field of its own, and
// neither takes back what the other one has changed in between.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "support/registry_fixture.h"
#include "zorreg.h"

namespace {

class Writers : public RegistryTest {
 protected:
  // How often a change of `field` was not there any more when it was looked for.
  int changeOften(const std::string& field) const {
    zorreg* handle = nullptr;
    zorreg_record* key = zorreg_record_new();
    zorreg_record* record = zorreg_record_new();
    int lost = zorreg_open("services", registry().c_str(), &handle) == 0 ? 0 : 1;
    (void)zorreg_record_set(key, "Name", "web");
    for (int i = 1; i <= 100 && lost == 0; ++i) {
      (void)zorreg_record_set(record, field.c_str(), std::to_string(i).c_str());
      const bool isThere = zorreg_change(handle, key, record) == 0 &&
                           zorreg_get(handle, key, record) == 0 &&
                           zorreg_record_get(record, field.c_str()) == std::to_string(i);
      lost += isThere ? 0 : 1;
      zorreg_record_free(record);
      record = zorreg_record_new();
    }
    zorreg_record_free(key);
    zorreg_record_free(record);
    zorreg_close(handle);
    return lost;
  }
};

TEST_F(Writers, OfDifferentFieldsOfARecordKeepEachOthersChanges) {
  writeFile(registry(), "web 1000/tcp a # c\n");
  int lost[2] = {};
  std::thread other([&] { lost[1] = changeOften("Comment"); });
  lost[0] = changeOften("Port");
  other.join();
  EXPECT_EQ(lost[0] + lost[1], 0);
}

}  // namespace
