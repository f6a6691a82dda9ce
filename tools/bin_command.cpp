// zorreg bin FILE ...: registries of binary variables.
#include <charconv>
#include <cstdio>
#include <iostream>
#include <sstream>

#include "commands.h"
#include "exact_registry.h"
#include "registry_use.h"

namespace zorreg {
namespace {

constexpr std::size_t nameLimit = sizeof(BinVarValRecord::Variable) - 1;

template <std::size_t Size>
void copyField(char (&field)[Size], const std::string& text) {
  std::memset(field, 0, Size);
  std::memcpy(field, text.data(), std::min(text.size(), Size - 1));
}

class Bin : public Exact<GenRegBinVarVal, BinVarValRecord> {
 public:
  static constexpr Kind kind = Kind::Bin;
  using Exact::Exact;
  static bool holdsEntry(const Record&) { return true; }
  static Row rowOf(const Record& record) {
    const auto text = [](const char(&field)[sizeof record.Variable]) {
      return std::string(field, ::strnlen(field, sizeof field));
    };
    const std::string comment = text(record.Comment);
    char line[64];
    (void)std::snprintf(line, sizeof line, "%-15s %11d  ", printable(text(record.Variable)).c_str(),
                        record.Value);
    Json json{{"name", text(record.Variable)}, {"value", record.Value}};
    if (!comment.empty()) json["comment"] = comment;
    return {{line + printable(comment)}, json};
  }
};

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
  if (name.size() > nameLimit) {
    return "'" + printable(name) + "': a name has at most " + limit + " bytes";
  }
  if (value != nullptr && !parseValue(*value, number)) {
    return "'" + printable(*value) + "': a value is a whole number from -2147483648 to 2147483647";
  }
  if (comment && comment->size() > nameLimit) {
    return "'" + printable(*comment) + "': a comment has at most " + limit + " bytes";
  }
  return {};
}

BinVarValRecord keyOf(const std::string& name) {
  BinVarValRecord key{};
  copyField(key.Variable, name);
  return key;
}

int get(Bin& registry, const Words& words) {
  const std::string wrong = complaint(words.name, nullptr, {});
  if (!wrong.empty()) return reportUsage(wrong);
  BinVarValRecord key = keyOf(words.name);
  BinVarValRecord found;
  const unsigned int code = registry.Get(BINVARVAL_IDENTITY, &key, &found);
  if (code != 0) return reportCode(code, words.file);
  if (words.json) {
    printJson(Bin::rowOf(found).json);
  } else {
    std::printf("%d\n", found.Value);
  }
  return exitDone;
}

int setChecked(Bin& registry, const std::string& file, const std::string& name,
               const std::string& value, const std::optional<std::string>& comment) {
  BinVarValRecord key = keyOf(name);
  return setRecord(registry, file, BINVARVAL_IDENTITY, key, [&](const BinVarValRecord* found) {
    BinVarValRecord record = found != nullptr ? *found : key;
    (void)parseValue(value, record.Value);
    if (comment) copyField(record.Comment, *comment);
    return record;
  });
}

int set(Bin& registry, const Words& words) {
  const std::string wrong = complaint(words.name, &words.value, words.comment);
  if (!wrong.empty()) return reportUsage(wrong);
  return setChecked(registry, words.file, words.name, words.value, words.comment);
}

int unset(Bin& registry, const Words& words) {
  const std::string wrong = complaint(words.name, nullptr, {});
  if (!wrong.empty()) return reportUsage(wrong);
  BinVarValRecord key = keyOf(words.name);
  const unsigned int code = registry.Delete(BINVARVAL_IDENTITY, &key);
  return code == 0 ? exitDone : reportCode(code, words.file);
}

int import(Bin& registry, const Words& words) {
  std::string line;
  for (unsigned long number = 1; std::getline(std::cin, line); ++number) {
    std::istringstream parts(line);
    std::string name;
    std::string value;
    std::string rest;
    if (!(parts >> name) || name[0] == '#') continue;
    parts >> value;
    const std::string wrong = parts >> rest ? "more than NAME VALUE" : complaint(name, &value, {});
    std::string where = "standard input, line " + std::to_string(number);
    if (!wrong.empty()) return reportUsage(where.append(": ").append(wrong));
    if (const int status = setChecked(registry, words.file, name, value, {}); status != exitDone) {
      (void)reportRefusal(where, "is not imported");
      return status;
    }
  }
  if (std::ferror(stdin) != 0 || std::cin.bad()) {
    return reportFailure("standard input cannot be read");
  }
  return exitDone;
}

constexpr Argument name{"NAME", "the variable's name", &Words::name, Need::MustFilled};
constexpr Argument value{"VALUE", "a whole number of 32 bits", &Words::value, Need::Must};
constexpr Argument comment{"--comment", "free text, at most 15 bytes", &Words::comment};
constexpr Argument bigEndian{"--big-endian", "length fields have their high byte first",
                             &Words::bigEndian};

constexpr Verb verbs[] = {
    {"list", "print every variable: name, value, comment", on<Bin, list>, {&jsonArgument}},
    {"get",
     "print the value of the first variable of that name",
     on<Bin, get>,
     {&name, &jsonArgument}},
    {"set",
     "add a variable, or change every one of that name",
     on<Bin, set>,
     {&name, &value, &comment}},
    {"unset", "delete every variable of that name", on<Bin, unset>, {&name}},
    {"import", "set variables from lines of NAME VALUE on standard input", on<Bin, import>},
    {"dump", "print every record, field by field", on<Bin, dump>},
    {"repair", repairHelp, on<Bin, repair>, {&dropArgument, &jsonArgument}},
};

}  // namespace

void addBinCommand(CLI::App& app, int& status) {
  addGroup(app, status, {"bin", "a registry of binary variables", {&fileArgument, &bigEndian}},
           verbs);
}

}  // namespace zorreg
