// The commands that work on registries, as tables: what each verb is called, what it takes, what it
// runs.
#pragma once

#include <CLI/CLI.hpp>
#include <array>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace zorreg {

// The words of one command line; a verb reads those that it takes.
struct Words {
  std::string file;  // empty: not given
  std::string name;
  std::string value;
  std::string port;  // PORT or PORT/PROTOCOL; empty: not given
  std::string type;
  std::optional<std::string> comment;
  std::vector<std::string> aliases;
  std::vector<std::string> fields;     // FIELD=VALUE of a record or a key
  std::vector<std::string> newFields;  // of a change
  std::optional<std::string> ifValue;  // what must be there before a change
  bool ifAbsent = false;
  bool ifPresent = false;
  std::optional<std::string> wait;  // seconds
  bool noWait = false;
  bool bigEndian = false;
  bool compact = false;
  bool dropUnreadable = false;
  bool json = false;
  std::string other;   // the file that a copy is made to or taken from
  bool force = false;  // also when it exists
};

using Place = std::variant<bool Words::*, std::string Words::*, std::optional<std::string> Words::*,
                           std::vector<std::string> Words::*>;

// An empty word is mostly a variable of a script that was never set, and never what was meant where
// a file, a name or a port is asked for.
enum class Need { May, MayFilled, Must, MustFilled };

struct Argument {
  const char* name;  // as the help shows it; options begin with "--"
  const char* help;
  Place place;
  Need need = Need::May;
  std::array<const char*, 5> choices{};  // what it may be; none: anything
};

struct Verb {
  const char* name;
  const char* help;
  int (*run)(const Words& words);  // gives the exit status
  std::array<const Argument*, 7> takes{};
  bool updates = false;  // takes the update lock, and the words that say how long it waits for it
};

// The kind of registry `name` with its verbs; `takes` is what stands before the verb.
struct Group {
  const char* name;
  const char* help;
  std::array<const Argument*, 2> takes;
};

inline constexpr Argument fileArgument{"FILE", "the registry file", &Words::file, Need::MustFilled};
inline constexpr Argument jsonArgument{"--json", "print JSON", &Words::json};
inline constexpr Argument waitArguments[] = {
    {"--wait", "seconds to wait at most for another writer; else without end", &Words::wait},
    {"--no-wait", "do not wait for another writer", &Words::noWait}};
inline constexpr Argument ifAbsentArgument{"--if-absent", "only when there is none of that name",
                                           &Words::ifAbsent};
inline constexpr Argument ifPresentArgument{"--if-present", "only when there is one of that name",
                                            &Words::ifPresent};
inline constexpr Argument ifValueArgument{"--if-value", "only when the value is this one",
                                          &Words::ifValue};
inline constexpr Argument dropArgument{"--drop-unreadable",
                                       "leave out the records and lines that cannot be read, too",
                                       &Words::dropUnreadable};
inline constexpr const char* repairHelp =
    "keep what is whole of a damaged registry and set the original aside";

void addArgument(CLI::App& command, const Argument& argument, Words& words);

// Verbs must outlive the parsing.
template <typename Verbs>
void addGroup(CLI::App& app, int& status, const Group& row, const Verbs& verbs) {
  auto words = std::make_shared<Words>();
  CLI::App* group = app.add_subcommand(row.name, row.help);
  group->require_subcommand(1);
  const auto addAll = [&words](CLI::App& command, const auto& takes) {
    for (const Argument* argument : takes) {
      if (argument != nullptr) addArgument(command, *argument, *words);
    }
  };
  addAll(*group, row.takes);
  for (const Verb& verb : verbs) {
    CLI::App* command = group->add_subcommand(verb.name, verb.help);
    addAll(*command, verb.takes);
    if (verb.updates) {
      for (const Argument& argument : waitArguments) addArgument(*command, argument, *words);
    }
    command->callback([&verb, words, &status] { status = verb.run(*words); });
  }
}

}  // namespace zorreg
