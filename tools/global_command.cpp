#include "global_command.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "global_fields.h"
#include "output.h"
#include "registry_use.h"
#include "report.h"
#include "sysservices/environment.h"

namespace zorreg {
namespace {

constexpr const char* pathVariable = "ZOR_GLOBAL_REG_PATHNAME";

// The words of one command line.
struct Arguments {
  std::optional<std::string> file;
  std::string type;
  std::vector<std::string> fields;     // a record's, or a key's
  std::vector<std::string> newFields;  // of a change
  bool json = false;
};

// The registry with the two hooks that the tool asks itself.
class OpenGlobal : public GlobalReg {
 public:
  bool ready() const { return (status & GENREG_STATUS_READY) != 0; }
  // What an operation would only call "rejected".
  unsigned int validate(std::uint64_t mask, GlobalRegRecord& record) const {
    return ValidateKey(mask, &record);
  }
  void print(GlobalRegRecord& record) const { (void)GenRegBase::PrintRecord(&record); }
};

const GlobalRegType* typeNamed(const std::string& name) {
  for (const GlobalRegType& type : globalRegTypes) {
    if (name == type.name) return &type;
  }
  return nullptr;
}

// The fields by which two records of a type are the same thing.
std::uint64_t identityOf(const GlobalRegType& type, const GlobalRegRecord& record) {
  const std::uint64_t identity = type.type == GLOBALREG_RECORD_INSTANCE   ? 0x4   // InstanceName
                                 : type.type == GLOBALREG_RECORD_SERVICES ? 0x1   // Service
                                                                          : 0x3;  // and Variable
  const std::uint64_t present = identity & record.FieldMask;
  return present != 0 ? present : record.FieldMask;
}

// One run of a verb: the registry and the record or key that the words describe.
struct Run {
  const Arguments& arguments;
  const char* file;
  const GlobalRegType* type;
  OpenGlobal registry{};
  GlobalRegRecord record{};

  int report(unsigned int code) const { return reportCode(code, file); }
  // The code behind a rejection.
  int reportRejected(unsigned int code, std::uint64_t mask, GlobalRegRecord& judged) const {
    if (code != GENREG_RC_KEY_REJECTED) return report(code);
    const unsigned int reason = registry.validate(mask, judged);
    return report(reason != 0 ? reason : code);
  }
};

int show(const GlobalRegRecord& record, bool json) {
  if (json) {
    printJson(recordJson(record));
  } else {
    std::printf("%s\n", recordLine(record).c_str());
  }
  return exitDone;
}

int list(Run& run) {
  Json all = Json::array();
  const int status =
      forEachRecord<GlobalRegRecord>(run.registry, run.file, [&](const GlobalRegRecord& record) {
        if (run.type != nullptr && record.RecordType != run.type->type) return;
        if (run.arguments.json) {
          all.push_back(recordJson(record));
        } else {
          (void)show(record, false);
        }
      });
  if (status == exitDone && run.arguments.json) printJson(all);
  return status;
}

int get(Run& run) {
  GlobalRegRecord found;
  const std::uint64_t mask = run.record.FieldMask;
  const unsigned int code = run.registry.Get(mask, &run.record, &found);
  return code == 0 ? show(found, run.arguments.json) : run.reportRejected(code, mask, run.record);
}

int add(Run& run) {
  const std::uint64_t mask = identityOf(*run.type, run.record);
  if (mask == 0) return reportUsage("a record has at least one FIELD=VALUE");
  const unsigned int code = run.registry.Add(mask, &run.record);
  return code == 0 ? exitDone : run.reportRejected(code, mask, run.record);
}

int change(Run& run) {
  const std::uint64_t mask = run.record.FieldMask;
  if (mask == 0) return reportUsage("a key has at least one FIELD=VALUE");
  GlobalRegRecord record;
  unsigned int code = run.registry.Get(mask, &run.record, &record);
  if (code != 0) return run.reportRejected(code, mask, run.record);
  const std::string wrong = setFields(run.arguments.newFields, *run.type, record);
  if (!wrong.empty()) return reportUsage(wrong);
  code = run.registry.Change(mask, &run.record, &record);
  return code == 0 || code == GENREG_RC_UNCHANGED ? exitDone
                                                  : run.reportRejected(code, mask, record);
}

int remove(Run& run) {
  const std::uint64_t mask = run.record.FieldMask;
  if (mask == 0) return reportUsage("a key has at least one FIELD=VALUE");
  const unsigned int code = run.registry.Delete(mask, &run.record);
  return code == 0 ? exitDone : run.reportRejected(code, mask, run.record);
}

int dump(Run& run) {
  return forEachRecord<GlobalRegRecord>(
      run.registry, run.file, [&](GlobalRegRecord& record) { run.registry.print(record); });
}

struct Verb {
  const char* name;
  const char* help;
  const char* fields;  // help of the FIELD=VALUE words, or null
  int (*run)(Run& run);
  bool takesType;
  bool needsType;
  bool takesNewFields;
  bool takesJson;
};

constexpr const char* keyFields = "fields to find it by";

constexpr Verb verbs[] = {
    {"list", "print every record with the fields it holds", nullptr, list, true, false, false,
     true},
    {"get", "print the first record that holds the given fields", keyFields, get, true, true, false,
     true},
    {"add", "add a record; one of its name must not be there", "the record's fields", add, true,
     true, false, false},
    {"change", "give the one record that holds the given fields new values", keyFields, change,
     true, true, true, false},
    {"delete", "delete the one record that holds the given fields", keyFields, remove, true, true,
     false, false},
    {"dump", "print every record, field by field", nullptr, dump, false, false, false, false},
};

int runVerb(const Verb& verb, const Arguments& arguments) {
  if (arguments.file) (void)ossEnvironmentSet(pathVariable, arguments.file->c_str());
  const char* named = std::getenv(pathVariable);
  Run run{arguments, named == nullptr ? "global.reg" : named, typeNamed(arguments.type)};
  if (!run.registry.ready()) return run.report(GENREG_RC_NOT_READY);
  if (run.type != nullptr) {
    run.record.RecordType = run.type->type;
    const std::string wrong = setFields(arguments.fields, *run.type, run.record);
    if (!wrong.empty()) return reportUsage(wrong);
  }
  return verb.run(run);
}

}  // namespace

void addGlobalCommand(CLI::App& app, int& status) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* group = app.add_subcommand("global", "the global registry");
  group->add_option("--file", arguments->file,
                    std::string("the registry file; else ") + pathVariable + ", else global.reg");
  group->require_subcommand(1);
  for (const Verb& verb : verbs) {
    CLI::App* command = group->add_subcommand(verb.name, verb.help);
    if (verb.takesType) {
      command->add_option("--type", arguments->type, "instance, services or variable")
          ->check(CLI::IsMember({"instance", "services", "variable"}))
          ->required(verb.needsType);
    }
    if (verb.fields != nullptr) {
      command->add_option("FIELD=VALUE", arguments->fields, verb.fields);
    }
    if (verb.takesNewFields) {
      command
          ->add_option("--to", arguments->newFields,
                       "FIELD=VALUE words to set; an empty VALUE takes the field away")
          ->required();
    }
    if (verb.takesJson) command->add_flag("--json", arguments->json, "print JSON");
    command->callback([&verb, arguments, &status] { status = runVerb(verb, *arguments); });
  }
}

}  // namespace zorreg
