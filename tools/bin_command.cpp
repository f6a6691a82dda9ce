#include "bin_command.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>

#include "genreg.h"
#include "output.h"
#include "registry_use.h"
#include "report.h"

namespace zorreg {
namespace {

constexpr std::size_t nameLimit = sizeof(BinVarValRecord::Variable) - 1;

// The words of one command line.
struct Arguments {
  std::string file;
  std::string name;
  std::string value;
  std::optional<std::string> comment;
  bool bigEndian = false;
  bool json = false;
};

template <std::size_t Size>
void copyField(char (&field)[Size], const std::string& text) {
  std::memset(field, 0, Size);
  std::memcpy(field, text.data(), std::min(text.size(), Size - 1));
}

bool parseValue(const std::string& text, std::int32_t& value) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  return error == std::errc() && stop == end;
}

// Why a name, value or comment cannot be stored; empty when it can.
std::string complaint(const std::string& name, const std::string* value,
                      const std::optional<std::string>& comment) {
  std::int32_t number = 0;
  const std::string limit = std::to_string(nameLimit);
  if (name.empty()) return "a name must not be empty";
  if (name.size() > nameLimit) return "'" + name + "': a name has at most " + limit + " bytes";
  if (value != nullptr && !parseValue(*value, number)) {
    return "'" + *value + "': a value is a whole number from -2147483648 to 2147483647";
  }
  if (comment && comment->size() > nameLimit) {
    return "'" + *comment + "': a comment has at most " + limit + " bytes";
  }
  return {};
}

// A registry in which two records that differ in the comment alone are not equal, so that a change
// of the comment is a change.
class CommentedVarVal : public GenRegBinVarVal {
 public:
  CommentedVarVal(const char* path, unsigned int* code) : GenRegBinVarVal(path, code) {
    withoutComments = GenRegFile::CompareRecord;
    if (withoutComments != nullptr) GenRegFile::CompareRecord = compareWithComments;
  }

  static bool isSame(BinVarValRecord& stored, BinVarValRecord& given) {
    return compareWithComments(GENREG_ALL_FIELDS, &stored, &given) == 1;
  }

 private:
  static unsigned int compareWithComments(std::uint64_t mask, void* record, void* key) {
    const unsigned int same = withoutComments(mask, record, key);
    if (same != 1 || mask != GENREG_ALL_FIELDS) return same;
    const auto* left = static_cast<const BinVarValRecord*>(record);
    const auto* right = static_cast<const BinVarValRecord*>(key);
    return std::strncmp(left->Comment, right->Comment, sizeof left->Comment) == 0 ? 1 : 0;
  }

  static inline GenRegCompareHook withoutComments = nullptr;
};

Json jsonOf(const BinVarValRecord& record) {
  const auto text = [](const char(&field)[sizeof record.Variable]) {
    return std::string(field, ::strnlen(field, sizeof field));
  };
  Json row{{"name", text(record.Variable)}, {"value", record.Value}};
  if (record.Comment[0] != '\0') row["comment"] = text(record.Comment);
  return row;
}

// One registry of binary variables and what the verbs do with it.
class BinRegistry {
 public:
  explicit BinRegistry(const Arguments& arguments)
      : file_(arguments.file), registry_(file_.c_str(), &opened_) {
    if (arguments.bigEndian) (void)registry_.setFeature(GENREG_BIG_ENDIAN_LENGTH);
  }

  int opened() const { return opened_ == 0 ? exitDone : reportCode(opened_, file_); }

  int get(const std::string& name, bool json) {
    BinVarValRecord key = keyOf(name);
    BinVarValRecord found;
    const unsigned int code = registry_.Get(BINVARVAL_VARIABLE, &key, &found);
    if (code != 0) return reportCode(code, file_);
    if (json) {
      printJson(jsonOf(found));
    } else {
      std::printf("%d\n", found.Value);
    }
    return exitDone;
  }

  int set(const std::string& name, const std::string& value,
          const std::optional<std::string>& comment) {
    BinVarValRecord key = keyOf(name);
    return setRecord(registry_, file_, BINVARVAL_VARIABLE, BINVARVAL_VARIABLE | BINVARVAL_VALUE,
                     key, [&](const BinVarValRecord* found) {
                       BinVarValRecord record = found != nullptr ? *found : key;
                       (void)parseValue(value, record.Value);
                       if (comment) copyField(record.Comment, *comment);
                       return record;
                     });
  }

  int unset(const std::string& name) {
    BinVarValRecord key = keyOf(name);
    const unsigned int code = registry_.Delete(BINVARVAL_VARIABLE, &key);
    return code == 0 ? exitDone : reportCode(code, file_);
  }

