#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "commands.h"
#include "faces/versions.h"
#include "listing.h"
#include "ossinstall.h"
#include "report.h"
#include "sysservices/diagnostics.h"
#include "sysservices/environment.h"

namespace tool {
namespace {

constexpr const char* kinds[] = {"ZOR", "ZEM"};

// The words of one command line.
struct Arguments {
  bool json = false;
  std::string version;
  std::optional<std::string> kind;
  std::optional<std::string> service;
  std::optional<std::string> path;
  std::optional<std::string> name;
  std::optional<std::string> copy;
};

const char* orNull(const std::optional<std::string>& text) {
  return text ? text->c_str() : nullptr;
}

// The code that a dotted text, "0x" and hexadecimal digits, or a packed decimal number (more digits
// than a part of a dotted text can have) stands for.
bool parseVersion(const std::string& text, std::uint64_t& code) {
  constexpr std::size_t mostPartDigits = 5;
  if (text.empty()) return false;
  const bool hexadecimal = text.compare(0, 2, "0x") == 0;
  const bool packed = text.size() > mostPartDigits && text.find('.') == std::string::npos;
  if (!hexadecimal && !packed) return faces::parseDotted(text, code);
  const std::string digits = hexadecimal ? text.substr(2) : text;
  const char* const allowed = hexadecimal ? "0123456789abcdefABCDEF" : "0123456789";
  if (digits.empty() || digits.find_first_not_of(allowed) != std::string::npos) return false;
  if (digits.size() > (hexadecimal ? 16 : 8)) return false;
  const unsigned long long value = std::strtoull(digits.c_str(), nullptr, hexadecimal ? 16 : 10);
  code = hexadecimal ? value : ossVersionCodeZORToService(static_cast<unsigned int>(value));
  return true;
}

template <std::size_t Size>
std::string field(const char (&text)[Size]) {
  return printable(text, Size);
}

std::string orDash(const std::string& text) { return text.empty() ? "-" : text; }

std::vector<std::string> flagsOf(const OSSInstanceInfo_t& record) {
  std::vector<std::string> flags;
  for (const OSSInstanceFlag& row : ossInstanceFlags) {
    if ((record.flags & row.bit) != 0) flags.emplace_back(row.name);
  }
  return flags;
}

// What one kind of record looks like: as a line under headings, as JSON, and in an error message.
using Line = std::vector<std::string>;

const Line& headings(const OSSServiceInfo_t*) {
  static const Line line{"SERVICE", "VERSION", "COPY", "PATH"};
  return line;
}
const Line& headings(const OSSInstanceInfo_t*) {
  static const Line line{"KIND", "INSTANCE", "VERSION", "COPY", "FLAGS", "HOST", "PATH"};
  return line;
}

Line lineOf(const OSSServiceInfo_t& record) {
  return {field(record.service), faces::versionText(record.versionCode),
          orDash(field(record.copyName)), orDash(field(record.installPath))};
}
Line lineOf(const OSSInstanceInfo_t& record) {
  std::string flags;
  for (const std::string& flag : flagsOf(record)) flags += (flags.empty() ? "" : ",") + flag;
  return {field(record.service),
          field(record.instanceName),
          faces::versionText(record.versionCode),
          orDash(field(record.copyName)),
          orDash(flags),
          orDash(field(record.hostName)),
          orDash(field(record.instancePath))};
}

Json jsonOf(const OSSServiceInfo_t& record) {
  return {{"service", record.service},
          {"version", faces::versionText(record.versionCode)},
          {"versionCode", faces::versionHexadecimal(record.versionCode)},
          {"level", record.level},
          {"copyName", record.copyName},
          {"installPath", record.installPath}};
}
Json jsonOf(const OSSInstanceInfo_t& record) {
  return {{"kind", record.service},
          {"instanceName", record.instanceName},
          {"version", faces::versionText(record.versionCode)},
          {"versionCode", faces::versionHexadecimal(record.versionCode)},
          {"copyName", record.copyName},
          {"installPath", record.installPath},
          {"instancePath", record.instancePath},
          {"flags", flagsOf(record)},
          {"hostName", record.hostName}};
}

std::string identity(const OSSServiceInfo_t& record) {
  return "copy '" + field(record.copyName) + "'";
}
std::string identity(const OSSInstanceInfo_t& record) {
  return "instance '" + field(record.instanceName) + "' of copy '" + field(record.copyName) + "'";
}

template <typename Record>
void printRecords(const std::vector<Record>& records, bool json) {
  if (json) {
    Json all = Json::array();
    for (const Record& record : records) all.push_back(jsonOf(record));
    printJson(all);
  } else if (!records.empty()) {
    Table table;
    table.add(headings(records.data()));
    for (const Record& record : records) table.add(lineOf(record));
    table.print();
  }
}

// Collects the entries of an open list. One that cannot be read is reported and passed over. A list
// that meets the same one again and again cannot go on; names that were cut may look alike a few
// times.
template <typename Record>
int walk(void* list, unsigned int (*next)(void*, Record*), std::vector<Record>& records) {
  constexpr int mostAlike = 64;
  int status = exitDone;
  int alike = 0;
  std::string unreadable;
  for (;;) {
    Record record{};
    const unsigned int code = next(list, &record);
    if (code == GENREG_RC_END) return status;
    if (code == 0) {
      records.push_back(record);
      continue;
    }
    const std::string which = std::string(record.service) + " " + identity(record);
    alike = which == unreadable ? alike + 1 : 0;
    if (alike == mostAlike) return status;
    if (alike > 0) continue;
    unreadable = which;
    status = reportCode(code, ossMachineRegistryName());
    std::fprintf(stderr, "zorreg: %s\n", identity(record).c_str());
  }
}

int listCopies(const Arguments& arguments) {
  void* list = nullptr;
  if (const unsigned int code = ossOpenServiceList(&list); code != 0) {
    return reportCode(code, ossMachineRegistryName());
  }
  std::vector<OSSServiceInfo_t> records;
  const int status = walk(list, ossGetNextService, records);
  (void)ossCloseServiceList(list);
  printRecords(records, arguments.json);
  return status;
}

// The instances of one kind, or of both; that one kind has none is no failure.
int listInstances(const Arguments& arguments) {
  std::vector<OSSInstanceInfo_t> records;
  int status = exitDone;
  bool found = false;
  for (const char* const kind : kinds) {
    if (arguments.kind && *arguments.kind != kind) continue;
    void* list = nullptr;
    const unsigned int code = ossOpenInstanceList(kind, &list);
    if (code == GENREG_RC_KEY_NOT_FOUND) continue;
    found = true;
    if (code != 0) {
      status = reportCode(code, ossMachineRegistryName());
      continue;
    }
    const int walked = walk(list, ossGetNextInstance, records);
    if (status == exitDone) status = walked;
    (void)ossCloseInstanceList(list);
  }
  if (!found) {
    (void)reportCode(GENREG_RC_KEY_NOT_FOUND, ossMachineRegistryName());
    return exitNotFound;
  }
  printRecords(records, arguments.json);
  return status;
}

// Shows the one record that a lookup gave. A lookup does not tell "none" from "not to be read".
template <typename Record>
int showFound(unsigned int code, const Record& record, bool json) {
  if (code != 0) {
    (void)reportCode(code, ossMachineRegistryName());
    return exitNotFound;
  }
  if (json) {
    printJson(jsonOf(record));
  } else {
    printRecords(std::vector<Record>{record}, false);
  }
  return exitDone;
}

int reportVersion(const std::string& text) {
  return reportUsage("'" + text +
                     "': a version is a text like 9.1.0.0, a code like 0x0009000100000000, or a "
                     "number like 9010000");
}

int findCopy(const Arguments& arguments) {
  std::uint64_t version = 0;
  if (!arguments.version.empty() && !parseVersion(arguments.version, version)) {
    return reportVersion(arguments.version);
  }
  OSSServiceInfo_t record{};
  const unsigned int code = ossGetServiceInfo(
      orNull(arguments.service), version, orNull(arguments.path), orNull(arguments.copy), &record);
  return showFound(code, record, arguments.json);
}

int findInstance(const Arguments& arguments) {
  std::uint64_t version = 0;
  if (!arguments.version.empty() && !parseVersion(arguments.version, version)) {
    return reportVersion(arguments.version);
  }
  OSSInstanceInfo_t record{};
  const unsigned int code = ossGetInstanceInfo(
      orNull(arguments.kind), version, orNull(arguments.name), orNull(arguments.copy), &record);
  return showFound(code, record, arguments.json);
}

int showVersion(const Arguments& arguments) {
  std::uint64_t code = 0;
  if (!parseVersion(arguments.version, code)) return reportVersion(arguments.version);
  const std::string text = faces::versionText(code);
  const int packed = ossVersionCodeServiceToZOR(code);
  if (arguments.json) {
    printJson(
        {{"version", text}, {"versionCode", faces::versionHexadecimal(code)}, {"packed", packed}});
  } else {
    std::printf("%s  %s  %d\n", text.c_str(), faces::versionHexadecimal(code).c_str(), packed);
  }
  return exitDone;
}

// Makes an option that may be left out.
void addOptional(CLI::App* command, const char* flag, std::optional<std::string>& value,
                 const char* help) {
  command->add_option_function<std::string>(
      flag, [&value](const std::string& text) { value = text; }, help);
}

void addVersionCommand(CLI::App& app, int& status) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand("version", "a version as text, code and packed number");
  command->add_option("VERSION", arguments->version, "9.1.0.0, 0x0009000100000000 or 9010000")
      ->required();
  command->add_flag("--json", arguments->json, "print JSON");
  command->callback([arguments, &status] { status = showVersion(*arguments); });
}

// Prints, while it lives, what the library logs of registry exports that it refuses, each once.
class RefusedExports {
 public:
  RefusedExports() { ossSetDiagnosticCallback(receive, this); }
  ~RefusedExports() { ossSetDiagnosticCallback(nullptr, nullptr); }
  RefusedExports(const RefusedExports&) = delete;
  RefusedExports& operator=(const RefusedExports&) = delete;

