// The registries in C++'s own terms: texts are std::string, what may be absent is optional, a
// registry is a range, and what fails throws or is stored in a std::error_code. Header-only, above
// the classes of genreg.h and without a rule of its own.
//
//   zor::Variables settings("settings.reg");   // opens nothing yet
//   settings.set({"Timeout", 30, "seconds"});  // is so from now on, on the disk
//   if (auto found = settings.get("Timeout")) use(found->value);
//   for (const auto& setting : settings) use(setting.name);
//
//   zor::Update update(settings);  // many changes, one commit
//   const auto retries = settings.get("Retries");
//   settings.set({"Retries", retries ? retries->value + 1 : 1});
//   settings.remove("Timeout");
//   update.commit();  // without it nothing has happened
//
// The order of calls: make a registry (Variables, Profile, Services, Global) from a path; then call
// get, set, add, change, remove and loop over it as you like. The file is created by the first
// change; until then the registry is empty. An Update makes several calls one change, and what is
// read in between nobody else changes. While a loop over a registry runs, that registry can be read
// by get, but not changed (GENREG_RC_UPDATE_IN_SCAN, GENREG_RC_OPEN_FOR_OPERATION), and has no
// second loop (GENREG_RC_SCAN_OPEN).
//
// Each operation has two forms, as in std::filesystem. One throws zor::Error. The other takes a
// std::error_code last, clears it or stores what failed there, and returns the value of "nothing";
// registry.cause() has the words then. Either may throw std::bad_alloc. Codes are those of
// genreg_codes.h in zor::category(); they compare equal to std::errc where there is a like one:
// busy, no such file (also: no such record), exists, no memory, permission denied.
//
// A text is never cut short: one that does not fit (OSS_RC_BUFFER_TOO_SMALL), holds a NUL or, in a
// text registry, a line's end (GENREG_RC_BAD_ARGUMENT) fails, and so does port 0
// (GENREG_RC_SERVICES_PACK_NO_PORT) and an empty name (GENREG_RC_NO_ARGUMENT).
//
// A registry serves one thread at a time, on one side of a fork; registries of one file in several
// threads and processes take turns by its locks. It can be moved, also while an Update or a loop
// uses it; what was moved from fails with GENREG_RC_NOT_READY.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "genreg.h"
#include "ossinstall.h"
#include "sysservices/file_system.h"

namespace zor {

// --- errors ---

// The category of the codes of genreg_codes.h.
inline const std::error_category& category() noexcept {
  class Category : public std::error_category {
   public:
    const char* name() const noexcept override { return "zorgenreg"; }
    std::string message(int value) const override {
      const GenRegReturnCode* row = genRegFindReturnCode(static_cast<unsigned int>(value));
      return row == nullptr ? "unknown code" : row->meaning;
    }
    std::error_condition default_error_condition(int value) const noexcept override {
      switch (static_cast<unsigned int>(value)) {
        case GENREG_RC_BUSY:
        case OSS_RC_LOCK_BUSY:
          return std::errc::device_or_resource_busy;
        case GENREG_RC_NOT_FOUND:
        case GENREG_RC_NO_FILE:
        case GENREG_RC_KEY_NOT_FOUND:
        case OSS_RC_FILE_NOT_FOUND:
          return std::errc::no_such_file_or_directory;
        case GENREG_RC_DUPLICATE:
        case OSS_RC_FILE_EXISTS:
          return std::errc::file_exists;
        case GENREG_RC_BUFFER_ALLOC:
        case GENREG_RC_WORK_ALLOC:
        case GENREG_RC_PACK_ALLOC:
        case GENREG_RC_UNPACK_ALLOC:
        case OSS_RC_NO_MEMORY:
          return std::errc::not_enough_memory;
        case OSS_RC_ACCESS_DENIED:
          return std::errc::permission_denied;
        case GENREG_RC_PATH_TOO_LONG:
        case OSS_RC_NAME_TOO_LONG:
          return std::errc::filename_too_long;
        case OSS_RC_BUFFER_TOO_SMALL:
          return std::errc::value_too_large;
        case GENREG_RC_BAD_ARGUMENT:
        case GENREG_RC_NO_ARGUMENT:
        case GENREG_RC_KEY_REJECTED:
        case GENREG_RC_SERVICES_PACK_NO_PORT:
          return std::errc::invalid_argument;
        case OSS_RC_DISK_FULL:
          return std::errc::no_space_on_device;
        case OSS_RC_TOO_MANY_FILES:
          return std::errc::too_many_files_open;
        case OSS_RC_IO_ERROR:
          return std::errc::io_error;
        default:
          return {value, *this};
      }
    }
  };
  static const Category one;
  return one;
}

// A code of genreg_codes.h as an error_code; 0 is success.
inline std::error_code errorCode(unsigned int code) noexcept {
  if (code == 0) return {};
  return {static_cast<int>(code), category()};
}

// The code of genreg_codes.h in an error_code; 0 when it is of another category.
inline unsigned int codeOf(const std::error_code& error) noexcept {
  return error.category() == category() ? static_cast<unsigned int>(error.value()) : 0;
}

// What an operation throws.
class Error : public std::system_error {
 public:
  // A code with the registry's path, the cause in words, and whether the change is committed.
  Error(const std::error_code& code, std::string file, std::string cause, bool committed)
      : std::system_error(code) {
    std::string text = cause;
    if (text.empty()) text = file + (file.empty() ? "" : ": ") + code.message();
    details_ = std::make_shared<const Details>(
        Details{std::move(file), std::move(cause), std::move(text), committed});
  }

  // The cause, or the file and what the code means.
  const char* what() const noexcept override { return details_->text.c_str(); }
  // The registry's path as it was given; of copies() and instances() the entry that is not read.
  const std::string& file() const noexcept { return details_->file; }
  // What happened first, and why, in words, with the file's name; may be empty.
  const std::string& cause() const noexcept { return details_->cause; }
  // Whether the change is on the disk all the same: only something behind the commit failed.
  bool committed() const noexcept { return details_->committed; }

