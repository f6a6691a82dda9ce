// zorreg var FILE ...: text registries of profile variables.
#include <cmath>
#include <cstdio>

#include "commands.h"
#include "exact_registry.h"
#include "faces/record_fields.h"
#include "field_json.h"
#include "odd_assignment.h"
#include "registry_use.h"

namespace zorreg {
namespace {

constexpr JsonMember members[] = {{"name", "Variable", JsonMember::Text, true},
                                  {"value", "Value", JsonMember::Text, true},
                                  {"comment", "Comment", JsonMember::Text, false}};

class Var : public Exact<GenRegVarVal, VarValRecord> {
 public:
  static constexpr Kind kind = Kind::Var;
  using Exact::Exact;
  static bool holdsEntry(const Record& record) {
    return (record.Contains & VARVAL_HAS_VARIABLE) != 0;
  }
  static Row rowOf(const Record& record) {
    return {{printable(record.Variable), printable(record.Value),
             printable(bareComment(record.Comment))},
            jsonOf(faces::fieldsOf(record), members)};
  }
};

// Why a name, value or comment cannot stand in a line and be read back; empty when it can.
std::string complaintOfName(const std::string& name) {
  const bool broken = name.find_first_of(" \t\r\n=#\"") != std::string::npos;
  return broken ? "'" + printable(name) + "': a name is one word without = # \"" : "";
}

std::string complaintOfValue(const std::string& value) {
  const std::string shown = "'" + printable(value) + "': ";
  if (value.find_first_of("\r\n") != std::string::npos) return shown + "a value is one line";
  if (value.find('#') != std::string::npos) return shown + "a \"#\" would start the comment";
  if (!value.empty() && value[0] == '"') {
    return value.size() > 1 && value.find('"', 1) == value.size() - 1
               ? ""
               : shown + "a quoted value ends with its second double quote";
  }
  const bool folded =
      value.find("  ") != std::string::npos || value.find('\t') != std::string::npos;
  const bool trimmed = !value.empty() && (value.front() == ' ' || value.back() == ' ');
  return folded || trimmed ? shown + "put double quotes around blanks that are to stay" : "";
}

std::string complaint(const Words& words) {
  std::string wrong = complaintOfName(words.name);
  if (wrong.empty()) wrong = complaintOfValue(words.value);
  if (wrong.empty() && words.comment && words.comment->find_first_of("\r\n") != std::string::npos) {
    wrong = "'" + printable(*words.comment) + "': a comment is one line";
  }
  return wrong;
}

VarValRecord keyOf(const std::string& name) {
  VarValRecord key{};
  key.Contains = VARVAL_HAS_VARIABLE;
  key.Variable = name.c_str();
  return key;
}

// The value as the type asks for it; null when it is none.
Json typedValue(Var& registry, const Words& words) {
  const char* name = words.name.c_str();
  std::uint64_t u = 0;
  std::int64_t s = 0;
  double d = 0;
  bool b = false;
  const char* text = nullptr;
  if (words.type == "uint") return registry.GetUintValue(name, &u) ? Json(u) : Json();
  if (words.type == "sint") return registry.GetSintValue(name, &s) ? Json(s) : Json();
  if (words.type == "double") {
    return registry.GetDoubleValue(name, &d) && std::isfinite(d) ? Json(d) : Json();
  }
  if (words.type == "bool") return registry.GetBooleanValue(name, &b) ? Json(b) : Json();
  return registry.GetStringValue(name, &text) ? Json(text) : Json();
}

int get(Var& registry, const Words& words) {
  VarValRecord key = keyOf(words.name);
  VarValRecord record;
  const unsigned int code = registry.Get(VARVAL_IDENTITY, &key, &record);
  if (code != 0) return outcome(registry, code, words);
  const Json value = typedValue(registry, words);
  if (value.is_null()) {
    return reportFailure("'" + printable(record.Value) + "': the value of " + words.name +
                         " is no " + words.type);
  }
  if (words.json) {
    printJson({{"name", words.name}, {"value", value}});
  } else {
    std::printf("%s\n", value.is_string() ? record.Value : value.dump().c_str());
  }
  return exitDone;
}

// Refuses a change of a variable that a line assigns in a way that cannot be changed as a whole.
int refuseOdd(const Words& words, const std::map<std::string, std::string>& odd) {
  const auto found = odd.find(words.name);
  if (found == odd.end()) return exitDone;
  return reportRefusal(words.file + ",", found->second + "; " + words.name + " is not changed");
}

std::map<std::string, std::string> oddOf(const Words& words) {
  return oddAssignments(RegistryFiles(words.file).content());
}

int setOne(Var& registry, const Words& words, bool single) {
  bCompactFormattedLine = words.compact;
  VarValRecord key = keyOf(words.name);
  std::string comment;
  const auto valueOf = [](const VarValRecord& found) {
    return std::string(found.Value == nullptr ? "" : found.Value);
  };
  return setRecord(registry, words, single, VARVAL_IDENTITY, key, valueOf,
                   [&](const VarValRecord* found) {
                     VarValRecord record = key;
                     record.Value = words.value.c_str();
                     if (words.comment) {
                       comment = *words.comment;
                     } else if (found != nullptr) {
                       comment = bareComment(found->Comment);
                     }
                     if (words.comment || (found != nullptr && found->Comment != nullptr)) {
                       record.Contains |= VARVAL_HAS_COMMENT;
                       record.Comment = comment.c_str();
                     }
                     return record;
                   });
}

int set(Var& registry, const Words& words) { return setOne(registry, words, false); }

int setChecked(Var& registry, const Words& words) {
  if (const std::string wrong = complaint(words); !wrong.empty()) return reportUsage(wrong);
  if (const int status = refuseOdd(words, oddOf(words)); status != exitDone) return status;
  return updating<Var, set, true>(registry, words);
}

int unset(Var& registry, const Words& words) {
  VarValRecord key = keyOf(words.name);
  return outcome(registry, registry.Delete(VARVAL_IDENTITY, &key), words);
}

int unsetChecked(Var& registry, const Words& words) {
  if (const int status = refuseOdd(words, oddOf(words)); status != exitDone) return status;
  return updating<Var, unset, false>(registry, words);
}

// Lines as they stand in such a file.
int import(Var& registry, const Words& given) {
  const std::map<std::string, std::string> odd = oddOf(given);
  const bool single = isWithoutRepeats(
      registry, [](const VarValRecord& record) { return std::string(record.Variable); });
  return importLines(given, [&](const std::string& line, Words& words, std::string& wrong) {
    const auto trimmed = [](std::string text) {
      text.erase(0, text.find_first_not_of(" \t"));
      return text.erase(text.find_last_not_of(" \t") + 1);
    };
    const std::size_t hash = line.find('#');
    const std::string assignment = line.substr(0, hash);
    const std::size_t equals = assignment.find('=');
    words.name = trimmed(assignment.substr(0, equals));
    if (equals != std::string::npos) words.value = trimmed(assignment.substr(equals + 1));
    if (hash != std::string::npos) words.comment = trimmed(line.substr(hash + 1));
    wrong = equals == std::string::npos || words.name.empty() ? "no NAME=VALUE" : complaint(words);
    if (!wrong.empty()) return int{exitUsage};
    const int status = refuseOdd(words, odd);
    return status == exitDone ? setOne(registry, words, single) : status;
  });
}

constexpr Argument name{"NAME", "the variable's name", &Words::name, Need::MustFilled};
constexpr Argument value{"VALUE", "one line, in double quotes to keep blanks", &Words::value,
                         Need::Must};
constexpr Argument comment{"--comment", "the line's comment; without it the old one stays",
                           &Words::comment};
constexpr Argument compact{"--compact", "add the line as NAME=VALUE", &Words::compact};
constexpr Argument type{"--type",
                        "what the value must be; else string",
                        &Words::type,
                        Need::May,
                        {"string", "uint", "sint", "double", "bool"}};

constexpr Verb verbs[] = {
    {"list", "print every variable: name, value, comment", on<Var, list>, {&jsonArgument}},
    {"get",
     "print the value of the first line that assigns the name",
     on<Var, get>,
     {&name, &type, &jsonArgument}},
    {"set",
     "add a variable, or change every line that assigns it",
     on<Var, setChecked>,
     {&name, &value, &comment, &compact, &ifValueArgument, &ifAbsentArgument, &ifPresentArgument},
     true},
    {"unset", "delete every line that assigns the name", on<Var, unsetChecked>, {&name}, true},
    {"import",
     "set variables from lines of NAME=VALUE # comment on standard input, all or none",
     on<Var, updating<Var, import, true>>,
     {&compact},
     true},
    {"dump", "print every line's record, field by field", on<Var, dump>},
    {"repair", repairHelp, on<Var, repair>, {&dropArgument, &jsonArgument}, true},
};

}  // namespace

void addVarCommand(CLI::App& app, int& status) {
  addGroup(app, status, {"var", "a text registry of profile variables", {&fileArgument, nullptr}},
           verbs);
}

}  // namespace zorreg
