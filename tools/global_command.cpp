// zorreg global ...: the global registry.
#include <cstdio>
#include <cstdlib>

#include "commands.h"
#include "exact_registry.h"
#include "registry_use.h"

namespace zorreg {
namespace {

class Global : public Exact<GlobalReg, GlobalRegRecord> {
 public:
  static constexpr Kind kind = Kind::Global;
  using Exact::Exact;
  static bool holdsEntry(const Record&) { return true; }
  static Row rowOf(const Record& record) { return zorreg::rowOf(record); }
};

constexpr const char* typeHelp = "instance, services or variable";

// As `on`, of the file that the environment names when the words name none.
template <int (*work)(Global&, const Words&)>
int onGlobal(const Words& given) {
  Words words = given;
  const char* named = std::getenv(globalPathVariable);
  if (words.file.empty()) words.file = named == nullptr ? "global.reg" : named;
  return on<Global, work>(words);
}

const GlobalRegType* typeNamed(const std::string& name) {
  for (const GlobalRegType& type : globalRegTypes) {
    if (name == type.name) return &type;
  }
  return nullptr;
}

// The code behind a rejection.
int reportRejected(const Global& registry, const Words& words, unsigned int code,
                   std::uint64_t mask, GlobalRegRecord& judged) {
  const unsigned int reason =
      code == GENREG_RC_KEY_REJECTED ? registry.validate(mask, judged) : code;
  return reportCode(reason != 0 ? reason : code, words.file,
                    reason == code ? registry.getLastCause() : "");
}

// Runs `work` with the record or key that the words describe, or reports what is wrong with them. A
// key that lost its only word would match everything.
template <typename Work>
int withRecord(const Words& words, Work work) {
  const GlobalRegType& type = *typeNamed(words.type);
  GlobalRegRecord record{};
  record.RecordType = type.type;
  const std::string wrong = setFields(words.fields, type, false, record);
  if (!wrong.empty()) return reportUsage(wrong);
  if (record.FieldMask == 0) return reportUsage("a record or key has at least one FIELD=VALUE");
  return work(record);
}

// The mask under which a key finds its record: a record that is just what the key names is meant
// even when others, which have more identifying fields, hold the given ones, too.
std::uint64_t maskOf(Global& registry, const Words& words, GlobalRegRecord& key) {
  GlobalRegRecord found;
  const bool named = (key.FieldMask & ~typeNamed(words.type)->identity) == 0;
  const bool unclear =
      named && findOnly(registry, key.FieldMask, key, found) == GENREG_RC_AMBIGUOUS;
  return unclear && findOnly(registry, byIdentity, key, found) == 0 ? byIdentity : key.FieldMask;
}

int listType(Global& registry, const Words& words) {
  const GlobalRegType* type = typeNamed(words.type);
  Listing listing;
  return listWhere(registry, words, listing, [&](const GlobalRegRecord& record) {
    return type == nullptr || record.RecordType == type->type;
  });
}

int get(Global& registry, const Words& words) {
  return withRecord(words, [&](GlobalRegRecord& key) {
    GlobalRegRecord found;
    const unsigned int code = registry.Get(key.FieldMask, &key, &found);
    if (code != 0) return reportRejected(registry, words, code, key.FieldMask, key);
    const Row row = rowOf(found);
    words.json ? printJson(row.json) : (void)std::printf("%s\n", row.cells[0].c_str());
    return int{exitDone};
  });
}

int add(Global& registry, const Words& words) {
  return withRecord(words, [&](GlobalRegRecord& record) {
    return update(registry, words, true, [&] {
      const unsigned int code = registry.Add(byIdentity, &record);
      return code == 0 ? int{exitDone} : reportRejected(registry, words, code, byIdentity, record);
    });
  });
}

// GENREG_RC_DUPLICATE when `merged` would become another record than `found`, and there is one like
// that: neither could be changed or deleted any more.
unsigned int checkIdentity(Global& registry, const GlobalRegRecord& found,
                           GlobalRegRecord& merged) {
  if (identityOf(found) == identityOf(merged)) return 0;
  GlobalRegRecord other;
  const unsigned int code = findOnly(registry, byIdentity, merged, other);
  if (code == GENREG_RC_NOT_FOUND) return 0;
  return code == 0 || code == GENREG_RC_AMBIGUOUS ? GENREG_RC_DUPLICATE : code;
}

// In an update, gives the one record that matches `key` the new fields of the words.
int changeFields(Global& registry, const Words& words, std::uint64_t mask, GlobalRegRecord& key) {
  const GlobalRegType& type = *typeNamed(words.type);
  GlobalRegRecord changed{};
  const unsigned int code =
      changeOnly(registry, mask, key, [&](const GlobalRegRecord& found, GlobalRegRecord& merged) {
        merged = found;
        (void)setFields(words.newFields, type, true, merged);
        changed = merged;
        return checkIdentity(registry, found, merged);
      });
  if (code == GENREG_RC_DUPLICATE) {
    return reportConflict(printable(words.file) + " holds another record that is " +
                          identityOf(changed));
  }
  return code == 0 ? int{exitDone} : reportRejected(registry, words, code, mask, changed);
}

int change(Global& registry, const Words& words) {
  return withRecord(words, [&](GlobalRegRecord& key) {
    GlobalRegRecord changed{};
    const std::string wrong = setFields(words.newFields, *typeNamed(words.type), true, changed);
    if (!wrong.empty()) return reportUsage(wrong);
    return update(registry, words, false,
                  [&] { return changeFields(registry, words, maskOf(registry, words, key), key); });
  });
}

int remove(Global& registry, const Words& words) {
  return withRecord(words, [&](GlobalRegRecord& key) {
    return update(registry, words, false, [&] {
      const std::uint64_t mask = maskOf(registry, words, key);
      const unsigned int code = registry.Delete(mask, &key);
      return code == 0 ? int{exitDone} : reportRejected(registry, words, code, mask, key);
    });
  });
}

// Words of a line; blanks between double quotes belong to a word.
std::vector<std::string> wordsOf(const std::string& line) {
  std::vector<std::string> words;
  bool quoted = false;
  bool inWord = false;
  for (const char character : line) {
    const bool ends = !quoted && (character == ' ' || character == '\t');
    if (!ends && !inWord) words.emplace_back();
    inWord = !ends;
    if (character == '"') quoted = !quoted;
    if (!ends && character != '"') words.back() += character;
  }
  return words;
}

// Adds the record of the words, or gives the one of its identity their fields.
int set(Global& registry, const Words& words) {
  return withRecord(words, [&](GlobalRegRecord& record) {
    const GlobalRegType& type = *typeNamed(words.type);
    if ((record.FieldMask & type.identity) == type.identity) {
      return setRecord(
          registry, words, true, type.identity, record,
          [](const GlobalRegRecord&) { return std::string(); },
          [&](const GlobalRegRecord* found) {
            GlobalRegRecord merged = found == nullptr ? record : *found;
            if (found != nullptr) (void)setFields(words.fields, type, true, merged);
            return merged;
          });
    }
    const unsigned int code = registry.Add(byIdentity, &record);
    if (code == GENREG_RC_DUPLICATE) return changeFields(registry, words, byIdentity, record);
    return code == 0 ? int{exitDone} : reportRejected(registry, words, code, byIdentity, record);
  });
}

// Lines of TYPE FIELD=VALUE ...
int import(Global& registry, const Words& given) {
  return importLines(given, [&](const std::string& line, Words& words, std::string& wrong) {
    words.fields = wordsOf(line);
    words.type = words.fields.front();
    words.fields.erase(words.fields.begin());
    words.newFields = words.fields;
    const GlobalRegType* type = typeNamed(words.type);
    GlobalRegRecord record{};
    wrong = type == nullptr ? "'" + printable(words.type) + "': " + typeHelp
                            : setFields(words.fields, *type, false, record);
    return wrong.empty() ? set(registry, words) : int{exitUsage};
  });
}

constexpr Argument file{"--file",
                        "the registry file; else $ZOR_GLOBAL_REG_PATHNAME, else global.reg",
                        &Words::file, Need::MayFilled};
constexpr std::array<const char*, 5> types{"instance", "services", "variable"};
constexpr Argument someType{"--type", typeHelp, &Words::type, Need::May, types};
constexpr Argument type{"--type", typeHelp, &Words::type, Need::Must, types};
constexpr Argument fields{"FIELD=VALUE", "the record's fields", &Words::fields};
constexpr Argument keyFields{"FIELD=VALUE", "fields to find it by", &Words::fields};
constexpr Argument newFields{"--to",
                             "FIELD=VALUE words to set; an empty VALUE takes the field away",
                             &Words::newFields, Need::Must};

constexpr Verb verbs[] = {
    {"list",
     "print every record with the fields it holds",
     onGlobal<listType>,
     {&someType, &jsonArgument}},
    {"get",
     "print the first record that holds the given fields",
     onGlobal<get>,
     {&type, &keyFields, &jsonArgument}},
    {"add",
     "add a record; one of its name must not be there",
     onGlobal<add>,
     {&type, &fields},
     true},
    {"change",
     "give the one record that holds the given fields new values",
     onGlobal<change>,
     {&type, &keyFields, &newFields},
     true},
    {"delete",
     "delete the one record that holds the given fields",
     onGlobal<remove>,
     {&type, &keyFields},
     true},
    {"import",
     "set records from lines of TYPE FIELD=VALUE ... on standard input, all or none",
     onGlobal<updating<Global, import, true>>,
     {},
     true},
    {"dump", "print every record, field by field", onGlobal<dump<Global>>},
    {"repair", repairHelp, onGlobal<repair<Global>>, {&dropArgument, &jsonArgument}, true},
};

}  // namespace

void addGlobalCommand(CLI::App& app, int& status) {
  addGroup(app, status, {"global", "the global registry", {&file, nullptr}}, verbs);
}

}  // namespace zorreg
