// zorreg check FILE: what state a registry is in. Nothing is written.
#include <memory>

#include "check_findings.h"
#include "commands.h"
#include "file_content.h"
#include "kinds.h"
#include "report.h"
#include "sysservices/file_system.h"
#include "verbs.h"

namespace tool {
namespace {

void checkCompanions(const RegistryFiles& files, Findings& findings) {
  const bool registryThere = ossPathExists(files.registry.c_str());
  const struct {
    const std::string& file;
    const char* what;
  } rows[] = {
      {files.lock, "an update is running, or died; the next update takes the lock over"},
      {files.temporary,
       "the work of an update that is running, or did not finish; the next update "
       "sets it aside as the corrupt file"},
      {files.corrupt,
       "an update that did not finish, or the original of a repair, to be looked at; the next "
       "update deletes it"},
      {files.backup,
       registryThere
           ? "of a commit that was interrupted at its very end; the next update deletes it"
           : "the registry itself: a commit was interrupted; readers read it, the next "
             "update puts it back"},
  };
  for (const auto& row : rows) {
    if (ossPathExists(row.file.c_str())) findings.add(Severity::Note, row.file, row.what);
  }
}

int check(const Words& words) {
  Findings findings;
  const RegistryFiles files(words.file);
  if (files.code != 0) return reportCode(files.code, words.file);
  const std::string& content = files.content();
  if (!ossPathExists(content.c_str())) return reportCode(GENREG_RC_NO_FILE, words.file);
  std::string start;
  if (!readContent(content, 1, start)) return reportCode(GENREG_RC_OPEN_FAILED, words.file);
  checkCompanions(files, findings);
  Guess guess = guessKind(content);
  for (const Kind kind : {Kind::Bin, Kind::Global, Kind::Var, Kind::Services}) {
    if (words.type == nameOf(kind)) guess.kind = kind;
  }
  const std::uint64_t records = checkRecords(content, guess, findings);
  return findings.print(words.file, guess.kind, records, words.json);
}

constexpr Argument type{"--type",
                        "bin, global, var or services; else a guess",
                        &Words::type,
                        Need::May,
                        {kindNames[0], kindNames[1], kindNames[2], kindNames[3]}};

}  // namespace

void addCheckCommand(CLI::App& app, int& status) {
  auto words = std::make_shared<Words>();
  CLI::App* command = app.add_subcommand(
      "check",
      "tell whether a registry is whole and what its next update will do with what is left over;\n"
      "exit status 0 clean, 1 something left over or odd, 3 damaged; nothing is written");
  for (const Argument* argument : {&fileArgument, &type, &jsonArgument}) {
    addArgument(*command, *argument, *words);
  }
  command->callback([words, &status] { status = check(*words); });
}

}  // namespace tool
