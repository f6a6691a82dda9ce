// The commands that work on registries, as tables: what each verb is called, what it takes, what it
// runs.
#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "cli_types.h"
#include "kinds.h"

namespace tool {

class Store;

// The words of one command line; a verb reads those that it takes.
struct Words {
  std::string file;  // empty: not given
  std::string name;
  std::string value;
  std::string port;  // PORT or PORT/PROTOCOL; empty: not given
  std::string type;
  std::string pattern;
  std::string other;  // the file that a copy is made to or taken from
  std::string input;  // a file of lines or records; empty or "-": standard input
  std::optional<std::string> comment;
  std::optional<std::string> defaultValue;
  std::vector<std::string> aliases;
  std::vector<std::string> fields;     // FIELD=VALUE of a record or a key
  std::vector<std::string> newFields;  // of a change
  std::optional<std::string> ifValue;  // what must be there before a change
  bool ifAbsent = false;
  bool ifPresent = false;
  bool noComment = false;
  bool noAliases = false;
  std::optional<std::string> wait;  // seconds
  bool noWait = false;
  bool dryRun = false;
  bool verbose = false;
  bool exitChanged = false;
  bool bigEndian = false;
  bool compact = false;
  bool raw = false;
  bool replace = false;
  bool force = false;  // also when the other file exists
  bool dropUnreadable = false;
  bool json = false;
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

// What a verb does; each gives the exit status. A change is made in a registry whose lock it may
// have to take: what it does alone, it does with one operation, or between Store::begin and the
// commit that follows it. The others are not asked to change anything, or see to it themselves.
using Read = int (*)(Store& store, const Words& words);
struct Change {
  int (*work)(Store& store, const Words& words);
};
using Whole = int (*)(Kind kind, const Words& words);
using Plain = int (*)(const Words& words);  // of a command that works on no registry

struct Verb {
  const char* name;
  const char* help;
  std::variant<Read, Change, Whole, Plain> run;
  std::array<const Argument*, 9> takes{};
  bool updates = false;  // of a Whole: takes the words of an update
  bool isUpdate() const { return updates || std::holds_alternative<Change>(run); }
};

// A command with the verbs that are its own; `takes` is what stands before the verb.
struct Group {
  const char* name;
  const char* help;
  std::array<const Argument*, 2> takes;
  const Verb* first;
  const Verb* end;
};

// The verbs of a kind of registries.
const Group& groupOf(Kind kind);
// Its own verbs, and those that every kind has.
void forEachVerb(const Group& group, const std::function<void(const Verb&)>& visit);

inline constexpr Argument fileArgument{"FILE", "the registry file", &Words::file, Need::MustFilled};
inline constexpr Argument jsonArgument{"--json", "print JSON", &Words::json};
inline constexpr Argument ifAbsentArgument{"--if-absent", "only when there is none of that name",
                                           &Words::ifAbsent};
inline constexpr Argument ifPresentArgument{"--if-present", "only when there is one of that name",
                                            &Words::ifPresent};
inline constexpr Argument ifValueArgument{"--if-value", "only when the value is this one",
                                          &Words::ifValue};
inline constexpr Argument dropArgument{"--drop-unreadable",
                                       "leave out the records and lines that cannot be read, too",
                                       &Words::dropUnreadable};
// What every update takes.
inline constexpr Argument updateArguments[] = {
    {"--wait", "seconds to wait at most for another writer; else without end", &Words::wait},
    {"--no-wait", "do not wait for another writer", &Words::noWait},
    {"--dry-run", "print what would change, as a diff, and write nothing", &Words::dryRun},
    {"--verbose", "say \"changed\" or \"unchanged\"", &Words::verbose},
    {"--exit-changed", "exit with status 6 when something was changed", &Words::exitChanged}};

void addArgument(CLI::App& command, const Argument& argument, Words& words);

// Runs a verb on the registry that the words name; gives the exit status.
int runVerb(Kind kind, const Verb& verb, const Words& words);

// Adds a command with its verbs, which must outlive the parsing; for the one that was given, the
// exit status of `run` is stored.
using RunVerb = std::function<int(const Verb& verb, const Words& words)>;
void addGroup(CLI::App& app, const Group& group, int& status, const RunVerb& run);

// The verbs of a kind that are a Change, each a command of `parent` that calls `run`(verb) when it
// was given, its words in `words`.
void addChanges(CLI::App& parent, Kind kind, Words& words,
                const std::function<void(const Verb&)>& run);

}  // namespace tool