 private:
  struct Details {
    std::string file, cause, text;
    bool committed;
  };
  std::shared_ptr<const Details> details_;  // so that a copy cannot throw
};

// Where a registry is: text in the system's 8-bit encoding, as the classes take it; of a
// std::filesystem::path what its string() gives.
struct Path {
  // A path; null is the empty one.
  Path(const char* path) : text(path == nullptr ? "" : path) {}
  Path(std::string path) : text(std::move(path)) {}
  Path(const std::filesystem::path& path) : text(path.string()) {}
  std::string text;  // the path
};

// --- records ---

// A variable of a binary registry; its name is what identifies it.
struct Variable {
  std::string name;        // at most 15 bytes
  std::int32_t value = 0;  // any number
  std::string comment{};   // at most 15 bytes
};

// An assignment in a profile; its name is what identifies it.
struct Assignment {
  std::string name;                      // not empty
  std::string value{};                   // as it stands in the line, double quotes included
  std::optional<std::string> comment{};  // without the "#" and a blank behind it
};

// An entry of a services file; name and protocol are what identifies it.
struct Service {
  std::string name;        // not empty, without blanks
  std::uint16_t port = 0;  // host byte order; 0 in a line that is not understood
  std::string protocol{};  // "tcp", "udp", "ddp" or "divert"; empty in a line that has none
  std::vector<std::string> aliases{};    // in the line's order
  std::optional<std::string> comment{};  // without the "#" and a blank behind it
};

// Records of the global registry. A field without a value is absent; a text is not empty. Fields
// that this version does not know are not shown and survive every change. `checkSum` is carried.

// Identified by instanceName.
struct GlobalInstance {
  std::optional<std::string> service{};        // InstanceRecord::Service
  std::optional<std::uint64_t> versionCode{};  // InstanceRecord::VersionCode
  std::optional<std::string> instanceName{};   // InstanceRecord::InstanceName
  std::optional<std::string> instancePath{};   // InstanceRecord::InstancePath
  std::optional<std::string> usage{};          // InstanceRecord::Usage
  std::optional<bool> startAtBoot{};           // InstanceRecord::StartAtBoot
  std::optional<bool> maintenance{};           // InstanceRecord::Maintenance
  std::optional<std::string> installPath{};    // InstanceRecord::InstallPath
  std::optional<std::string> hostName{};       // InstanceRecord::HostName
  std::optional<std::string> comment{};        // InstanceRecord::Comment
  std::int32_t checkSum = 0;                   // carried unchanged
};

// Identified by service.
struct GlobalServices {
  std::optional<std::string> service{};        // ServicesRecord::Service
  std::optional<std::uint64_t> versionCode{};  // ServicesRecord::VersionCode
  std::optional<std::string> installPath{};    // ServicesRecord::InstallPath
  std::optional<std::string> text2{};          // ServicesRecord::Text2
  std::optional<std::string> text3{};          // ServicesRecord::Text3
  std::optional<std::uint32_t> level{};        // ServicesRecord::Level
  std::optional<std::uint32_t> number1{};      // ServicesRecord::Number1
  std::optional<std::uint8_t> byte1{};         // ServicesRecord::Byte1
  std::optional<std::uint32_t> number2{};      // ServicesRecord::Number2
  std::optional<std::uint32_t> number3{};      // ServicesRecord::Number3
  std::int32_t checkSum = 0;                   // carried unchanged
};

// Identified by service and variable.
struct GlobalVariable {
  std::optional<std::string> service{};   // VariableRecord::Service
  std::optional<std::string> variable{};  // VariableRecord::Variable
  std::optional<std::string> value{};     // VariableRecord::Value
  std::optional<std::string> comment{};   // VariableRecord::Comment
  std::int32_t checkSum = 0;              // carried unchanged
};

// A record of one of the three types.
using GlobalRecord = std::variant<GlobalInstance, GlobalServices, GlobalVariable>;

// The fields of a record in their order, for comparing and walking them; without checkSum.
template <typename Record>
auto fieldsOf(Record& r) {
  using Type = std::remove_const_t<Record>;
  if constexpr (std::is_same_v<Type, Variable> || std::is_same_v<Type, Assignment>) {
    return std::tie(r.name, r.value, r.comment);
  } else if constexpr (std::is_same_v<Type, Service>) {
    return std::tie(r.name, r.port, r.protocol, r.aliases, r.comment);
  } else if constexpr (std::is_same_v<Type, GlobalInstance>) {
    return std::tie(r.service, r.versionCode, r.instanceName, r.instancePath, r.usage,
                    r.startAtBoot, r.maintenance, r.installPath, r.hostName, r.comment);
  } else if constexpr (std::is_same_v<Type, GlobalServices>) {
    return std::tie(r.service, r.versionCode, r.installPath, r.text2, r.text3, r.level, r.number1,
                    r.byte1, r.number2, r.number3);
  } else {
    static_assert(std::is_same_v<Type, GlobalVariable>, "of records only");
    return std::tie(r.service, r.variable, r.value, r.comment);
  }
}

// Whether a type is one of the global registry's records.
template <typename Type>
constexpr bool isGlobalRecord =
    std::is_same_v<Type, GlobalInstance> || std::is_same_v<Type, GlobalServices> ||
    std::is_same_v<Type, GlobalVariable>;
// Whether a type is a registry's record.
template <typename Type>
constexpr bool isRecord = std::is_same_v<Type, Variable> || std::is_same_v<Type, Assignment> ||
                          std::is_same_v<Type, Service> || isGlobalRecord<Type>;

// Two records are equal when all of both is.
template <typename Type, std::enable_if_t<isRecord<Type>, int> = 0>
bool operator==(const Type& left, const Type& right) {
  bool same = fieldsOf(left) == fieldsOf(right);
  if constexpr (isGlobalRecord<Type>) same = same && left.checkSum == right.checkSum;
  return same;
}
template <typename Type, std::enable_if_t<isRecord<Type>, int> = 0>
bool operator!=(const Type& left, const Type& right) {
  return !(left == right);
}

class Update;

namespace detail {

// A text of a field that need not hold a terminator.
inline std::string textIn(const char* field, std::size_t size) {
  const void* end = std::memchr(field, '\0', size);
  return {field,
          end == nullptr ? size : static_cast<std::size_t>(static_cast<const char*>(end) - field)};
}

// Why a record cannot be stored; the first complaint stays.
struct Complaint {
  unsigned int code = 0;
  std::string words{};

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

