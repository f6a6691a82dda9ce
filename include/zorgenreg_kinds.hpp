// The kinds of registry behind zorgenreg_registries.hpp, and how their records become those of the
// flavours and back. Nothing here is for callers.
//
// A kind's records are checked and filled into a cleared record of its flavour; what the flavour
// has read becomes a record again:
//
//   BinVarValRecord native{};
//   NoMemory memory;
//   Complaint complaint;
//   VariablesKind::fill({"Timeout", 30}, native, memory, complaint);
//   if (complaint.code == 0) use(VariablesKind::read(native));
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

#include "genreg.h"
#include "zorgenreg_records.hpp"
#include "zorgenreg_rules.hpp"

namespace zor::detail {

inline const char* commentOf(const VarValRecord& record) noexcept { return record.Comment; }
inline const char* commentOf(const ServiceEntryRecord& record) noexcept { return record.comment; }

// A comment without the blank between it and its "#".
inline std::optional<std::string> bareComment(const char* comment) {
  if (comment == nullptr) return {};
  return std::string(*comment == ' ' ? comment + 1 : comment);
}

inline bool sameComment(const char* stored, const char* given) noexcept {
  if (stored == nullptr || given == nullptr) return stored == given;
  return std::strcmp(*stored == ' ' ? stored + 1 : stored, given) == 0;
}

// Copies a text, as far as it fits, into a cleared field.
inline void put(const std::string& text, char* field, std::size_t size) {
  (void)text.copy(field, size);
}

// A kind of registry:
//   Flavour, Record, Native; identity, and other masks of keys; isUnique: the flavour refuses a
//   second record of an identity fill(record, native, memory, complaint)  native is cleared;
//   `memory` lasts as long as it read(native), isEntry(native) sameRest(stored, given)  what the
//   flavour leaves out when it compares whole records

struct NoMemory {};

struct VariablesKind {
  using Flavour = GenRegBinVarVal;
  using Record = Variable;
  using Native = BinVarValRecord;
  using Memory = NoMemory;
  static constexpr std::uint64_t identity = BINVARVAL_IDENTITY;
  static constexpr bool isText = false;
  static constexpr bool isUnique = false;

  static void fillKey(const std::string& name, Native& native, Complaint& complaint) {
    checkVariable(name, true, complaint);
    put(name, native.Variable, sizeof native.Variable);
  }
  static void fill(const Record& record, Native& native, Memory&, Complaint& complaint) {
    check(record, complaint);
    put(record.name, native.Variable, sizeof native.Variable);
    native.Value = record.value;
    put(record.comment, native.Comment, sizeof native.Comment);
  }
  static Record read(const Native& native) {
    return {textIn(native.Variable, sizeof native.Variable), native.Value,
            textIn(native.Comment, sizeof native.Comment)};
  }
  static bool isEntry(const Native&) noexcept { return true; }
  static bool sameRest(const Native& stored, const Native& given) noexcept {
    return std::strncmp(stored.Comment, given.Comment, sizeof stored.Comment) == 0;
  }
};

struct ProfileKind {
  using Flavour = GenRegVarVal;
  using Record = Assignment;
  using Native = VarValRecord;
  using Memory = NoMemory;
  static constexpr std::uint64_t identity = VARVAL_IDENTITY;
  static constexpr bool isText = true;
  static constexpr bool isUnique = false;

  static void fillKey(const std::string& name, Native& native, Complaint& complaint) {
    checkAssignment(name, complaint);
    native.Contains = VARVAL_HAS_VARIABLE;
    native.Variable = name.c_str();
  }
  static void fill(const Record& record, Native& native, Memory&, Complaint& complaint) {
    check(record, complaint);
    fillKey(record.name, native, complaint);
    native.Value = record.value.c_str();
    if (!record.comment) return;
    native.Contains |= VARVAL_HAS_COMMENT;
    native.Comment = record.comment->c_str();
  }
  static Record read(const Native& native) {
    return {native.Variable, native.Value, bareComment(native.Comment)};
  }
  static bool isEntry(const Native& native) noexcept {
    return (native.Contains & VARVAL_HAS_VARIABLE) != 0;
  }
  static bool sameRest(const Native& stored, const Native& given) noexcept {
    return sameComment(stored.Comment, given.Comment);
  }
};

struct ServicesKind {
  using Flavour = GenRegServices;
  using Record = Service;
  using Native = ServiceEntryRecord;
  using Memory = std::vector<const char*>;
  static constexpr std::uint64_t identity = SERVICES_IDENTITY;
  static constexpr std::uint64_t byName = SERVICES_NAME;
  static constexpr std::uint64_t byPort = SERVICES_PORT | SERVICES_PROTOCOL;
  static constexpr bool isText = true;
  static constexpr bool isUnique = true;

  // Network order has the high byte first.
  static std::uint16_t networkOrder(std::uint16_t host) noexcept {
    const unsigned char bytes[] = {static_cast<unsigned char>(host >> 8),
                                   static_cast<unsigned char>(host)};
    std::uint16_t network = 0;
    std::memcpy(&network, bytes, sizeof network);
    return network;
  }
  static std::uint16_t hostOrder(std::uint16_t network) noexcept { return networkOrder(network); }

