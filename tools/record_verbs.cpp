#include "record_verbs.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "check_gaps.h"
#include "file_content.h"
#include "genreg/flavours/protocols.h"
#include "pattern.h"
#include "progress.h"
#include "record_json.h"
#include "record_words.h"

namespace tool {
namespace {

using faces::NamedFields;

void print(Kind kind, const NamedFields& record) {
  for (const std::string& cell : cellsOf(kind, record)) std::printf("%s\n", cell.c_str());
}

// Lists the records that `isWanted`; those before a damage, too, but no half an array.
template <typename IsWanted>
int listWhere(Store& store, const Words& words, Listing& listing, IsWanted isWanted) {
  const Kind kind = store.kind();
  const int status = store.forEach([&](const NamedFields& record) {
    if (isWanted(record)) listing.add({cellsOf(kind, record), jsonOf(kind, record)});
  });
  if (status == exitDone || !words.json) listing.print(words.json);
  return status;
}

template <typename IsWanted>
int findWhere(Store& store, const Words& words, IsWanted isWanted) {
  Listing found;
  const int status = listWhere(store, words, found, isWanted);
  if (status != exitDone || !found.empty()) return status;
  return reportCode(GENREG_RC_NOT_FOUND, store.file());
}

// --- reading a value ---

bool isQuoted(const std::string& value) {
  return value.size() > 1 && (value[0] == '"' || value[0] == '\'') && value.back() == value[0];
}

// The value in the quotes that the old one has, else in such that a shell takes it as it is.
std::string inQuotes(const std::string& value, const std::string& old) {
  const bool isPlain = value.find_first_of("\"$`\\") == std::string::npos;
  const char quote = isQuoted(old) ? old[0] : isPlain ? '"' : '\'';
  return value.find(quote) == std::string::npos ? quote + value + quote : value;
}

std::string withoutQuotes(const std::string& value) {
  return isQuoted(value) ? value.substr(1, value.size() - 2) : value;
}

// The value as the type asks for it; null when it is none.
Json typedValue(Store& store, const Words& words, const std::string& text) {
  if (words.type.empty() || words.type == "string") {
    return store.kind() == Kind::Bin ? Json::parse(text) : jsonOfText(text);
  }
  if (store.kind() == Kind::Bin) {
    if (words.type == "bool") return text == "0" || text == "1" ? Json(text == "1") : Json();
    return words.type == "uint" && text[0] == '-' ? Json() : Json::parse(text);
  }
  unsigned int code = 0;
  GenRegVarVal profile(store.file().c_str(), &code);
  const char* name = words.name.c_str();
  std::uint64_t u = 0;
  std::int64_t s = 0;
  double d = 0;
  bool b = false;
  if (words.type == "uint") return profile.GetUintValue(name, &u) ? Json(u) : Json();
  if (words.type == "sint") return profile.GetSintValue(name, &s) ? Json(s) : Json();
  if (words.type == "bool") return profile.GetBooleanValue(name, &b) ? Json(b) : Json();
  return profile.GetDoubleValue(name, &d) && std::isfinite(d) ? Json(d) : Json();
}

int printValue(Store& store, const Words& words, const NamedFields& found) {
  std::string text = found.text("Value");
  const Json value = typedValue(store, words, text);
  if (value.is_null()) {
    return reportFailure("'" + printable(text) + "': the value of " + printable(words.name) +
                         " is no " + words.type);
  }
  if (words.raw) text = withoutQuotes(text);
  if (!words.json) {
    const bool isAsStored = words.type.empty() || words.type == "string";
    std::printf("%s\n", isAsStored ? text.c_str() : value.dump().c_str());
    return exitDone;
  }
  NamedFields shown = found;
  if (words.raw) shown.set("Value", text);
  Json json = jsonOf(store.kind(), shown);
  if (!words.type.empty() && words.type != "string") json["Value"] = value;
  printJson(json);
  return exitDone;
}

int printDefault(const Words& words) {
  words.json ? printJson(Json{{"Variable", words.name}, {"Value", *words.defaultValue}})
             : (void)std::printf("%s\n", words.defaultValue->c_str());
  return exitDone;
}

// --- changing ---

// Whether what the words say of a record's presence and value holds; reports what does not.
int checkCondition(Store& store, const Words& words, const NamedFields* found) {
  const std::string name = printable(words.name);
  if (found != nullptr && words.ifAbsent) return reportConflict(name + " is there already");
  if (found == nullptr && (words.ifPresent || words.ifValue)) {
    return store.outcome(GENREG_RC_NOT_FOUND, words.name);
  }
  if (!words.ifValue) return exitDone;
  const std::string& value = found->text("Value");
  if (*words.ifValue == value || *words.ifValue == withoutQuotes(value)) return exitDone;
  return reportConflict(name + " is " + printable(value) + ", not " + printable(*words.ifValue));
}

// A variable that a line assigns in a way that cannot be changed as a whole is left alone.
int refuseOdd(Store& store, const std::string& name) {
  const std::string* why = store.kind() == Kind::Var ? store.oddityOf(name) : nullptr;
  if (why == nullptr) return exitDone;
  return reportRefusal(store.file() + ",", *why + "; " + printable(name) + " is not changed");
}

// The identity of a record of a text or of variables.
NamedFields identityOf(Kind kind, const NamedFields& record) {
  NamedFields key;
  const char* const fields[] = {kind == Kind::Services ? "Name" : "Variable",
                                kind == Kind::Services ? "Protocol" : "Variable"};
  for (const char* field : fields) key.set(field, record.text(field));
  return key;
}

bool isMissing(unsigned int code) {
  return code == GENREG_RC_NOT_FOUND || code == GENREG_RC_NO_FILE;
}

}  // namespace

int list(Store& store, const Words& words) {
  Listing listing;
  return listWhere(store, words, listing, [&](const NamedFields& record) {
    return words.type.empty() || record.text("Type") == words.type;
  });
}

int get(Store& store, const Words& words) {
  const Parsed key = keyOf(store.kind(), words);
  if (!key.wrong.empty()) return reportUsage(key.wrong);
  NamedFields found;
  const unsigned int code = store.registry().get(key.fields, found);
  if (isMissing(code) && words.defaultValue) return printDefault(words);
  if (code != 0) return store.outcome(code, words.name);
  if (store.kind() != Kind::Global) return printValue(store, words, found);
  words.json ? printJson(jsonOf(store.kind(), found)) : print(store.kind(), found);
  return exitDone;
}

int find(Store& store, const Words& words) {
  const Pattern pattern(words.pattern);
  return findWhere(store, words, [&](const NamedFields& record) {
    const auto& fields = record.all();
    return std::any_of(fields.begin(), fields.end(), [&](const auto& field) {
      return field.first != "CheckSum" && pattern.matches(field.second);
    });
  });
}

// By name or alias or port, each also with a protocol behind a slash.
int findService(Store& store, const Words& words) {
  const std::size_t slash = words.pattern.rfind('/');
  const std::string protocol = slash == std::string::npos ? "" : words.pattern.substr(slash + 1);
  const std::string wanted = words.pattern.substr(0, slash);
  const bool isPort = wanted.find_first_not_of("0123456789") == std::string::npos;
  if (isPort && !endpointOf(words.pattern).wrong.empty()) {
    return reportUsage(endpointOf(words.pattern).wrong);
  }
  bool isProtocol = protocol.empty() || genreg::isProtocol(protocol);
  const Pattern name(wanted, Pattern::Whole);
  const std::string port = isPort ? std::to_string(std::stoul(wanted)) : "";
  Listing found;
  const int status = listWhere(store, words, found, [&](const NamedFields& record) {
    const bool isOfProtocol = protocol.empty() || record.text("Protocol") == protocol;
    isProtocol = isProtocol || isOfProtocol;
    if (!isOfProtocol) return false;
    return isPort ? record.text("Port") == port
                  : name.matches(record.text("Name")) || name.matchesWord(record.text("Aliases"));
  });
  if (status != exitDone || !found.empty()) return status;
  if (!isProtocol) {
    return reportUsage("'" + printable(protocol) + "' is no protocol of any line of " +
                       printable(store.file()));
  }
  return store.outcome(GENREG_RC_NOT_FOUND, wanted);
}

// In an update, what the conditions ask for is still so when the record is set.
int setRecord(Store& store, const Words& words, NamedFields record) {
  const Kind kind = store.kind();
  const bool isProfile = kind == Kind::Var;
  if (const int status = refuseOdd(store, record.text("Variable")); status != exitDone) {
    return status;
  }
  if (isProfile || words.ifAbsent || words.ifPresent || words.ifValue) {
    NamedFields found;
    const unsigned int code = store.registry().get(identityOf(kind, record), found);
    if (code != 0 && !isMissing(code)) return store.outcome(code);
    const bool isThere = code == 0;
    const int status = checkCondition(store, words, isThere ? &found : nullptr);
    if (status != exitDone) return status;
    if (isProfile) {
      const std::string& old = found.text("Value");
      const std::string value = record.text("Value");
      const bool isBare = !isQuoted(value);
      const bool takesQuotes = (isThere && isQuoted(old)) || store.quotes(value, isThere);
      if (isBare && takesQuotes) record.set("Value", inQuotes(value, old));
    }
  }
  return store.outcome(store.registry().set(record));
}

int set(Store& store, const Words& words) {
  const Parsed record = recordOf(store.kind(), words);
  if (!record.wrong.empty()) return reportUsage(record.wrong);
  const bool isPlain =
      store.kind() != Kind::Var && !words.ifAbsent && !words.ifPresent && !words.ifValue;
  if (isPlain) return store.outcome(store.registry().set(record.fields));
  return store.update([&] { return setRecord(store, words, record.fields); });
}

int add(Store& store, const Words& words) {
  const Parsed record = recordOf(store.kind(), words);
  if (!record.wrong.empty()) return reportUsage(record.wrong);
  return store.outcome(store.registry().add(record.fields));
}

int change(Store& store, const Words& words) {
  Parsed key = recordOf(store.kind(), words);
  if (!key.wrong.empty()) return reportUsage(key.wrong);
  Parsed changes = key;
  if (store.kind() == Kind::Global) {
    changes = globalFields(words.type, words.newFields, true);
    if (!changes.wrong.empty()) return reportUsage(changes.wrong);
  } else {
    key.fields = identityOf(store.kind(), key.fields);
  }
  return store.outcome(store.registry().change(key.fields, changes.fields), words.name);
}

int remove(Store& store, const Words& words) {
  const Parsed key = keyOf(store.kind(), words);
  if (!key.wrong.empty()) return reportUsage(key.wrong);
  if (const int status = refuseOdd(store, words.name); status != exitDone) return status;
  return store.outcome(store.registry().remove(key.fields), words.name);
}

namespace {

// The flavour itself, for what fields do not say.
template <typename Flavour, typename Record>
class Handle : public Flavour {
 public:
  Handle(const Store& store, const Words& words) : Flavour(store.file().c_str(), &code_) {
    if (code_ == 0 && words.bigEndian) (void)this->setFeature(GENREG_BIG_ENDIAN_LENGTH);
    std::uint64_t milliseconds = 0;
    if (readWait(words, milliseconds).empty()) (void)this->setLockTimeout(milliseconds);
  }