  static void fillKey(const std::string& name, Native& native, Complaint& complaint) {
    complaint.checkName("Variable", name);
    complaint.put("Variable", name, native.Variable, sizeof native.Variable);
  }
  static void fill(const Record& record, Native& native, Memory&, Complaint& complaint) {
    fillKey(record.name, native, complaint);
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

// What is known of a registry besides its records; registries, updates and loops share it.
struct Handle {
  explicit Handle(std::string path) : file(std::move(path)) {}
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  virtual ~Handle() = default;
  virtual GenRegFile& engine() noexcept = 0;

  // Keeps the words of what failed; gives the code.
  unsigned int note(unsigned int code, bool isUpdate) {
    if (code == 0) return code;
    cause = engine().getLastCause();
    isCommitted = isUpdate && engine().isUpdateCommitted();
    return code;
  }
  unsigned int note(const Complaint& complaint) {
    if (complaint.code == 0) return 0;
    cause = file + ": " + complaint.words;
    isCommitted = false;
    return complaint.code;
  }
  unsigned int begin(std::uint64_t request) {
    const unsigned int code = engine().BeginUpdate(request);
    if (code == 0) updating = true;
    return note(code, false);
  }
  unsigned int commit() {
    updating = false;
    return note(engine().CommitUpdate(), true);
  }
  unsigned int abandon() noexcept {
    updating = false;
    return engine().AbandonUpdate();
  }

  std::string file;
  std::string cause{};
  bool isCommitted = false;  // what failed last is
  bool updating = false;
};

// A mask bit of exact comparison beside those of the flavours: the record is not wholly the key.
constexpr std::uint64_t differing = std::uint64_t{1} << 62;

template <typename Kind>
class HandleOf : public Handle, private Kind::Flavour {
 public:
  using Native = typename Kind::Native;

  HandleOf(const std::string& path, unsigned int* code)
      : Handle(path), Kind::Flavour(path.c_str(), code) {
    if (*code != 0) return;
    (void)plainHooks(this);
    (void)this->setFeature(GENREG_GET_IN_SCAN);
    char name[GENREG_PATH_SIZE] = "";
    (void)this->getBackupFilePath(name, sizeof name);
    absolute_ = absoluteOf(path.c_str());
    backup_ = absoluteOf(name);
  }
  GenRegFile& engine() noexcept override { return *this; }

  // 0 when there is none: *isThere is false then.
  unsigned int get(std::uint64_t mask, Native& key, Native& found, bool* isThere) {
    unsigned int code = this->Get(mask, &key, &found);
    if (code == 0 && !isWhollyShown(found)) {
      const Exactly exactly(*this);
      code = this->Get(mask, &key, &found);
    }
    *isThere = code == 0;
    return isAbsence(code) ? 0 : note(code, false);
  }

  unsigned int add(Native& record) {
    const Single single(*this);
    return note(this->Add(identityOf<Kind>(record), &record), true);
  }

  // In an update of its own when there is none: the record of the identity becomes `wanted`, or is
  // added when it `mayBeNew`.
  unsigned int store(Native& wanted, bool mayBeNew, bool* changed) {
    *changed = false;
    if (updating) return storeNow(wanted, mayBeNew, changed);
    const std::uint64_t create = mayBeNew ? GENREG_LOCK_CREATE_DIR : 0;
    unsigned int code = begin(GENREG_LOCK_WAIT | create);
    if (code != 0) return mayBeNew || !isAbsence(code) ? code : GENREG_RC_NOT_FOUND;
    code = storeNow(wanted, mayBeNew, changed);
    if (code == 0) {
      code = commit();
    } else {
      (void)abandon();
    }
    *changed = *changed && code == 0;
    return code;
  }

  unsigned int remove(std::uint64_t mask, Native& key, bool* removed) {
    const unsigned int code = this->Delete(mask, &key);
    *removed = code == 0;
    return isAbsence(code) ? 0 : note(code, true);
  }

  // A scan of a text registry shows comments as they are.
  unsigned int openScan(bool* isEmpty) {
    *isEmpty = false;
    if (scans_) return note({GENREG_RC_SCAN_OPEN, "a loop over the registry runs"});
    if (Kind::isText) useHooks(true);
    const unsigned int code = this->OpenScan();
    scans_ = code == 0;
    if (!scans_ && Kind::isText) useHooks(false);
    *isEmpty = isAbsence(code);
    return *isEmpty ? 0 : note(code, false);
  }
  // GENREG_RC_END behind the last record.
  unsigned int next(Native& found) {
    Native key{};
    unsigned int code = 0;
    do {
      code = this->GetNext(0, &key, &found);
    } while (code == 0 && !Kind::isEntry(found));
    return code == GENREG_RC_END ? code : note(code, false);
  }
  unsigned int closeScan() noexcept {
    const unsigned int code = this->CloseScan();
    scans_ = false;
    if (Kind::isText) useHooks(false);
    return code;
  }

 private:
  struct Hooks {
    GenRegCompareHook compare;
    GenRegUnpackHook unpack;
  };

  // The flavour's own hooks, of the first handle that is made.
  static const Hooks& plainHooks(const HandleOf* made) {
    static const Hooks hooks{made->GenRegBase::CompareRecord, made->GenRegFile::UnpackRecord};
    return hooks;
  }

  void useHooks(bool exact) noexcept {
    const Hooks& plain = plainHooks(this);
    this->GenRegBase::CompareRecord = exact ? compare : plain.compare;
    if constexpr (Kind::isText) {
      this->GenRegFile::UnpackRecord = exact ? GenRegUnpackHook(unpack) : plain.unpack;
    }
  }

  // While it lives, two records that differ in anything are not equal.
  class Exactly {
   public:
    explicit Exactly(HandleOf& handle) noexcept
        : handle_(handle),
          before_{handle.GenRegBase::CompareRecord, handle.GenRegFile::UnpackRecord} {
      handle_.useHooks(true);
    }
    ~Exactly() {
      handle_.GenRegBase::CompareRecord = before_.compare;
      handle_.GenRegFile::UnpackRecord = before_.unpack;
    }
    Exactly(const Exactly&) = delete;
    Exactly& operator=(const Exactly&) = delete;

   private:
    HandleOf& handle_;
    const Hooks before_;
  };

  // While it lives, an operation refuses a second record of one identity.
  class Single {
   public:
    explicit Single(HandleOf& handle) noexcept
        : handle_(handle), before_(handle.isFeatureSet(GENREG_ALLOW_DUPLICATES)) {
      if (before_) (void)handle_.unsetFeature(GENREG_ALLOW_DUPLICATES);
    }
    ~Single() {
      if (before_) (void)handle_.setFeature(GENREG_ALLOW_DUPLICATES);
    }
    Single(const Single&) = delete;
    Single& operator=(const Single&) = delete;

   private:
    HandleOf& handle_;
    const bool before_;
  };

  static unsigned int compare(std::uint64_t mask, void* stored, void* given) {
    const bool wholly = mask == GENREG_ALL_FIELDS;
    const bool differs = !wholly && (mask & differing) != 0;
    const GenRegCompareHook plain = plainHooks(nullptr).compare;
    if (plain(wholly ? mask : mask & ~differing, stored, given) != 1) return 0;
    if (!wholly && !differs) return 1;
    return isSame(*static_cast<Native*>(stored), *static_cast<Native*>(given)) == differs ? 0 : 1;
  }

  static bool isSame(Native& stored, Native& given) {
    return plainHooks(nullptr).compare(GENREG_ALL_FIELDS, &stored, &given) == 1 &&
           Kind::sameRest(stored, given);
  }

  // The flavour shows every byte of a comment that no terminal shows as a "."; what is handed out
  // is what stands there. The texts have the same length.
  static unsigned int unpack(void* record, char* line) {
    const unsigned int code = plainHooks(nullptr).unpack.text(record, line);
    if constexpr (Kind::isText) {
      const char* comment = commentOf(*static_cast<const Native*>(record));
      const char* hash = std::strchr(line, '#');
      if (comment != nullptr && hash != nullptr) {
        std::memcpy(const_cast<char*>(comment), hash + 1, std::strlen(comment));
      }
    }
    return code;
  }
  // Whether the flavour itself has shown every byte of the comment.
  static bool isWhollyShown(const Native& record) noexcept {
    if constexpr (Kind::isText) {
      const char* comment = commentOf(record);
      return comment == nullptr || std::strchr(comment, '.') == nullptr;
    } else {
      (void)record;
      return true;
    }
  }

  // In an update. What the flavour itself can see to finds records by its index.
  unsigned int storeNow(Native& wanted, bool mayBeNew, bool* changed) {
    const std::uint64_t mask = identityOf<Kind>(wanted);
    Native found{};
    bool isThere = false;
    unsigned int code = get(mask, wanted, found, &isThere);
    if (code != 0) return code;
    if (!isThere) {
      if (!mayBeNew) return note({GENREG_RC_NOT_FOUND, "no record matches"});
      code = add(wanted);
      *changed = code == 0;
      return code;
    }
    if (Kind::isUnique && isSame(found, wanted)) return 0;
    if (plainHooks(this).compare(GENREG_ALL_FIELDS, &found, &wanted) != 1) {
      const Single single(*this);
      code = this->Change(mask, &wanted, &wanted);
      *changed = code == 0;
      if (Kind::isUnique || (code != GENREG_RC_UNCHANGED && code != GENREG_RC_AMBIGUOUS)) {
        return note(code, true);
      }
    }
    const Exactly exactly(*this);
    code = this->Change(mask | differing, &wanted, &wanted);
    *changed = code == 0;
    return code == GENREG_RC_NOT_FOUND ? 0 : note(code, true);
  }

  static std::string absoluteOf(const char* path) {
    char full[OSS_FULL_PATH_SIZE];
    return ossAbsolutePath(path, full, sizeof full) == 0 ? full : path;
  }
  // Nothing has this name: neither the library finds it, nor could the reason be another one.
  static bool isMissing(const std::string& path) {
    std::error_code error;
    return !ossPathExists(path.c_str()) && std::filesystem::symlink_status(path, error).type() ==
                                               std::filesystem::file_type::not_found;
  }
  // Whether an operation has failed for want of a record, or of a file.
  bool isAbsence(unsigned int code) const {
    if (code == GENREG_RC_NOT_FOUND || code == GENREG_RC_NO_FILE) return true;
    const bool mayBe = code == GENREG_RC_OPEN_FOR_OPERATION || code == GENREG_RC_OPEN_FAILED ||
                       code == GENREG_RC_LOCK_FAILED;
    return mayBe && isMissing(absolute_) && isMissing(backup_);
  }

  std::string absolute_;
  std::string backup_;
  bool scans_ = false;
};

[[noreturn]] inline void fail(const std::error_code& error, const Handle* handle) {
  if (handle == nullptr) throw Error(error, {}, {}, false);
  throw Error(error, handle->file, handle->cause, handle->isCommitted);
}

}  // namespace detail

// A loop over the records of a registry as it was when the loop began. It closes itself at its end
// or when it is left.
template <typename Kind>
class Scan {
  struct State;

