#include "support/machine_fixture.h"

#include <cstdio>
#include <cstring>

namespace {

std::string below(const std::string& copy) {
  return copy.empty() ? "" : "\\INSTALLEDCOPIES\\" + copy;
}

std::string orDash(const std::string& text) { return text.empty() ? "-" : text; }

std::string codeText(Code code) {
  char text[16];
  (void)std::snprintf(text, sizeof text, "0x%08X", code);
  return text;
}

std::string identity(const OSSServiceInfo_t& record) { return orDash(record.copyName); }
std::string identity(const OSSInstanceInfo_t& record) {
  return orDash(record.instanceName) + " " + orDash(record.copyName);
}

std::string shown(const OSSServiceInfo_t& record) {
  return std::string(record.service) + " " + identity(record);
}
std::string shown(const OSSInstanceInfo_t& record) {
  return identity(record) + " " + orDash(record.instancePath) + " " + std::to_string(record.flags) +
         " " + orDash(record.hostName);
}

// The record begins full of rubbish: what a step does not write must not be looked at.
template <typename Record>
std::string walk(void* list, Code (*next)(void*, Record*), Code (*close)(void*)) {
  std::string answer;
  Code code = 0;
  for (int failures = 0; code != GENREG_RC_END && failures < 3;) {
    Record record;
    std::memset(&record, 0xAA, sizeof record);
    code = next(list, &record);
    if (code == GENREG_RC_END) {
      answer += "end;";
    } else if (code != 0) {
      ++failures;
      answer += codeText(code) + " " + identity(record) + ";";
    } else {
      answer += shown(record) + ";";
    }
  }
  EXPECT_EQ(close(list), 0u);
  return answer;
}

void collect(const OSSDiagnosticRecord& record, void* context) {
  auto& log = *static_cast<FailureLog*>(context);
  const auto text = [&](unsigned int index) {
    const OSSDiagnosticValue& value = record.values[index];
    return std::string(static_cast<const char*>(value.address), value.length);
  };
  if (record.kind != OSSRecordKind::Log && record.kind != OSSRecordKind::LogCallee) return;
  if (record.probe >> 16 == 0x082A) {
    log.failures += std::to_string(record.probe & 0xFFFF) + "." + std::to_string(record.point) +
                    ":" + codeText(record.code) + ";";
  } else if (record.probe == 0x081A0100 && record.valueCount == 3) {
    std::uint32_t line = 0;
    std::memcpy(&line, record.values[1].address, sizeof line);
    log.refusals += text(0) + "|" + std::to_string(line) + "|" + text(2) + ";";
  }
}

}  // namespace

std::string textValue(const std::string& name, const std::string& text) {
  return "\"" + name + "\"=\"" + text + "\"\n";
}

std::string productKey(const std::string& path, const std::string& values) {
  return "[HKEY_LOCAL_MACHINE\\SOFTWARE\\NUV\\ZOR" + path + "]\n" + values;
}

std::string versionKey(const std::string& copy, const std::string& version) {
  return productKey(below(copy) + "\\CurrentVersion",
                    textValue("Version", version) + textValue("Release", "1") +
                        textValue("Modification", "2") + textValue("Service Level", "3"));
}

std::string copyKeys(const std::string& name, const std::string& version, const std::string& path) {
  return productKey(below(name), textValue("ZOR Path Name", path)) + versionKey(name, version);
}

std::string defaultKeys(const std::string& version) { return copyKeys("", version, "C:\\\\D"); }

std::string instanceKey(const std::string& copy, const std::string& name, const std::string& values,
                        const std::string& profiles) {
  return productKey(below(copy) + "\\" + profiles + "\\" + name, values);
}

std::string copies() {
  void* list = nullptr;
  const Code code = ossOpenServiceList(&list);
  return code != 0 ? codeText(code) : walk(list, ossGetNextService, ossCloseServiceList);
}

std::string instances(const char* kind) {
  void* list = nullptr;
  const Code code = ossOpenInstanceList(kind, &list);
  return code != 0 ? codeText(code) : walk(list, ossGetNextInstance, ossCloseInstanceList);
}

FailureLog::FailureLog() { ossSetDiagnosticCallback(collect, this); }
FailureLog::~FailureLog() { ossSetDiagnosticCallback(nullptr, nullptr); }
