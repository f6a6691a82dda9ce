#include "check_command.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "check_findings.h"
#include "genreg.h"
#include "report.h"

namespace zorreg {
namespace {

namespace fs = std::filesystem;

struct Arguments {
  std::string file;
  std::string type;
  bool json = false;
};

struct Kind {
  const char* name;
  std::uint64_t (*check)(const std::string& file, Findings& findings);
};

constexpr Kind kinds[] = {{"bin", checkBinary},
                          {"global", checkGlobal},
                          {"var", checkVariables},
                          {"services", checkServices}};

bool exists(const std::string& path) {
  std::error_code ignored;
  return fs::symlink_status(path, ignored).type() != fs::file_type::not_found &&
         fs::symlink_status(path, ignored).type() != fs::file_type::none;
}

// The names of one registry's files, as the library gives them.
class Names : public GenRegBinVarVal {
 public:
  explicit Names(const std::string& file) : GenRegBinVarVal(file.c_str(), &code) {
    if (code != 0) return;
    char name[GENREG_PATH_SIZE];
    const auto take = [&](unsigned int result) { return result == 0 ? std::string(name) : ""; };
    temporary = take(getTempFilePath(name, sizeof name));
    corrupt = take(getCorruptFilePath(name, sizeof name));
    lock = take(getLockFilePath(name, sizeof name));
    backup = take(getBackupFilePath(name, sizeof name));
  }
  unsigned int code = 0;
  std::string temporary;
  std::string corrupt;
  std::string lock;
  std::string backup;
};

void checkCompanions(const Names& names, bool registryThere, Findings& findings) {
  const struct {
    const std::string& file;
    const char* what;
  } rows[] = {
      {names.lock, "an update is running, or died; the next update takes the lock over"},
      {names.temporary,
       "the work of an update that is running, or did not finish; the next update "
       "sets it aside as the corrupt file"},
      {names.corrupt, "an update that did not finish, to be looked at; the next update deletes it"},
      {names.backup,
       registryThere
           ? "of a commit that was interrupted at its very end; the next update deletes it"
           : "the registry itself: a commit was interrupted; readers read it, the next "
             "update puts it back"},
  };
  for (const auto& row : rows) {
    if (exists(row.file)) findings.add(Severity::Note, row.file, row.what);
  }
}

std::string startOf(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  std::string bytes(4096, '\0');
  stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(stream.gcount()));
  return bytes;
}

bool isText(const std::string& bytes) {
  return std::none_of(bytes.begin(), bytes.end(), [](char byte) {
    return static_cast<unsigned char>(byte) < 0x20 && std::strchr("\t\r\n", byte) == nullptr;
  });
}

// The first line that tells decides: one with a "=" assigns a variable, one whose second word
// starts with a digit names a service.
bool looksLikeServices(const std::string& bytes) {
  std::istringstream lines(bytes);
  for (std::string line; std::getline(lines, line);) {
    line.resize(std::min(line.find('#'), line.size()));
    if (line.find('=') != std::string::npos) return false;
    std::istringstream words(line);
    std::string name;
    std::string port;
    if (words >> name >> port && port[0] >= '0' && port[0] <= '9') return true;
  }
  return false;
}

// What a file seems to be: frames of 36 bytes, other frames, lines of services, other lines.
const char* guess(const std::string& bytes) {
  if (bytes.empty() || !isText(bytes)) {
    const bool variables = bytes.empty() || bytes.compare(0, 4, std::string("\x24\0\0\0", 4)) == 0;
    return variables ? "bin" : "global";
  }
  return looksLikeServices(bytes) ? "services" : "var";
}

int check(const Arguments& arguments) {
  Findings findings;
  const Names names(arguments.file);
  if (names.code != 0) return reportCode(names.code, arguments.file);
  const bool there = exists(arguments.file);
  if (!there && !exists(names.backup)) return reportCode(GENREG_RC_NO_FILE, arguments.file);
  checkCompanions(names, there, findings);
  const std::string content = there ? arguments.file : names.backup;
  const std::string type = arguments.type.empty() ? guess(startOf(content)) : arguments.type;
  for (const Kind& kind : kinds) {
    if (type == kind.name) {
      const std::uint64_t records = kind.check(content, findings);
      return findings.print(arguments.file, type, records, arguments.json);
    }
  }
  return exitUsage;
}

}  // namespace

void addCheckCommand(CLI::App& app, int& status) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand(
      "check",
      "tell whether a registry is whole and what its next update will do with what is left over;\n"
      "exit status 0 clean, 1 something left over or odd, 3 damaged; nothing is written");
  command->add_option("FILE", arguments->file, "the registry file")->required();
  command->add_option("--type", arguments->type, "bin, global, var or services; else a guess")
      ->check(CLI::IsMember({"bin", "global", "var", "services"}));
  command->add_flag("--json", arguments->json, "print JSON");
  command->callback([arguments, &status] { status = check(*arguments); });
}

}  // namespace zorreg