 public:
  // An input iterator over the records.
  class iterator {
   public:
    // What std::iterator_traits asks for.
    using iterator_category = std::input_iterator_tag;
    using value_type = typename Kind::Record;
    using difference_type = std::ptrdiff_t;
    using pointer = const value_type*;
    using reference = const value_type&;

    iterator() = default;
    // The record; valid until the iterator moves on.
    reference operator*() const noexcept { return state_->record; }
    pointer operator->() const noexcept { return &state_->record; }
    // The next record; throws Error, or stores the error and ends the loop in scan(error).
    iterator& operator++() {
      if (!state_->next()) state_.reset();
      return *this;
    }
    void operator++(int) { ++*this; }
    friend bool operator==(const iterator& left, const iterator& right) noexcept {
      return left.state_ == right.state_;
    }
    friend bool operator!=(const iterator& left, const iterator& right) noexcept {
      return left.state_ != right.state_;
    }

   private:
    friend class Scan;
    std::shared_ptr<State> state_;
  };

  // The first record; a scan is walked once.
  iterator begin() {
    iterator first;
    first.state_ = std::move(state_);
    if (first.state_ != nullptr) ++first;
    return first;
  }
  iterator end() const noexcept { return {}; }

  // Use a registry's begin() or scan(error).
  Scan(std::shared_ptr<detail::HandleOf<Kind>> handle, std::error_code* error) {
    bool isEmpty = false;
    const unsigned int code = handle == nullptr ? GENREG_RC_NOT_READY : handle->openScan(&isEmpty);
    if (error != nullptr) *error = errorCode(code);
    if (code != 0 && error == nullptr) detail::fail(errorCode(code), handle.get());
    if (code == 0 && !isEmpty) state_ = std::make_shared<State>(std::move(handle), error);
  }