  static void fillName(const std::string& name, Native& native, Complaint& complaint) {
    checkName(name, complaint);
    native.Contains = SERVICES_HAS_SERVICE;
    native.name = name.c_str();
  }
  static void fillPort(std::uint16_t port, Native& native, Complaint& complaint) {
    checkPort(port, complaint);
    native.Contains = SERVICES_HAS_SERVICE;
    native.port = networkOrder(port);
  }
  static void fillProtocol(const std::string& protocol, Native& native, Complaint& complaint) {
    checkProtocol(protocol, complaint);
    native.protocol = protocol.c_str();
  }
  static void fill(const Record& record, Native& native, Memory& aliases, Complaint& complaint) {
    check(record, complaint);
    fillName(record.name, native, complaint);
    fillPort(record.port, native, complaint);
    fillProtocol(record.protocol, native, complaint);
    for (const std::string& alias : record.aliases) aliases.push_back(alias.c_str());
    if (!aliases.empty()) {
      aliases.push_back(nullptr);
      native.aliases = aliases.data();
    }
    if (!record.comment) return;
    native.Contains |= SERVICES_HAS_COMMENT;
    native.comment = record.comment->c_str();
  }
  static Record read(const Native& native) {
    Record record{native.name, hostOrder(native.port),
                  native.protocol == nullptr ? "" : native.protocol};
    for (const char** alias = native.aliases; alias != nullptr && *alias != nullptr; ++alias) {
      record.aliases.emplace_back(*alias);
    }
    record.comment = bareComment(native.comment);
    return record;
  }
  static bool isEntry(const Native& native) noexcept {
    return (native.Contains & SERVICES_HAS_SERVICE) != 0;
  }
  static bool sameRest(const Native& stored, const Native& given) noexcept {
    const char* none[] = {nullptr};
    const char** left = stored.aliases == nullptr ? none : stored.aliases;
    const char** right = given.aliases == nullptr ? none : given.aliases;
    while (*left != nullptr && *right != nullptr && std::strcmp(*left, *right) == 0) {
      ++left;
      ++right;
    }
    return *left == *right && sameComment(stored.comment, given.comment);
  }
};

// A field as the classes store it: a truth value is a number of four bytes.
template <typename Value>
using Stored = std::conditional_t<std::is_same_v<Value, bool>, std::uint32_t, Value>;

// The global registry's own path now; empty when there is none.
inline std::string ownGlobalPath() {
  struct Named : GlobalReg {
    using GlobalReg::getRegFilePath;
  };
  char path[GENREG_PATH_SIZE] = "";
  (void)Named().getRegFilePath(path, sizeof path);
  return path;
}

struct GlobalKind {
  using Flavour = GlobalReg;
  using Record = GlobalRecord;
  using Native = GlobalRegRecord;
  using Memory = NoMemory;
  static constexpr bool isText = false;
  static constexpr bool isUnique = true;
  template <typename Type>
  static std::uint64_t identityOf() noexcept {
    return globalRegFindType(globalType<Type>)->identity;
  }

  template <typename Fields>
  static void fillFields(const Fields& fields, Native& native, Complaint& complaint) {
    const GlobalRegType& type = *globalRegFindType(globalType<Fields>);
    native.RecordType = type.type;
    native.CheckSum = fields.checkSum;
    check(fields, complaint);
    walk(fields, [&](const GlobalRegField& row, const auto& value) {
      if (!value) return;
      using Value = std::decay_t<decltype(*value)>;
      char* memory = reinterpret_cast<char*>(&native) + row.offset;
      native.FieldMask |= row.bit;
      if constexpr (std::is_same_v<Value, std::string>) {
        put(*value, memory, row.width);
      } else {
        const Stored<Value> number = *value;
        std::memcpy(memory, &number, sizeof number);
      }
    });
  }
  static void fill(const Record& record, Native& native, Memory&, Complaint& complaint) {
    std::visit([&](const auto& fields) { fillFields(fields, native, complaint); }, record);
  }
  template <typename Fields>
  static Fields readFields(const Native& native) {
    Fields fields{};
    fields.checkSum = native.CheckSum;
    walk(fields, [&](const GlobalRegField& row, auto& value) {
      if ((native.FieldMask & row.bit) == 0) return;
      using Value = std::decay_t<decltype(*value)>;
      const char* memory = reinterpret_cast<const char*>(&native) + row.offset;
      if constexpr (std::is_same_v<Value, std::string>) {
        value = textIn(memory, row.width);
      } else {
        Stored<Value> number = 0;
        std::memcpy(&number, memory, sizeof number);
        value = static_cast<Value>(number);
      }
    });
    return fields;
  }
  static Record read(const Native& native) {
    if (native.RecordType == GLOBALREG_RECORD_INSTANCE) return readFields<GlobalInstance>(native);
    if (native.RecordType == GLOBALREG_RECORD_SERVICES) return readFields<GlobalServices>(native);
    return readFields<GlobalVariable>(native);
  }
  static bool isEntry(const Native&) noexcept { return true; }
  // A number that is absent is not 0.
  static bool sameRest(const Native& stored, const Native& given) noexcept {
    const std::uint64_t known = globalRegFindType(given.RecordType)->knownMask;
    return ((stored.FieldMask ^ given.FieldMask) & known) == 0 && stored.CheckSum == given.CheckSum;
  }
};

template <typename Kind>
std::uint64_t identityOf(const typename Kind::Native& native) noexcept {
  if constexpr (std::is_same_v<Kind, GlobalKind>) {
    return globalRegFindType(native.RecordType)->identity;
  } else {
    (void)native;
    return Kind::identity;
  }
}

}  // namespace zor::detail
