// The kinds of registry behind zorgenreg_registries.hpp over zorreg.h: how their records become
// named fields and back. zorgenreg_kinds.hpp does that for the classes. Nothing here is for
// callers.
//
//   FieldRecord native;
//   NoMemory memory;
//   Complaint complaint;
//   VariablesKind::fill({"Timeout", 30}, native, memory, complaint);
//   if (complaint.code == 0) use(VariablesKind::read(native));
//
// A record that is stored names every field: an empty one is taken away. A key has those that are
// asked for.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <type_traits>
#include <variant>

#include "ossinstall.h"
#include "zorgenreg_records.hpp"
#include "zorgenreg_rules.hpp"
#include "zorreg.h"

namespace zor::detail {

// A record of the C interface.
class FieldRecord {
 public:
  FieldRecord() : record_(zorreg_record_new(), zorreg_record_free) {
    if (record_ == nullptr) throw std::bad_alloc();
  }
  zorreg_record* get() const noexcept { return record_.get(); }

  void set(const char* field, const std::string& value) {
    if (zorreg_record_set(get(), field, value.c_str()) != 0) throw std::bad_alloc();
  }
  const char* find(const char* field) const noexcept { return zorreg_record_get(get(), field); }
  std::string text(const char* field) const {
    const char* value = find(field);
    return value == nullptr ? "" : value;
  }
  std::optional<std::string> optionalText(const char* field) const {
    const char* value = find(field);
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
  }
  // 0 when there is none.
  template <typename Number>
  Number number(const char* field) const noexcept {
    Number value = 0;
    const char* text = find(field);
    if (text != nullptr) (void)std::from_chars(text, text + std::strlen(text), value);
    return value;
  }

 private:
  std::unique_ptr<zorreg_record, void (*)(zorreg_record*)> record_;
};

// A kind of registry:
//   name, Record, Native; mayRepeat: the C interface adds a second record of an identity
//   identity and the like: masks that the classes want; here a key says by itself what it asks for
//   fill(record, native, memory, complaint), read(native)
//   takeKey(native, key)  gives a key the fields that identify a record

struct NoMemory {};
constexpr std::uint64_t noMask = 0;

inline void copyField(const char* field, const FieldRecord& from, FieldRecord& to) {
  to.set(field, from.text(field));
}

struct VariablesKind {
  using Record = Variable;
  using Native = FieldRecord;
  using Memory = NoMemory;
  static constexpr const char* name = "bin,bytes,get-in-scan";
  static constexpr bool mayRepeat = true;
  static constexpr std::uint64_t identity = noMask;

  static void fillKey(const std::string& named, Native& native, Complaint& complaint) {
    checkVariable(named, true, complaint);
    native.set("Variable", named);
  }
  static void fill(const Record& record, Native& native, Memory&, Complaint& complaint) {
    check(record, complaint);
    native.set("Variable", record.name);
    native.set("Value", std::to_string(record.value));
    native.set("Comment", record.comment);
  }
  static Record read(const Native& native) {
    return {native.text("Variable"), native.number<std::int32_t>("Value"), native.text("Comment")};
  }
  static void takeKey(const Native& native, Native& key) { copyField("Variable", native, key); }
};

struct ProfileKind {
  using Record = Assignment;
  using Native = FieldRecord;
  using Memory = NoMemory;
  static constexpr const char* name = "var,bytes,get-in-scan";
  static constexpr bool mayRepeat = true;
  static constexpr std::uint64_t identity = noMask;

  static void fillKey(const std::string& named, Native& native, Complaint& complaint) {
    checkAssignment(named, complaint);
    native.set("Variable", named);
  }
  static void fill(const Record& record, Native& native, Memory&, Complaint& complaint) {
    check(record, complaint);
    native.set("Variable", record.name);
    native.set("Value", record.value);
    native.set("Comment", record.comment.value_or(""));
  }
  static Record read(const Native& native) {
    return {native.text("Variable"), native.text("Value"), native.optionalText("Comment")};
  }
  static void takeKey(const Native& native, Native& key) { copyField("Variable", native, key); }
};

struct ServicesKind {
  using Record = Service;
  using Native = FieldRecord;
  using Memory = NoMemory;
  static constexpr const char* name = "services,bytes,get-in-scan";
  static constexpr bool mayRepeat = false;
  static constexpr std::uint64_t identity = noMask;
  static constexpr std::uint64_t byName = noMask;
  static constexpr std::uint64_t byPort = noMask;