 private:
  struct State {
    State(std::shared_ptr<detail::HandleOf<Kind>> opened, std::error_code* stored) noexcept
        : handle(std::move(opened)), error(stored) {}
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() {
      if (isOpen) (void)handle->closeScan();
    }

    bool next() {
      unsigned int code = handle->next(native);
      if (code == 0) {
        record = Kind::read(native);
        return true;
      }
      isOpen = false;
      const unsigned int closed = handle->closeScan();
      if (code == GENREG_RC_END) code = handle->note(closed, false);
      if (error != nullptr) *error = errorCode(code);
      if (code != 0 && error == nullptr) detail::fail(errorCode(code), handle.get());
      return false;
    }

    std::shared_ptr<detail::HandleOf<Kind>> handle;
    std::error_code* error;
    bool isOpen = true;
    typename Kind::Native native{};
    typename Kind::Record record{};
  };

  std::shared_ptr<State> state_;
};

// --- registries ---

// What all registries have.
template <typename Kind>
class Registry {
 public:
  // The record of this kind of registry, and the iterator of its records.
  using Record = typename Kind::Record;
  using iterator = typename Scan<Kind>::iterator;

  // Makes `record` be there as it is: adds it, or changes what has its identity to it. Returns
  // whether that was a change; when it is so already nothing is written. Safe against other
  // writers.
  bool set(const Record& record) {
    return orThrow([&](std::error_code& error) { return set(record, error); });
  }
  bool set(const Record& record, std::error_code& error) { return store(record, true, error); }

  // Adds a record; one of its identity is an error (std::errc::file_exists).
  void add(const Record& record) {
    orThrow([&](std::error_code& error) { return add(record, error), 0; });
  }
  void add(const Record& record, std::error_code& error) {
    with(error, [&](Handle& handle) {
      Given given;
      const unsigned int code = given.fill(handle, record);
      return code != 0 ? code : handle.add(given.native);
    });
  }

  // As set, but a record of its identity must be there (std::errc::no_such_file_or_directory).
  bool change(const Record& record) {
    return orThrow([&](std::error_code& error) { return change(record, error); });
  }
  bool change(const Record& record, std::error_code& error) { return store(record, false, error); }

  // A registry is a range of its records; comment lines and blank lines are none. In a file that
  // does not exist there are none. May throw Error, as may the step to the next record.
  iterator begin() { return Scan<Kind>(handle_, nullptr).begin(); }
  iterator end() const noexcept { return {}; }
  // The same range, which ends at the first failure and stores it; `error` outlives the loop.
  Scan<Kind> scan(std::error_code& error) { return {handle_, &error}; }

  // Whether the content is kept in memory between reads: the answers are the same, many reads of a
  // file that nobody changes are faster. Of a Global nothing is kept.
  void cacheReads(bool on) noexcept {
    if (handle_ != nullptr) handle_->engine().setCachedReads(on);
  }

  // How long a change waits for another writer before it fails
  // (std::errc::device_or_resource_busy); 0, as made: for ever.
  void lockTimeout(std::chrono::milliseconds limit) noexcept {
    const auto count = static_cast<std::uint64_t>(limit.count() < 0 ? 0 : limit.count());
    if (handle_ != nullptr) (void)handle_->engine().setLockTimeout(count);
  }

  // The path as it was given.
  const std::string& file() const noexcept {
    static const std::string none;
    return handle_ == nullptr ? none : handle_->file;
  }
  // Of the last failure, as Error's members of that name.
  std::string cause() const { return handle_ == nullptr ? std::string() : handle_->cause; }
  bool committed() const noexcept { return handle_ != nullptr && handle_->isCommitted; }

 protected:
  // The handle and the record beneath.
  using Handle = detail::HandleOf<Kind>;
  using Native = typename Kind::Native;

  // Makes the handle; throws when `error` is null, else stores the outcome there.
  Registry(const Path& path, std::error_code* error) {
    unsigned int code = GENREG_RC_BAD_ARGUMENT;
    const bool isName = path.text.find('\0') == std::string::npos;
    if (isName) handle_ = std::make_shared<Handle>(path.text, &code);
    if (code != 0) handle_.reset();
    if (error != nullptr) *error = errorCode(code);
    if (code != 0 && error == nullptr) throw Error(errorCode(code), path.text, {}, false);
  }
  ~Registry() = default;
  // What was moved from fails with GENREG_RC_NOT_READY.
  Registry(Registry&&) noexcept = default;
  Registry& operator=(Registry&&) noexcept = default;

