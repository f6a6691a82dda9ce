#include "file_verbs.h"

#include <cstdlib>
#include <memory>

namespace zorreg {
namespace {

constexpr Argument to{"TO", "the file to make", &Words::other, Need::MustFilled};
constexpr Argument from{"FROM", "the file to take it from", &Words::other, Need::MustFilled};
constexpr Argument force{"--force", "replace TO if it exists", &Words::force};

struct FileVerb {
  const char* name;
  const char* help;
  int (*run)(Kind kind, const Words& words);
  std::array<const Argument*, 2> takes{};
  bool updates = false;
};

constexpr FileVerb verbs[] = {
    {"edit", "change the registry in your editor, all of it or nothing", edit, {}, true},
    {"watch", "print each change as it is committed", watch, {&jsonArgument}},
    {"backup", "copy what the registry holds to another file", backup, {&to, &force}},
    {"restore", "make the registry hold what another file does", restore, {&from}, true},
};

// Of the options before the verb.
void readGroup(const CLI::App& group, Kind kind, Words& words) {
  const char* const option = kind == Kind::Global ? "--file" : "FILE";
  words.file = group.get_option(option)->as<std::string>();
  if (kind == Kind::Bin) words.bigEndian = group.get_option("--big-endian")->as<bool>();
  if (!words.file.empty()) return;
  const char* named = std::getenv("ZOR_GLOBAL_REG_PATHNAME");
  words.file = named == nullptr ? "global.reg" : named;
}

void addTo(CLI::App& group, int& status, Kind kind, const FileVerb& verb) {
  CLI::App* command = group.add_subcommand(verb.name, verb.help);
  auto words = std::make_shared<Words>();
  for (const Argument* argument : verb.takes) {
    if (argument != nullptr) addArgument(*command, *argument, *words);
  }
  if (verb.updates) {
    for (const Argument& argument : waitArguments) addArgument(*command, argument, *words);
  }
  command->callback([&group, &status, &verb, kind, words] {
    readGroup(group, kind, *words);
    status = verb.run(kind, *words);
  });
}

}  // namespace

void addFileVerbs(CLI::App& app, int& status) {
  for (const Kind kind : {Kind::Bin, Kind::Global, Kind::Var, Kind::Services}) {
    for (const FileVerb& verb : verbs) {
      addTo(*app.get_subcommand(nameOf(kind)), status, kind, verb);
    }
  }
}

}  // namespace zorreg
