// The kinds of registry behind zorgenreg_registries.hpp, and how their records become those of the
// flavours and back. Nothing here is for callers.
//
// A kind's records are filled into a cleared record of its flavour, and what they cannot hold is
// complained of; what the flavour has read becomes a record again:
//
//   BinVarValRecord native{};
//   NoMemory memory;
//   Complaint complaint;
//   VariablesKind::fill({"Timeout", 30}, native, memory, complaint);
//   if (complaint.code == 0) use(VariablesKind::read(native));
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <variant>
#include <vector>

#include "genreg.h"
#include "zorgenreg_records.hpp"

namespace zor::detail {

// Why a record cannot be stored; the first complaint stays.
struct Complaint {
  unsigned int code = 0;
  std::string words{};

  // Whether no stored text is like that, so that a key of it finds nothing.
  bool isOfBytes() const noexcept {
    return code == GENREG_RC_BAD_ARGUMENT || code == OSS_RC_BUFFER_TOO_SMALL;
  }
  void add(unsigned int found, const std::string& text) {
    if (code == 0) *this = {found, text};
  }
  void checkText(const char* name, const std::string& text, const char* barred = "") {
    const bool isOdd =
        text.find('\0') != std::string::npos || text.find_first_of(barred) != std::string::npos;
    if (isOdd) add(GENREG_RC_BAD_ARGUMENT, std::string(name) + " holds a byte that it may not");
  }
  void checkName(const char* name, const std::string& text, const char* barred = "") {
    if (text.empty()) add(GENREG_RC_NO_ARGUMENT, std::string(name) + " is empty");
    checkText(name, text, barred);
  }
  // Copies a text into a cleared field of `size` bytes.
  void put(const char* name, const std::string& text, char* field, std::size_t size) {
    checkText(name, text);
    if (text.size() >= size) {
      add(OSS_RC_BUFFER_TOO_SMALL,
          std::string(name) + " has at most " + std::to_string(size - 1) + " bytes");
    }
    if (code == 0) (void)text.copy(field, size - 1);
  }
};

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

// A kind of registry:
//   Flavour, Record, Native; identity; isUnique: the flavour refuses a second record of an identity
//   fill(record, native, memory, complaint)  native is cleared; `memory` lasts as long as it
//   read(native), isEntry(native)
//   sameRest(stored, given)  what the flavour leaves out when it compares whole records

struct NoMemory {};

struct VariablesKind {
  using Flavour = GenRegBinVarVal;
  using Record = Variable;
  using Native = BinVarValRecord;
  using Memory = NoMemory;
  static constexpr std::uint64_t identity = BINVARVAL_IDENTITY;
  static constexpr bool isText = false;
  static constexpr bool isUnique = false;