  // Throws what `work` stores.
  template <typename Work>
  auto orThrow(Work work) {
    std::error_code error;
    auto result = work(error);
    if (error) detail::fail(error, handle_.get());
    return result;
  }

  // The first record that matches the key of `fill`(native, complaint).
  template <typename Fill>
  std::optional<Record> find(std::uint64_t mask, Fill fill, std::error_code& error) {
    std::optional<Record> result;
    with(error, [&](Handle& handle) {
      Native key{};
      Native found{};
      bool isThere = false;
      unsigned int code = fillKey(handle, key, fill);
      if (code == 0) code = handle.get(mask, key, found, &isThere);
      if (code == 0 && isThere) result = Kind::read(found);
      return code;
    });
    return result;
  }

  // Removes the record that matches the key of `fill`(native, complaint); whether there was one.
  template <typename Fill>
  bool removeWhere(std::uint64_t mask, Fill fill, std::error_code& error) {
    bool removed = false;
    with(error, [&](Handle& handle) {
      Native key{};
      const unsigned int code = fillKey(handle, key, fill);
      return code != 0 ? code : handle.remove(mask, key, &removed);
    });
    return removed;
  }

 private:
  friend class Update;

  struct Given {
    Native native{};
    typename Kind::Memory memory{};
    unsigned int fill(Handle& handle, const Record& record) {
      detail::Complaint complaint;
      Kind::fill(record, native, memory, complaint);
      return handle.note(complaint);
    }
  };

  template <typename Fill>
  static unsigned int fillKey(Handle& handle, Native& key, Fill fill) {
    detail::Complaint complaint;
    fill(key, complaint);
    return handle.note(complaint);
  }

  template <typename Work>
  void with(std::error_code& error, Work work) {
    error = errorCode(handle_ == nullptr ? GENREG_RC_NOT_READY : work(*handle_));
  }

  bool store(const Record& record, bool mayBeNew, std::error_code& error) {
    bool changed = false;
    with(error, [&](Handle& handle) {
      Given given;
      const unsigned int code = given.fill(handle, record);
      return code != 0 ? code : handle.store(given.native, mayBeNew, &changed);
    });
    return changed;
  }

  std::shared_ptr<Handle> handle_;
};

// A registry of records that a name identifies. Files of other programs may hold a name twice: get
// finds the first, set and change make all of them so, remove takes all away.
template <typename Kind>
class Named : public Registry<Kind> {
 public:
  using typename Registry<Kind>::Record;

  // Opens nothing; the path is looked at. A relative one is resolved now.
  explicit Named(const Path& path) : Registry<Kind>(path, nullptr) {}
  Named(const Path& path, std::error_code& error) : Registry<Kind>(path, &error) {}

  // The record of that name, or nothing.
  std::optional<Record> get(const std::string& name) {
    return this->orThrow([&](std::error_code& error) { return get(name, error); });
  }
  std::optional<Record> get(const std::string& name, std::error_code& error) {
    return this->find(Kind::identity, keyOf(name), error);
  }

  // Removes the record of that name. Returns whether there was one.
  bool remove(const std::string& name) {
    return this->orThrow([&](std::error_code& error) { return remove(name, error); });
  }
  bool remove(const std::string& name, std::error_code& error) {
    return this->removeWhere(Kind::identity, keyOf(name), error);
  }

 private:
  static auto keyOf(const std::string& name) {
    return [&name](typename Kind::Native& key, detail::Complaint& complaint) {
      Kind::fillKey(name, key, complaint);
    };
  }
};

// A binary registry of variables: name, number, comment.
class Variables : public Named<detail::VariablesKind> {
 public:
  using Named::Named;
};

// A text registry of profile variables: lines of NAME = VALUE # comment. Other lines stay as they
// are.
class Profile : public Named<detail::ProfileKind> {
 public:
  using Named::Named;
};

// A text registry of network services: lines of NAME PORT/PROTOCOL ALIASES # comment. Other lines
// stay as they are.
class Services : public Registry<detail::ServicesKind> {
  using Kind = detail::ServicesKind;

  static auto keyOf(const std::string& name) {
    return [&name](Native& key, detail::Complaint& complaint) {
      Kind::fillName(name, key, complaint);
    };
  }
  static auto keyOf(const std::string& name, const std::string& protocol) {
    return [&](Native& key, detail::Complaint& complaint) {
      Kind::fillName(name, key, complaint);
      Kind::fillProtocol(protocol, key, complaint);
    };
  }
  static auto keyOf(std::uint16_t port, const std::string& protocol) {
    return [port, &protocol](Native& key, detail::Complaint& complaint) {
      Kind::fillPort(port, key, complaint);
      Kind::fillProtocol(protocol, key, complaint);
    };
  }

 public:
  // As Variables'.
  explicit Services(const Path& path) : Registry(path, nullptr) {}
  Services(const Path& path, std::error_code& error) : Registry(path, &error) {}

  // The first service of that name, whatever its protocol; an alias is not looked for.
  std::optional<Service> get(const std::string& name) {
    return orThrow([&](std::error_code& error) { return get(name, error); });
  }
  std::optional<Service> get(const std::string& name, std::error_code& error) {
    return find(SERVICES_NAME, keyOf(name), error);
  }
  // The service of that name and protocol.
  std::optional<Service> get(const std::string& name, const std::string& protocol) {
    return orThrow([&](std::error_code& error) { return get(name, protocol, error); });
  }
  std::optional<Service> get(const std::string& name, const std::string& protocol,
                             std::error_code& error) {
    return find(SERVICES_IDENTITY, keyOf(name, protocol), error);
  }
  // The first service of that port, in host byte order, and protocol.
  std::optional<Service> get(std::uint16_t port, const std::string& protocol) {
    return orThrow([&](std::error_code& error) { return get(port, protocol, error); });
  }
  std::optional<Service> get(std::uint16_t port, const std::string& protocol,
                             std::error_code& error) {
    return find(SERVICES_PORT | SERVICES_PROTOCOL, keyOf(port, protocol), error);
  }

