#include "var_command.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>

#include "faithful_text.h"
#include "output.h"
#include "registry_use.h"
#include "report.h"

namespace zorreg {
namespace {

// The words of one command line.
struct Arguments {
  std::string file;
  std::string name;
  std::string value;
  std::string type = "string";
  std::optional<std::string> comment;
  bool compact = false;
  bool json = false;
};

// Why a name, value or comment cannot stand in a line and be read back; empty when it can.
std::string complaintOfName(const std::string& name) {
  const bool broken = name.find_first_of(" \t\r\n=#\"") != std::string::npos;
  if (name.empty() || broken) return "'" + printable(name) + "': a name is one word without = # \"";
  return {};
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

std::string complaint(const Arguments& arguments) {
  std::string wrong = complaintOfName(arguments.name);
  if (wrong.empty()) wrong = complaintOfValue(arguments.value);
  if (wrong.empty() && arguments.comment &&
      arguments.comment->find_first_of("\r\n") != std::string::npos) {
    wrong = "'" + printable(*arguments.comment) + "': a comment is one line";
  }
  return wrong;
}

VarValRecord keyOf(const std::string& name) {
  VarValRecord key{};
  key.Contains = VARVAL_HAS_VARIABLE;
  key.Variable = name.c_str();
  return key;
}

int list(FaithfulVarVal& registry, const Arguments& arguments) {
  Table table;
  Json all = Json::array();
  const int status = forEachRecord<VarValRecord>(registry, arguments.file, [&](const auto& record) {
    if ((record.Contains & VARVAL_HAS_VARIABLE) == 0) return;
    const std::string comment = bareComment(record.Comment);
    table.add({printable(record.Variable), printable(record.Value), printable(comment)});
    Json row{{"name", record.Variable}, {"value", record.Value}};
    if (record.Comment != nullptr) row["comment"] = comment;
    all.push_back(row);
  });
  if (status != exitDone) return status;
  arguments.json ? printJson(all) : table.print();
  return exitDone;
}

// The value as the type asks for it; null when it is none.
Json typedValue(FaithfulVarVal& registry, const Arguments& arguments) {
  const char* name = arguments.name.c_str();
  std::uint64_t u = 0;
  std::int64_t s = 0;
  double d = 0;
  bool b = false;
  const char* text = nullptr;
  if (arguments.type == "uint") return registry.GetUintValue(name, &u) ? Json(u) : Json();
  if (arguments.type == "sint") return registry.GetSintValue(name, &s) ? Json(s) : Json();
  if (arguments.type == "double") {
    return registry.GetDoubleValue(name, &d) && std::isfinite(d) ? Json(d) : Json();
  }
  if (arguments.type == "bool") return registry.GetBooleanValue(name, &b) ? Json(b) : Json();
  return registry.GetStringValue(name, &text) ? Json(text) : Json();
}

int get(FaithfulVarVal& registry, const Arguments& arguments) {
  VarValRecord key = keyOf(arguments.name);
  VarValRecord record;
  const unsigned int code = registry.Get(VARVAL_VARIABLE, &key, &record);
  if (code != 0) return reportCode(code, arguments.file);
  const Json value = typedValue(registry, arguments);
  if (value.is_null()) {
    return reportFailure("'" + printable(record.Value) + "': the value of " + arguments.name +
                         " is no " + arguments.type);
  }
  if (arguments.json) {
    printJson({{"name", arguments.name}, {"value", value}});
  } else {
    std::printf("%s\n", value.is_string() ? record.Value : value.dump().c_str());
  }
  return exitDone;
}

int set(FaithfulVarVal& registry, const Arguments& arguments) {
  if (const std::string wrong = complaint(arguments); !wrong.empty()) return reportUsage(wrong);
  bCompactFormattedLine = arguments.compact;
  VarValRecord key = keyOf(arguments.name);
  std::string comment;
  return setRecord(registry, arguments.file, VARVAL_VARIABLE, VARVAL_VARIABLE | VARVAL_VALUE, key,
                   [&](const VarValRecord* found) {
                     VarValRecord record = key;
                     record.Value = arguments.value.c_str();
                     if (arguments.comment) {
                       comment = *arguments.comment;
                     } else if (found != nullptr) {
                       comment = bareComment(found->Comment);
                     }
                     if (arguments.comment || (found != nullptr && found->Comment != nullptr)) {
                       record.Contains |= VARVAL_HAS_COMMENT;
                       record.Comment = comment.c_str();
                     }
                     return record;
                   });
}

int unset(FaithfulVarVal& registry, const Arguments& arguments) {
  VarValRecord key = keyOf(arguments.name);
  const unsigned int code = registry.Delete(VARVAL_VARIABLE, &key);
  return code == 0 ? exitDone : reportCode(code, arguments.file);
}

int dump(FaithfulVarVal& registry, const Arguments& arguments) {
  return forEachRecord<VarValRecord>(registry, arguments.file, [](VarValRecord& record) {
    (void)GenRegVarVal::PrintRecord(&record);
  });
}

struct Verb {
  const char* name;
  const char* help;
  bool takesName;
  bool takesValue;
  bool takesType;
  bool takesJson;
  int (*run)(FaithfulVarVal& registry, const Arguments& arguments);
};

constexpr Verb verbs[] = {
    {"list", "print every variable: name, value, comment", false, false, false, true, list},
    {"get", "print the value of the first line that assigns the name", true, false, true, true,
     get},
    {"set", "add a variable, or change every line that assigns it", true, true, false, false, set},
    {"unset", "delete every line that assigns the name", true, false, false, false, unset},
    {"dump", "print every line's record, field by field", false, false, false, false, dump},
};

int runVerb(const Verb& verb, const Arguments& arguments) {
  unsigned int code = 0;
  FaithfulVarVal registry(arguments.file.c_str(), &code);
  return code == 0 ? verb.run(registry, arguments) : reportCode(code, arguments.file);
}

}  // namespace

void addVarCommand(CLI::App& app, int& status) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* group = app.add_subcommand("var", "a text registry of profile variables");
  group->add_option("FILE", arguments->file, "the registry file")->required();
  group->require_subcommand(1);
  for (const Verb& verb : verbs) {
    CLI::App* command = group->add_subcommand(verb.name, verb.help);
    if (verb.takesName) {
      command->add_option("NAME", arguments->name, "the variable's name")->required();
    }
    if (verb.takesValue) {
      command->add_option("VALUE", arguments->value, "one line, in double quotes to keep blanks")
          ->required();
      command->add_option("--comment", arguments->comment,
                          "the line's comment; without it the old one stays");
      command->add_flag("--compact", arguments->compact, "add the line as NAME=VALUE");
    }
    if (verb.takesType) {
      command->add_option("--type", arguments->type, "what the value must be")
          ->check(CLI::IsMember({"string", "uint", "sint", "double", "bool"}));
    }
    if (verb.takesJson) command->add_flag("--json", arguments->json, "print JSON");
    command->callback([&verb, arguments, &status] { status = runVerb(verb, *arguments); });
  }
}

}  // namespace zorreg