  static void fillName(const std::string& named, Native& native, Complaint& complaint) {
    checkName(named, complaint);
    native.set("Name", named);
  }
  static void fillPort(std::uint16_t port, Native& native, Complaint& complaint) {
    checkPort(port, complaint);
    native.set("Port", std::to_string(port));
  }
  static void fillProtocol(const std::string& protocol, Native& native, Complaint& complaint) {
    checkProtocol(protocol, complaint);
    native.set("Protocol", protocol);
  }
  static void fill(const Record& record, Native& native, Memory&, Complaint& complaint) {
    check(record, complaint);
    fillName(record.name, native, complaint);
    fillPort(record.port, native, complaint);
    fillProtocol(record.protocol, native, complaint);
    std::string aliases;
    for (const std::string& alias : record.aliases) aliases += (aliases.empty() ? "" : " ") + alias;
    native.set("Aliases", aliases);
    native.set("Comment", record.comment.value_or(""));
  }
  static Record read(const Native& native) {
    Record record{native.text("Name"), native.number<std::uint16_t>("Port"),
                  native.text("Protocol")};
    const std::string words = native.text("Aliases");
    for (std::size_t at = 0; at < words.size();) {
      const std::size_t end = (std::min)(words.find(' ', at), words.size());
      record.aliases.push_back(words.substr(at, end - at));
      at = end + 1;
    }
    record.comment = native.optionalText("Comment");
    return record;
  }
  static void takeKey(const Native& native, Native& key) {
    copyField("Name", native, key);
    copyField("Protocol", native, key);
  }
};

// The global registry's own path now; empty when there is none.
inline std::string ownGlobalPath() {
  zorreg* named = nullptr;
  if (zorreg_open("global", nullptr, &named) != 0) return {};
  const std::unique_ptr<zorreg, void (*)(zorreg*)> closing(named, zorreg_close);
  return zorreg_path(named);
}

inline bool isVersion(const GlobalRegField& row) {
  return std::strcmp(row.name, "VersionCode") == 0;
}

template <typename Value>
std::string globalText(const GlobalRegField& row, const Value& value) {
  if constexpr (std::is_same_v<Value, std::string>) {
    return value;
  } else {
    if (!isVersion(row)) return std::to_string(value);
    char text[24] = "";
    (void)ossVersionCodeToString(value, text, sizeof text);
    return text;
  }
}
template <typename Value>
void readGlobal(const GlobalRegField& row, const FieldRecord& native, std::optional<Value>& value) {
  const char* text = native.find(row.name);
  if (text == nullptr) return;
  if constexpr (std::is_same_v<Value, std::string>) {
    value = text;
  } else if constexpr (std::is_same_v<Value, bool>) {
    value = native.number<unsigned int>(row.name) != 0;
  } else {
    value = native.number<Value>(row.name);
    if constexpr (std::is_same_v<Value, std::uint64_t>) {
      if (isVersion(row)) (void)ossVersionStringToCode(text, &*value);
    }
  }
}

struct GlobalKind {
  using Record = GlobalRecord;
  using Native = FieldRecord;
  using Memory = NoMemory;
  static constexpr const char* name = "global,bytes,get-in-scan";
  static constexpr bool mayRepeat = false;
  template <typename Type>
  static std::uint64_t identityOf() noexcept {
    return noMask;
  }

  // The fields that there are, as a key takes them; an empty text is never stored.
  template <typename Fields>
  static void fillFields(const Fields& fields, Native& native, Complaint& complaint) {
    const GlobalRegType& type = *globalRegFindType(globalType<Fields>);
    check(fields, complaint);
    native.set("Type", type.name);
    walk(fields, [&](const GlobalRegField& row, const auto& value) {
      if (value) native.set(row.name, globalText(row, *value));
      const bool isEmpty = value && *native.find(row.name) == '\0';
      const bool isLacking = !value && (type.identity & row.bit) != 0;
      if (isEmpty || isLacking) {
        complaint.add(GENREG_RC_KEY_REJECTED, row.name + std::string(" is missing or empty"));
      }
    });
  }
  static void fill(const Record& record, Native& native, Memory&, Complaint& complaint) {
    const auto each = [&](const auto& fields) {
      fillFields(fields, native, complaint);
      native.set("CheckSum", std::to_string(fields.checkSum));
      walk(fields, [&](const GlobalRegField& row, const auto& value) {
        if (!value) native.set(row.name, "");
      });
    };
    std::visit(each, record);
  }
  template <typename Fields>
  static Fields readFields(const Native& native) {
    Fields fields{};
    fields.checkSum = native.number<std::int32_t>("CheckSum");
    walk(fields, [&](const GlobalRegField& row, auto& value) { readGlobal(row, native, value); });
    return fields;
  }
  static std::uint32_t typeOf(const Native& native) {
    const std::string named = native.text("Type");
    for (const GlobalRegType& type : globalRegTypes) {
      if (named == type.name) return type.type;
    }
    return 0;
  }
  static Record read(const Native& native) {
    const std::uint32_t type = typeOf(native);
    if (type == GLOBALREG_RECORD_INSTANCE) return readFields<GlobalInstance>(native);
    if (type == GLOBALREG_RECORD_SERVICES) return readFields<GlobalServices>(native);
    return readFields<GlobalVariable>(native);
  }
  static void takeKey(const Native& native, Native& key) {
    const GlobalRegType& type = *globalRegFindType(typeOf(native));
    copyField("Type", native, key);
    for (std::size_t i = 0; i < type.fieldCount; ++i) {
      const GlobalRegField& row = type.fields[i];
      if ((type.identity & row.bit) != 0) copyField(row.name, native, key);
    }
  }
};

}  // namespace zor::detail
