#include "support/machine_fixture.h"

#include <cstdio>

std::string codeText(unsigned int code) {
  if (code == GENREG_RC_END) return "end";
  char text[16];
  (void)std::snprintf(text, sizeof text, "0x%08X", code);
  return text;
}

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

std::string shown(const OSSServiceInfo_t& record) {
  return std::string(record.service) + " " + orDash(record.copyName);
}
std::string shown(const OSSInstanceInfo_t& record) {
  return std::string(record.instanceName) + " " + orDash(record.copyName) + " " +
         orDash(record.instancePath) + " " + std::to_string(record.flags) + " " +
         orDash(record.hostName);
}

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

void expectCodes(const std::vector<ExportCall>& calls) {
  for (const ExportCall& call : calls) {
    SCOPED_TRACE("row " + std::to_string(&call - calls.data()));
    const Diagnostics diagnostics;
    const FaultPlan plan(call.fault.call, call.fault.error, false, call.fault.operation);
    EXPECT_EQ(call.run(), call.code);
    if (call.probe == 0) continue;
    EXPECT_GE(diagnostics.logs(0x082A0000 + call.probe, call.logged), 1u);
  }
}

ListCalls<OSSServiceInfo_t> MachineTest::copyList() {
  return {ossOpenServiceList, ossGetNextService, ossCloseServiceList};
}

ListCalls<OSSInstanceInfo_t> MachineTest::instanceList(const char* kind) {
  const auto open = [kind](void** list) { return ossOpenInstanceList(kind, list); };
  return {open, ossGetNextInstance, ossCloseInstanceList};
}