  template <typename Visit>
  int forEach(Visit visit) {
    return forEachRecord<BinVarValRecord>(registry_, file_, visit);
  }

  int importLines(std::istream& input) {
    std::string line;
    for (unsigned long number = 1; std::getline(input, line); ++number) {
      std::istringstream words(line);
      std::string name;
      std::string value;
      std::string rest;
      if (!(words >> name) || name[0] == '#') continue;
      words >> value;
      std::string wrong = words >> rest ? "more than NAME VALUE" : complaint(name, &value, {});
      if (!wrong.empty()) {
        return reportUsage("standard input, line " + std::to_string(number) + ": " + wrong);
      }
      if (const int status = set(name, value, {}); status != exitDone) {
        (void)reportFailure("standard input, line " + std::to_string(number) + " is not imported");
        return status;
      }
    }
    if (std::ferror(stdin) != 0 || input.bad()) {
      return reportFailure("standard input cannot be read");
    }
    return exitDone;
  }

 private:
  static BinVarValRecord keyOf(const std::string& name) {
    BinVarValRecord key{};
    copyField(key.Variable, name);
    return key;
  }

  std::string file_;
  unsigned int opened_ = 0;
  CommentedVarVal registry_;
};

int list(BinRegistry& registry, bool json) {
  Json all = Json::array();
  const int status = registry.forEach([&](const BinVarValRecord& record) {
    if (json) {
      all.push_back(jsonOf(record));
      return;
    }
    const std::string comment = printable(record.Comment, sizeof record.Comment);
    std::printf("%-15s %11d%s%s\n", printable(record.Variable, sizeof record.Variable).c_str(),
                record.Value, comment.empty() ? "" : "  ", comment.c_str());
  });
  if (status == exitDone && json) printJson(all);
  return status;
}

int dump(BinRegistry& registry) {
  return registry.forEach(
      [](BinVarValRecord& record) { (void)GenRegBinVarVal::PrintRecord(&record); });
}

struct Verb {
  const char* name;
  const char* help;
  bool takesName;
  bool takesValue;
  bool takesJson;
  int (*run)(BinRegistry& registry, const Arguments& arguments);
};

constexpr Verb verbs[] = {
    {"list", "print every variable: name, value, comment", false, false, true,
     [](BinRegistry& registry, const Arguments& a) { return list(registry, a.json); }},
    {"get", "print the value of the first variable of that name", true, false, true,
     [](BinRegistry& registry, const Arguments& a) { return registry.get(a.name, a.json); }},
    {"set", "add a variable, or change every one of that name", true, true, false,
     [](BinRegistry& registry, const Arguments& a) {
       return registry.set(a.name, a.value, a.comment);
     }},
    {"unset", "delete every variable of that name", true, false, false,
     [](BinRegistry& registry, const Arguments& a) { return registry.unset(a.name); }},
    {"import", "set variables from lines of NAME VALUE on standard input", false, false, false,
     [](BinRegistry& registry, const Arguments&) { return registry.importLines(std::cin); }},
    {"dump", "print every record, field by field", false, false, false,
     [](BinRegistry& registry, const Arguments&) { return dump(registry); }},
};

int runVerb(const Verb& verb, const Arguments& arguments) {
  if (verb.takesName) {
    const std::string wrong =
        complaint(arguments.name, verb.takesValue ? &arguments.value : nullptr, arguments.comment);
    if (!wrong.empty()) return reportUsage(wrong);
  }
  BinRegistry registry(arguments);
  if (const int status = registry.opened(); status != exitDone) return status;
  return verb.run(registry, arguments);
}

}  // namespace

void addBinCommand(CLI::App& app, int& status) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* group = app.add_subcommand("bin", "a registry of binary variables");
  group->add_option("FILE", arguments->file, "the registry file")->required();
  group->add_flag("--big-endian", arguments->bigEndian, "length fields have their high byte first");
  group->require_subcommand(1);
  for (const Verb& verb : verbs) {
    CLI::App* command = group->add_subcommand(verb.name, verb.help);
    if (verb.takesName) {
      command->add_option("NAME", arguments->name, "the variable's name")->required();
    }
    if (verb.takesValue) {
      command->add_option("VALUE", arguments->value, "a whole number of 32 bits")->required();
      command->add_option("--comment", arguments->comment, "free text, at most 15 bytes");
    }
    if (verb.takesJson) command->add_flag("--json", arguments->json, "print JSON");
    command->callback([&verb, arguments, &status] { status = runVerb(verb, *arguments); });
  }
}

}  // namespace zorreg