  unsigned int dump() {
    unsigned int code = code_ != 0 ? code_ : this->OpenScan();
    if (code != 0) return code;
    Record key{};
    Record record;
    while ((code = this->GetNext(0, &key, &record)) == 0) {
      (void)this->GenRegBase::PrintRecord(&record);
    }
    (void)this->CloseScan();
    return code == GENREG_RC_END ? 0 : code;
  }
  unsigned int repair(bool dropUnreadable, GenRegRepairReport& report) {
    return code_ != 0 ? code_ : this->RepairRegistry(dropUnreadable, &report);
  }

 private:
  unsigned int code_ = 0;
};

// Runs `work`(handle), which gives a code, on the flavour of the store's kind; gives the exit
// status.
template <typename Work>
int onHandle(Store& store, const Words& words, Work work) {
  const auto run = [&](auto&& handle) {
    const unsigned int code = work(handle);
    return code == 0 ? int{exitDone} : reportCode(code, store.file(), handle.getLastCause());
  };
  switch (store.kind()) {
    case Kind::Bin:
      return run(Handle<GenRegBinVarVal, BinVarValRecord>(store, words));
    case Kind::Global:
      return run(Handle<GlobalReg, GlobalRegRecord>(store, words));
    case Kind::Var:
      return run(Handle<GenRegVarVal, VarValRecord>(store, words));
    default:
      return run(Handle<GenRegServices, ServiceEntryRecord>(store, words));
  }
}

}  // namespace

int dump(Store& store, const Words& words) {
  return onHandle(store, words, [](auto& handle) { return handle.dump(); });
}

namespace {

// Where the bytes are that a repair left out. None when the two files are not the repair's any
// more: the next update may have come.
std::vector<Gap> gapsBehind(Kind kind, const Words& words, const GenRegRepairReport& report,
                            const std::string& original) {
  std::string before;
  std::string after;
  if (report.bytesLeftOut == 0 || !readContent(original, std::string::npos, before) ||
      !readContent(words.file, std::string::npos, after)) {
    return {};
  }
  const std::vector<Gap> gaps = gapsOf(kind, words.bigEndian, before, after);
  std::uint64_t leftOut = 0;
  for (const Gap& gap : gaps) leftOut += gap.length;
  const bool fits = leftOut == report.bytesLeftOut && gaps.front().offset == report.firstDamage;
  return fits ? gaps : std::vector<Gap>();
}

bool holdsUnreadable(Store& store) {
  faces::NamedFields record;
  unsigned int code = store.registry().scan();
  while (code == 0) code = store.registry().next(record);
  (void)store.registry().endScan();
  return code == GENREG_RC_UNPACK_FAILED;
}

}  // namespace

int repair(Kind kind, const Words& words) {
  Store store(kind, words);
  if (store.status() != exitDone) return store.status();
  GenRegRepairReport report{};
  const Progress progress("repairing " + store.file());
  const int status = onHandle(
      store, words, [&](auto& handle) { return handle.repair(words.dropUnreadable, report); });
  if (status != exitDone) return status;
  const std::string original = RegistryFiles(words.file).corrupt;
  printRepair(words.file, original, report, gapsBehind(kind, words, report, original), words.json);
  if (!words.dropUnreadable && !words.json && holdsUnreadable(store)) {
    std::printf("it holds records that cannot be read: --drop-unreadable leaves them out\n");
  }
  return reportChange(words, report.bytesLeftOut != 0);
}

}  // namespace tool