  // Removes the service of that name and protocol, or of that port and protocol, of which there
  // must not be several (GENREG_RC_AMBIGUOUS). Returns whether there was one.
  bool remove(const std::string& name, const std::string& protocol) {
    return orThrow([&](std::error_code& error) { return remove(name, protocol, error); });
  }
  bool remove(const std::string& name, const std::string& protocol, std::error_code& error) {
    return removeWhere(SERVICES_IDENTITY, keyOf(name, protocol), error);
  }
  bool remove(std::uint16_t port, const std::string& protocol) {
    return orThrow([&](std::error_code& error) { return remove(port, protocol, error); });
  }
  bool remove(std::uint16_t port, const std::string& protocol, std::error_code& error) {
    return removeWhere(SERVICES_PORT | SERVICES_PROTOCOL, keyOf(port, protocol), error);
  }
};

// The global registry: records of three types. One of them is asked for by its type and what
// identifies it:
//
//   global.get<zor::GlobalInstance>("one");
//   global.get<zor::GlobalServices>("ZOR");
//   global.get<zor::GlobalVariable>("ZOR", "Trace");   // service, variable
class Global : public Registry<detail::GlobalKind> {
 public:
  // At the global registry's own path: that of ZOR_GLOBAL_REG_PATHNAME, else "global.reg".
  Global() : Global(Path(detail::GlobalAt::ownPath())) {}
  explicit Global(std::error_code& error) : Global(Path(detail::GlobalAt::ownPath()), error) {}
  // As Variables'.
  explicit Global(const Path& path) : Registry(path, nullptr) {}
  Global(const Path& path, std::error_code& error) : Registry(path, &error) {}

  // The record of that type and identity, or nothing.
  template <typename Type>
  std::optional<Type> get(const std::string& name) {
    return orThrow([&](std::error_code& error) { return get<Type>(name, error); });
  }
  template <typename Type>
  std::optional<Type> get(const std::string& name, std::error_code& error) {
    return only<Type>(keyOf<Type>(name), error);
  }
  template <typename Type>
  std::optional<Type> get(const std::string& service, const std::string& variable) {
    return orThrow([&](std::error_code& error) { return get<Type>(service, variable, error); });
  }
  template <typename Type>
  std::optional<Type> get(const std::string& service, const std::string& variable,
                          std::error_code& error) {
    return only<Type>(keyOf<Type>(service, variable), error);
  }

  // Removes the record of that type and identity. Returns whether there was one.
  template <typename Type>
  bool remove(const std::string& name) {
    return orThrow([&](std::error_code& error) { return remove<Type>(name, error); });
  }
  template <typename Type>
  bool remove(const std::string& name, std::error_code& error) {
    return removeKey(keyOf<Type>(name), error);
  }
  template <typename Type>
  bool remove(const std::string& service, const std::string& variable) {
    return orThrow([&](std::error_code& error) { return remove<Type>(service, variable, error); });
  }
  template <typename Type>
  bool remove(const std::string& service, const std::string& variable, std::error_code& error) {
    return removeKey(keyOf<Type>(service, variable), error);
  }

 private:
  template <typename Type>
  static Type keyOf(const std::string& name) {
    static_assert(!std::is_same_v<Type, GlobalVariable>, "a variable has a service and a name");
    Type key{};
    if constexpr (std::is_same_v<Type, GlobalInstance>) {
      key.instanceName = name;
    } else {
      key.service = name;
    }
    return key;
  }
  template <typename Type>
  static Type keyOf(const std::string& service, const std::string& variable) {
    static_assert(std::is_same_v<Type, GlobalVariable>, "one name identifies such a record");
    Type key{};
    key.service = service;
    key.variable = variable;
    return key;
  }
  template <typename Type>
  static auto filling(const Type& fields) {
    return [&fields](Native& key, detail::Complaint& complaint) {
      detail::GlobalKind::fillFields(fields, key, complaint);
    };
  }
  template <typename Type>
  static std::uint64_t identity() {
    return globalRegFindType(detail::globalType<Type>)->identity;
  }
  template <typename Type>
  std::optional<Type> only(const Type& key, std::error_code& error) {
    const std::optional<GlobalRecord> found = find(identity<Type>(), filling(key), error);
    if (!found) return {};
    return std::get<Type>(*found);
  }
  template <typename Type>
  bool removeKey(const Type& key, std::error_code& error) {
    return removeWhere(identity<Type>(), filling(key), error);
  }
};

// --- many changes, one commit ---

// From its making to commit() or its end, what is done with the registry is one change, which
// nobody else sees before. Whoever else wants to change the registry waits meanwhile. Without a
// commit() nothing has happened. It fails while a loop over the registry runs
// (GENREG_RC_UPDATE_IN_SCAN), and in another Update of it (GENREG_RC_UPDATE_OPEN).
class Update {
 public:
  // Begins the update; throws, or stores what failed, when it cannot.
  template <typename Kind>
  explicit Update(Registry<Kind>& registry) : handle_(registry.handle_) {
    const std::error_code error = begin();
    if (error) detail::fail(error, registry.handle_.get());
  }
  // As above, without a throw.
  template <typename Kind>
  Update(Registry<Kind>& registry, std::error_code& error) : handle_(registry.handle_) {
    error = begin();
  }
  ~Update() {
    if (handle_ != nullptr) (void)handle_->abandon();
  }
  Update(const Update&) = delete;
  Update& operator=(const Update&) = delete;