  static void fillName(const std::string& name, std::size_t size, Native& native,
                       Complaint& complaint) {
    complaint.checkName("Variable", name);
    complaint.put("Variable", name, native.Variable, size);
  }
  // Another program may have filled the field without a terminator.
  static void fillKey(const std::string& name, Native& native, Complaint& complaint) {
    fillName(name, sizeof native.Variable + 1, native, complaint);
  }
  static void fill(const Record& record, Native& native, Memory&, Complaint& complaint) {
    fillName(record.name, sizeof native.Variable, native, complaint);
    native.Value = record.value;
    complaint.put("Comment", record.comment, native.Comment, sizeof native.Comment);
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
    complaint.checkName("Variable", name, "\r\n");
    native.Contains = VARVAL_HAS_VARIABLE;
    native.Variable = name.c_str();
  }
  static void fill(const Record& record, Native& native, Memory&, Complaint& complaint) {
    fillKey(record.name, native, complaint);
    complaint.checkText("Value", record.value, "\r\n");
    native.Value = record.value.c_str();
    if (!record.comment) return;
    complaint.checkText("Comment", *record.comment, "\r\n");
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
  static constexpr bool isText = true;
  static constexpr bool isUnique = true;
  static constexpr const char* noWord = " \t\r\n#";

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
    complaint.checkName("Name", name, noWord);
    native.Contains = SERVICES_HAS_SERVICE;
    native.name = name.c_str();
  }
  static void fillPort(std::uint16_t port, Native& native, Complaint& complaint) {
    if (port == 0) complaint.add(GENREG_RC_SERVICES_PACK_NO_PORT, "Port is 0");
    native.Contains = SERVICES_HAS_SERVICE;
    native.port = networkOrder(port);
  }
  static void fillProtocol(const std::string& protocol, Native& native, Complaint& complaint) {
    complaint.checkName("Protocol", protocol, noWord);
    native.protocol = protocol.c_str();
  }
  static void fill(const Record& record, Native& native, Memory& aliases, Complaint& complaint) {
    fillName(record.name, native, complaint);
    fillPort(record.port, native, complaint);
    fillProtocol(record.protocol, native, complaint);
    const char* const known[] = {"tcp", "udp", "ddp", "divert"};
    if (std::find(std::begin(known), std::end(known), record.protocol) == std::end(known)) {
      complaint.add(GENREG_RC_SERVICES_BAD_PROTOCOL, "Protocol is not tcp, udp, ddp or divert");
    }
    for (const std::string& alias : record.aliases) {
      complaint.checkName("Aliases", alias, noWord);
      aliases.push_back(alias.c_str());
    }
    if (aliases.size() >= SERVICES_ALIAS_SLOTS) {
      complaint.add(OSS_RC_BUFFER_TOO_SMALL, "Aliases has at most 127 words");
    }
    if (!aliases.empty()) {
      aliases.push_back(nullptr);
      native.aliases = aliases.data();
    }
    if (!record.comment) return;
    complaint.checkText("Comment", *record.comment, "\r\n");
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

template <typename Record>
constexpr std::uint32_t globalType = std::is_same_v<Record, GlobalInstance>
                                         ? GLOBALREG_RECORD_INSTANCE
                                         : (std::is_same_v<Record, GlobalServices>
                                                ? GLOBALREG_RECORD_SERVICES
                                                : GLOBALREG_RECORD_VARIABLE);

// Hands the fields of a global record to `take`, in the order of its table in genreg_global.h.
template <typename Record, typename Take>
void walk(Record& record, const Take& take) {
  const auto each = [&](auto&... fields) { (take(fields), ...); };
  std::apply(each, fieldsOf(record));
}

// A field as the classes store it: a truth value is a number of four bytes.
template <typename Value>
using Stored = std::conditional_t<std::is_same_v<Value, bool>, std::uint32_t, Value>;

// The global registry, which also knows its own path.
class GlobalAt : public GlobalReg {
 public:
  GlobalAt(const char* path, unsigned int* rc) noexcept : GlobalReg(path, rc) {}
  // The global registry's own path now; empty when there is none.
  static std::string ownPath() {
    struct Named : GlobalReg {
      using GlobalReg::getRegFilePath;
    };
    char path[GENREG_PATH_SIZE] = "";
    (void)Named().getRegFilePath(path, sizeof path);
    return path;
  }
};

struct GlobalKind {
  using Flavour = GlobalAt;
  using Record = GlobalRecord;
  using Native = GlobalRegRecord;
  using Memory = NoMemory;
  static constexpr bool isText = false;
  static constexpr bool isUnique = true;

  template <typename Fields>
  static void fillFields(const Fields& fields, Native& native, Complaint& complaint) {
    const GlobalRegType& type = *globalRegFindType(globalType<Fields>);
    native.RecordType = type.type;
    native.CheckSum = fields.checkSum;
    const GlobalRegField* field = type.fields;
    const auto take = [&](const auto& value) {
      const GlobalRegField& row = *field++;
      if (!value) return;
      using Value = std::decay_t<decltype(*value)>;
      char* memory = reinterpret_cast<char*>(&native) + row.offset;
      native.FieldMask |= row.bit;
      if constexpr (std::is_same_v<Value, std::string>) {
        complaint.put(row.name, *value, memory, row.width);
      } else {
        const Stored<Value> number = *value;
        std::memcpy(memory, &number, sizeof number);
      }
    };
    walk(fields, take);
  }
  static void fill(const Record& record, Native& native, Memory&, Complaint& complaint) {
    std::visit([&](const auto& fields) { fillFields(fields, native, complaint); }, record);
  }
  template <typename Fields>
  static Fields readFields(const Native& native) {
    Fields fields{};
    fields.checkSum = native.CheckSum;
    const GlobalRegField* field = globalRegFindType(globalType<Fields>)->fields;
    const auto take = [&](auto& value) {
      const GlobalRegField& row = *field++;
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
    };
    walk(fields, take);
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
