// zorreg bin FILE ...: registries of binary variables.
#include <charconv>
#include <cstdio>
#include <sstream>

#include "commands.h"
#include "exact_registry.h"
#include "faces/record_fields.h"
#include "field_json.h"
#include "registry_use.h"

namespace zorreg {
namespace {

constexpr std::size_t nameLimit = sizeof(BinVarValRecord::Variable) - 1;

template <std::size_t Size>
void copyField(char (&field)[Size], const std::string& text) {
  std::memset(field, 0, Size);
  std::memcpy(field, text.data(), std::min(text.size(), Size - 1));
}

constexpr JsonMember members[] = {{"name", "Variable", JsonMember::Text, true},
                                  {"value", "Value", JsonMember::Number, true},
                                  {"comment", "Comment", JsonMember::Text, false}};

class Bin : public Exact<GenRegBinVarVal, BinVarValRecord> {
 public:
  static constexpr Kind kind = Kind::Bin;
  using Exact::Exact;
  static bool holdsEntry(const Record&) { return true; }
  static Row rowOf(const Record& record) {
    const faces::NamedFields fields = faces::fieldsOf(record);
    const std::string* const comment = fields.find("Comment");
    char line[64];
    (void)std::snprintf(line, sizeof line, "%-15s %11s  ",
                        printable(*fields.find("Variable")).c_str(), fields.find("Value")->c_str());
    return {{line + (comment == nullptr ? "" : printable(*comment))}, jsonOf(fields, members)};
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
  if (code != 0) return outcome(registry, code, words);
  if (words.json) {
    printJson(Bin::rowOf(found).json);
  } else {
    std::printf("%d\n", found.Value);
  }
  return exitDone;
}

int setOne(Bin& registry, const Words& words, bool single) {
  BinVarValRecord key = keyOf(words.name);
  const auto valueOf = [](const BinVarValRecord& found) { return std::to_string(found.Value); };
  return setRecord(registry, words, single, BINVARVAL_IDENTITY, key, valueOf,
                   [&](const BinVarValRecord* found) {
                     BinVarValRecord record = found != nullptr ? *found : key;
                     (void)parseValue(words.value, record.Value);
                     if (words.comment) copyField(record.Comment, *words.comment);
                     return record;
                   });
}

int set(Bin& registry, const Words& words) { return setOne(registry, words, false); }

int setChecked(Bin& registry, const Words& words) {
  const std::string wrong = complaint(words.name, &words.value, words.comment);
  return wrong.empty() ? updating<Bin, set, true>(registry, words) : reportUsage(wrong);
}

int unset(Bin& registry, const Words& words) {
  BinVarValRecord key = keyOf(words.name);
  return outcome(registry, registry.Delete(BINVARVAL_IDENTITY, &key), words);
}

int unsetChecked(Bin& registry, const Words& words) {
  const std::string wrong = complaint(words.name, nullptr, {});
  return wrong.empty() ? updating<Bin, unset, false>(registry, words) : reportUsage(wrong);
}

int import(Bin& registry, const Words& given) {
  const bool single = isWithoutRepeats(registry, [](const BinVarValRecord& record) {
    return std::string(record.Variable, ::strnlen(record.Variable, sizeof record.Variable));
  });
  return importLines(given, [&](const std::string& line, Words& words, std::string& wrong) {
    std::istringstream parts(line);
    std::string rest;
    parts >> words.name >> words.value;
    wrong = parts >> rest ? "more than NAME VALUE" : complaint(words.name, &words.value, {});
    return wrong.empty() ? setOne(registry, words, single) : int{exitUsage};
  });
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
     on<Bin, setChecked>,
     {&name, &value, &comment, &ifValueArgument, &ifAbsentArgument, &ifPresentArgument},
     true},
    {"unset", "delete every variable of that name", on<Bin, unsetChecked>, {&name}, true},
    {"import",
     "set variables from lines of NAME VALUE on standard input, all or none",
     on<Bin, updating<Bin, import, true>>,
     {},
     true},
    {"dump", "print every record, field by field", on<Bin, dump>},
    {"repair", repairHelp, on<Bin, repair>, {&dropArgument, &jsonArgument}, true},
};

}  // namespace

void addBinCommand(CLI::App& app, int& status) {
  addGroup(app, status, {"bin", "a registry of binary variables", {&fileArgument, &bigEndian}},
           verbs);
}

}  // namespace zorreg