  // Commits everything, or nothing, and ends the update either way. Nothing is written when nothing
  // changed. Once the update has ended: GENREG_RC_NO_UPDATE.
  void commit() {
    const std::shared_ptr<detail::Handle> handle = handle_;
    std::error_code error;
    commit(error);
    if (error) detail::fail(error, handle.get());
  }
  void commit(std::error_code& error) {
    const std::shared_ptr<detail::Handle> handle = std::move(handle_);
    handle_ = nullptr;
    error = errorCode(handle == nullptr ? GENREG_RC_NO_UPDATE : handle->commit());
  }

  // Ends the update before its time; the registry is as it was.
  void abandon() noexcept {
    if (handle_ != nullptr) (void)handle_->abandon();
    handle_ = nullptr;
  }

 private:
  std::error_code begin() {
    const unsigned int code = handle_ == nullptr
                                  ? GENREG_RC_NOT_READY
                                  : handle_->begin(GENREG_LOCK_WAIT | GENREG_LOCK_CREATE_DIR);
    if (code != 0) handle_ = nullptr;
    return errorCode(code);
  }

  std::shared_ptr<detail::Handle> handle_;
};

// --- the installation directory ---

// An installed copy; what ossinstall.h says of the fields of OSSServiceInfo_t.
struct Copy {
  std::string name;               // empty for the copy of the older layout
  std::string service;            // "ZOR" or "ZEM"
  std::uint64_t versionCode = 0;  // as ossVersionStringToCode makes it
  std::string installPath;        // its directory
};

// An instance; what ossinstall.h says of the fields of OSSInstanceInfo_t.
struct Instance {
  std::string name;               // as stored
  std::string service;            // "ZOR" or "ZEM"
  std::uint64_t versionCode = 0;  // of its copy
  std::string instancePath;       // its profile's directory
  std::string installPath;        // of its copy
  std::string hostName;           // the machine or cluster that holds the profile, else empty
  std::string copyName;           // of the copy it was made from
  std::uint64_t flags = 0;        // OSS_INSTANCE_... bits
};

namespace detail {

template <std::size_t size>
std::string textOf(const char (&field)[size]) {
  return textIn(field, size);
}

inline Copy read(const OSSServiceInfo_t& info) {
  return {textOf(info.copyName), textOf(info.service), info.versionCode, textOf(info.installPath)};
}
inline Instance read(const OSSInstanceInfo_t& info) {
  return {textOf(info.instanceName), textOf(info.service),
          info.versionCode,          textOf(info.instancePath),
          textOf(info.installPath),  textOf(info.hostName),
          textOf(info.copyName),     info.flags};
}

inline std::string entryOf(const OSSServiceInfo_t& info) { return textOf(info.copyName); }
inline std::string entryOf(const OSSInstanceInfo_t& info) {
  return textOf(info.instanceName) + " of copy " + textOf(info.copyName);
}

// All entries that can be read; the first failure, and of which entry. An instance may fail for
// ever; three times in a row the same one does.
template <typename Entry, typename Info>
std::vector<Entry> readAll(void* list, unsigned int (*next)(void*, Info*),
                           unsigned int (*close)(void*), unsigned int* failed, std::string* which) {
  struct Closing {
    void* list;
    unsigned int (*close)(void*);
    ~Closing() { (void)close(list); }
  } const closing{list, close};
  std::vector<Entry> entries;
  const auto info = std::make_unique<Info>();
  constexpr bool mayStick = std::is_same_v<Info, OSSInstanceInfo_t>;
  std::string before;
  unsigned int code = 0;
  for (int row = 0; (code = next(list, info.get())) != GENREG_RC_END;) {
    if (code == 0) {
      entries.push_back(read(*info));
      row = 0;
      continue;
    }
    std::string entry = entryOf(*info);
    if (*failed == 0) {
      *failed = code;
      *which = entry;
    }
    row = row > 0 && entry == before ? row + 1 : 1;
    if (mayStick && row == 3) break;
    before = std::move(entry);
  }
  return entries;
}

// `error` null: what fails is thrown.
template <typename Entry, typename Info>
std::vector<Entry> readList(unsigned int code, void* list, unsigned int (*next)(void*, Info*),
                            unsigned int (*close)(void*), std::error_code* error) {
  std::string which;
  std::vector<Entry> entries;
  if (list != nullptr) entries = readAll<Entry, Info>(list, next, close, &code, &which);
  if (error != nullptr) *error = errorCode(code);
  if (code != 0 && error == nullptr) throw Error(errorCode(code), which, {}, false);
  return entries;
}

inline std::vector<Copy> readCopies(std::error_code* error) {
  void* list = nullptr;
  const unsigned int code = ossOpenServiceList(&list);
  return readList<Copy, OSSServiceInfo_t>(code, list, ossGetNextService, ossCloseServiceList,
                                          error);
}
inline std::vector<Instance> readInstances(const std::string& kind, std::error_code* error) {
  void* list = nullptr;
  unsigned int code = ossOpenInstanceList(kind.c_str(), &list);
  if (code == GENREG_RC_KEY_NOT_FOUND) code = 0;  // no copy has any
  return readList<Instance, OSSInstanceInfo_t>(code, list, ossGetNextInstance, ossCloseInstanceList,
                                               error);
}

}  // namespace detail

// The copies of the product that this machine has. What cannot be read is thrown, or `error` is the
// first failure and the copies that can be read are given all the same.
inline std::vector<Copy> copies() { return detail::readCopies(nullptr); }
inline std::vector<Copy> copies(std::error_code& error) { return detail::readCopies(&error); }

// The instances of kind "ZOR" or "ZEM". Reading one may ask the service control manager or another
// machine. Errors as copies'.
inline std::vector<Instance> instances(const std::string& kind = "ZOR") {
  return detail::readInstances(kind, nullptr);
}
inline std::vector<Instance> instances(const std::string& kind, std::error_code& error) {
  return detail::readInstances(kind, &error);
}

// A version code as people write it: "9.1.0.0".
inline std::string versionText(std::uint64_t versionCode) {
  char text[24] = "";
  (void)ossVersionCodeToString(versionCode, text, sizeof text);
  return text;
}

}  // namespace zor
