#include "support/machine_fixture.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <regex>
#include <sstream>

#include "sysservices/environment.h"

std::string codeText(Code code) {
  char text[16];
  const bool ours = code >> 12 == 0x90000;
  (void)std::snprintf(text, sizeof text, ours ? "%03X" : "e%u", ours ? code & 0xFFF : code);
  return text;
}

namespace {

std::string orDash(const std::string& text) { return text.empty() ? "-" : text; }

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

// Each step begins with a record full of rubbish: what it does not write would be seen.
template <typename Record>
std::string walk(void* list, Code (*next)(void*, Record*), Code (*close)(void*)) {
  std::string answer, failure;
  int alike = 0;
  for (Code code = 0; code != GENREG_RC_END && alike < 2;) {
    Record record;
    std::memset(&record, 0xAA, sizeof record);
    code = next(list, &record);
    const std::string failed = codeText(code) + " " + identity(record) + ";";
    alike = code != 0 && failed == failure ? alike + 1 : 0;
    failure = code == 0 ? "" : failed;
    answer += code == GENREG_RC_END ? "end;" : code != 0 ? failed : shown(record) + ";";
  }
  EXPECT_EQ(close(list), 0u);
  return answer;
}

void collect(const OSSDiagnosticRecord& record, void* context) {
  static std::mutex one;  // threads of a test report at once
  const std::lock_guard<std::mutex> alone(one);
  auto& log = *static_cast<FailureLog*>(context);
  const auto text = [&](unsigned int index) {
    const OSSDiagnosticValue& value = record.values[index];
    return std::string(static_cast<const char*>(value.address), value.length);
  };
  const std::string routine = std::to_string(record.probe & 0xFFFF);
  if (record.kind == OSSRecordKind::Entry) log.entries += routine + " ";
  if (record.kind != OSSRecordKind::Log && record.kind != OSSRecordKind::LogCallee) return;
  if (record.probe >> 16 == 0x082A) {
    log.failures +=
        routine + "." + std::to_string(record.point) + ":" + codeText(record.code) + ";";
  } else if (record.probe == 0x081A0100 && record.valueCount == 3) {
    std::uint32_t line = 0;
    std::memcpy(&line, record.values[1].address, sizeof line);
    log.refusals += text(0) + "|" + std::to_string(line) + "|" + text(2) + ";";
  }
}

}  // namespace

std::string productKey(const std::string& below, const std::string& values) {
  return "[HKEY_LOCAL_MACHINE\\SOFTWARE\\NUV\\ZOR" + below + "]\n" + values;
}

std::string keys(const std::string& items) {
  std::string lines;
  std::istringstream all(items);
  for (std::string item, field; std::getline(all >> std::ws, item, ';');) {
    item = std::regex_replace(item, std::regex(R"(\\)"), R"(\\)");
    std::istringstream fields(item);
    std::getline(fields, field, '|');
    const std::size_t slash = field.find('/');
    const std::size_t equals = std::min(field.find('='), field.size());
    const std::string copy = field.substr(0, std::min(slash, equals));
    const std::string key = copy == "-" ? "" : "\\INSTALLEDCOPIES\\" + copy;
    if (slash == std::string::npos) {
      const std::string version = equals == field.size() ? "9" : field.substr(equals + 1);
      if (!std::getline(fields, field)) field = "C:\\\\X";
      lines +=
          productKey(key, "\"ZOR Path Name\"=\"" + field + "\"\n") +
          productKey(key + "\\CurrentVersion", "\"Version\"=\"" + version +
                                                   "\"\n\"Release\"=\"1\"\n\"Modification\"=\"2\"\n"
                                                   "\"Service Level\"=\"3\"\n");
      continue;
    }
    const bool zem = field[slash + 1] == '/';
    lines += productKey(key + (zem ? "\\ZEM_PROFILES\\" : "\\PROFILES\\") +
                        field.substr(slash + (zem ? 2 : 1)));
    while (std::getline(fields, field, '|'))
      lines += std::regex_replace(field, std::regex("^([^=]*)=(.*)$"), "\"$1\"=\"$2\"\n");
  }
  return lines;
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

void MachineTest::SetUp() {
  RegistryTest::SetUp();
  (void)ossEnvironmentSet("ZOROSSE_REGISTRY_FILE", path("machine.reg").c_str());
}

void MachineTest::TearDown() {
  (void)ossEnvironmentSet("ZOROSSE_REGISTRY_FILE", nullptr);
  RegistryTest::TearDown();
}

void MachineTest::machine(const std::string& lines) { remoteMachine("machine", lines); }

void MachineTest::remoteMachine(const std::string& name, const std::string& lines) {
  writeFile(path(name + ".reg"), "Windows Registry Editor Version 5.00\n" + lines);
}