  bool any() const { return !printed_.empty(); }

 private:
  // The record has the path, the line (0: none is at fault) and the reason.
  static void receive(const OSSDiagnosticRecord& record, void* context) {
    constexpr unsigned int probeRegistryExport = 0x081A0100u;
    if (record.probe != probeRegistryExport || record.valueCount != 3) return;
    const auto text = [](const OSSDiagnosticValue& value) {
      return std::string(static_cast<const char*>(value.address), value.length);
    };
    std::uint32_t line = 0;
    std::memcpy(&line, record.values[1].address, sizeof line);
    const std::string message = text(record.values[0]) +
                                (line == 0 ? "" : ", line " + std::to_string(line)) + ": " +
                                text(record.values[2]);
    if (!static_cast<RefusedExports*>(context)->printed_.insert(message).second) return;
    std::fprintf(stderr, "zorreg: %s\n", message.c_str());
  }

  std::set<std::string> printed_;
};

// A command that lists, with a verb "find" that looks one entry up.
struct ListCommand {
  const char* name;
  const char* help;
  const char* findHelp;
  int (*list)(const Arguments& arguments);
  int (*find)(const Arguments& arguments);
};

CLI::App* addListCommand(CLI::App& app, int& status, const ListCommand& row,
                         const std::shared_ptr<Arguments>& arguments, CLI::App** find) {
  CLI::App* command = app.add_subcommand(row.name, row.help);
  command->add_flag("--json", arguments->json, "print JSON");
  command->require_subcommand(0, 1);
  *find = command->add_subcommand("find", row.findHelp)->fallthrough();
  (*find)->add_option("--version", arguments->version, "version of the copy");
  addOptional(*find, "--copy", arguments->copy, "name of the copy");
  command->callback([command, arguments, &status, row] {
    const RefusedExports refused;
    status = command->get_subcommands().empty() ? row.list(*arguments) : row.find(*arguments);
    if (refused.any()) status = exitFailed;
  });
  return command;
}

}  // namespace

void addInstallCommands(CLI::App& app, int& status) {
  addVersionCommand(app, status);

  CLI::App* find = nullptr;
  auto copies = std::make_shared<Arguments>();
  addListCommand(app, status,
                 {"copies", "the installed copies of the machine",
                  "the first copy that agrees with every option given", listCopies, findCopy},
                 copies, &find);
  addOptional(find, "--service", copies->service, "ZOR or ZEM");
  addOptional(find, "--path", copies->path, "installation directory");

  auto instances = std::make_shared<Arguments>();
  CLI::App* command = addListCommand(
      app, status,
      {"instances", "the instances of the installed copies",
       "the first instance that agrees with every option given; its kind is ZOR unless given",
       listInstances, findInstance},
      instances, &find);
  command
      ->add_option_function<std::string>(
          "--kind", [instances](const std::string& kind) { instances->kind = kind; }, "ZOR or ZEM")
      ->check(CLI::IsMember(std::vector<std::string>(std::begin(kinds), std::end(kinds))));
  addOptional(find, "--name", instances->name, "name of the instance, taken in upper case");
}

}  // namespace tool
