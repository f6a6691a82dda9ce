// zorreg check FILE: what state a registry is in, for people and for those who watch over many.
// Nothing is written.
#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>

#include "check_records.h"
#include "check_surroundings.h"
#include "commands.h"
#include "kinds.h"
#include "report.h"
#include "store.h"
#include "sysservices/file_system.h"
#include "sysservices/return_codes.h"
#include "verbs.h"

namespace tool {
namespace {

struct CheckWords : Words {
  bool strict = false;
};

// Why the bytes of a file cannot be read to the end, in the system's words; empty when they can.
std::string reasonUnreadable(const std::string& file) {
  if (ossIsDirectory(file.c_str())) return std::strerror(EISDIR);
  const Seen seen(file);
  if (!seen.isThere) return std::strerror(seen.error == 0 ? ENOENT : seen.error);
  if (!ossIsFile(file.c_str())) return "no plain file";
  OSSHFile opened;
  const OSSFileOpenParam param{
      OSS_PARAM_LEVEL, file.c_str(), OSS_ACCESS_READ_WRITE, OSS_OPEN_EXISTING, 0, 0, 0};
  unsigned int code = opened.open(&param);
  char block[16384];
  std::size_t count = sizeof block;
  for (std::uint64_t offset = 0; code == OSS_RC_OK && count != 0; offset += count) {
    code = opened.readAt(block, sizeof block, offset, &count);
  }
  return code == OSS_RC_OK ? std::string() : std::strerror(opened.lastError());
}

// In a commit without hard links the file may change its name between two steps of a look.
std::string reasonUnreadable(const RegistryFiles& files) {
  constexpr int rounds = 3;
  std::string reason;
  for (int round = 0; round < rounds; ++round) {
    reason = reasonUnreadable(files.content());
    if (reason.empty()) break;
  }
  return reason;
}

// What kind the registry is of, as far as that can be known or was said.
void findKind(const RegistryFiles& files, const std::string& type, Checked& checked,
              Findings& findings) {
  const Guess guess = guessKind(files.content(), std::string::npos);
  checked.kind = guess.kind;
  checked.bigEndian = guess.bigEndian;
  for (const Kind kind : allKinds) {
    if (type == nameOf(kind)) checked.kind = kind;
  }
  if (type.empty() && guess.fitsRival) {
    const std::string kinds = std::string(nameOf(guess.kind)) + " or " + nameOf(guess.rival);
    findings.add(Topic::OtherKind, checked.file, "it may be of kind " + kinds,
                 "say which with --type");
  }
  const std::string reason = faces::reasonAgainst(guess, checked.kind, guess.bigEndian);
  if (!reason.empty()) {
    findings.add(Topic::Refused, checked.file, "it " + reason, "leave --type out");
  }
}

void checkFile(const RegistryFiles& files, const std::string& type, Checked& checked,
               Findings& findings) {
  const Surroundings seen = lookAround(files);
  const std::string& content = files.content();
  const bool isMissing = !seen.registry.isThere && !seen.backup.isThere;
  if (isMissing && seen.registry.error == 0 && !ossPathExists(content.c_str())) {
    return findings.add(Topic::Missing, files.registry, "there is no registry file",
                        "look for the name; an update would make a new registry");
  }
  const std::string reason = reasonUnreadable(files);
  if (!reason.empty()) {
    return findings.add(Topic::Unreadable, content, reason,
                        "check it as a user who may read it, or see to the cause");
  }
  checked.isRead = true;
  findKind(files, type, checked, findings);
  checkSurroundings(files, seen, checked, findings);
  checked.records = checkRecords(files, checked, findings);
}

int check(const CheckWords& given) {
  Words words = given;
  if (const int status = findFile(Kind::Bin, words); status != exitDone) return status;
  Findings findings;
  Checked checked;
  checked.file = words.file;
  const RegistryFiles files(words.file);
  if (files.code != 0) return reportCode(files.code, words.file);
  if (words.file != given.file) {
    findings.add(Topic::Refused, given.file,
                 "a symbolic link to " + words.file +
                     ": this tool follows it, an update by another program is refused",
                 "let programs use " + words.file);
  }
  checkFile(files, words.type, checked, findings);
  checked.file = given.file;
  return findings.print(checked, given.strict, words.json);
}

constexpr Argument type{"--type",
                        "bin, global, var or services; else a guess",
                        &Words::type,
                        Need::May,
                        {kindNames[0], kindNames[1], kindNames[2], kindNames[3]}};

}  // namespace

void addCheckCommand(CLI::App& app, int& status) {
  auto words = std::make_shared<CheckWords>();
  CLI::App* command = app.add_subcommand(
      "check",
      "tell whether a registry is whole and what its next update will do with what is left over;\n"
      "nothing is written, and an update that is running is no fault. Exit status: 0 healthy,\n"
      "1 needs a look (with --strict, any remark) or missing, 2 wrong usage, 3 damaged or cannot\n"
      "be read");
  for (const Argument* argument : {&fileArgument, &type, &jsonArgument}) {
    addArgument(*command, *argument, *words);
  }
  command->add_flag("--strict", words->strict, "exit with status 1 for any remark, too");
  command->callback([words, &status] { status = check(*words); });
}

}  // namespace tool
