#include "support/machine_fixture.h"

#include <cstdio>
#include <cstdlib>

namespace {

const char* const product = "HKEY_LOCAL_MACHINE\\SOFTWARE\\NUV\\ZOR";

std::string below(const std::string& copy) {
  return copy.empty() ? "" : "\\INSTALLEDCOPIES\\" + copy;
}

std::string value(const std::string& name, const std::string& text) {
  return "\"" + name + "\"=\"" + text + "\"\n";
}

std::string orDash(const std::string& text) { return text.empty() ? "-" : text; }

}  // namespace

std::string productKey(const std::string& path, const std::string& values) {
  return std::string("[") + product + path + "]\n" + values;
}

std::string versionKey(const std::string& copy, const std::string& version,
                       const std::string& release) {
  return productKey(below(copy) + "\\CurrentVersion",
                    value("Version", version) + value("Release", release) +
                        value("Modification", "2") + value("Service Level", "3"));
}

std::string copyKeys(const std::string& name, const std::string& version, const std::string& path) {
  return productKey(below(name), value("ZOR Path Name", path)) + versionKey(name, version);
}

std::string defaultKeys(const std::string& version) { return copyKeys("", version, "C:\\\\D"); }

std::string instanceKey(const std::string& copy, const std::string& name, const std::string& values,
                        const std::string& profiles) {
  return productKey(below(copy) + "\\" + profiles + "\\" + name, values);
}

std::string codeText(unsigned int code) {
  if (code == GENREG_RC_END) return "end";
  char text[16];
  (void)std::snprintf(text, sizeof text, "0x%08X", code);
  return text;
}

void MachineTest::SetUp() {
  RegistryTest::SetUp();
  ::setenv("ZOROSSE_REGISTRY_FILE", path("machine.reg").c_str(), 1);
}

void MachineTest::TearDown() {
  ::unsetenv("ZOROSSE_REGISTRY_FILE");
  RegistryTest::TearDown();
}

void MachineTest::machine(const std::string& lines) { remoteMachine("machine", lines); }

void MachineTest::machineBytes(const std::string& bytes) { writeFile(path("machine.reg"), bytes); }

void MachineTest::remoteMachine(const std::string& name, const std::string& lines) {
  writeFile(path(name + ".reg"), "Windows Registry Editor Version 5.00\n" + lines);
}

std::string MachineTest::copies(unsigned int failures) {
  void* list = nullptr;
  if (const unsigned int code = ossOpenServiceList(&list); code != 0) return codeText(code);
  std::string answer;
  unsigned int code = 0;
  while (code != GENREG_RC_END && failures > 0) {
    OSSServiceInfo_t record;
    code = ossGetNextService(list, &record);
    if (code == 0) {
      answer += std::string(record.service) + " " + orDash(record.copyName) + ";";
    } else {
      answer += codeText(code) + ";";
      --failures;
    }
  }
  EXPECT_EQ(ossCloseServiceList(list), 0u);
  return answer;
}

std::string MachineTest::instances(const char* kind, unsigned int failures) {
  void* list = nullptr;
  if (const unsigned int code = ossOpenInstanceList(kind, &list); code != 0) return codeText(code);
  std::string answer;
  unsigned int code = 0;
  while (code != GENREG_RC_END && failures > 0) {
    OSSInstanceInfo_t record;
    code = ossGetNextInstance(list, &record);
    if (code == 0) {
      EXPECT_STREQ(record.service, kind);
      answer += std::string(record.instanceName) + " " + orDash(record.copyName) + " " +
                orDash(record.instancePath) + " " + std::to_string(record.flags) + " " +
                orDash(record.hostName) + ";";
    } else {
      answer += codeText(code) + ";";
      --failures;
    }
  }
  EXPECT_EQ(ossCloseInstanceList(list), 0u);
  return answer;
}
