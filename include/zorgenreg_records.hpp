// What the registries of zorgenreg.hpp hand out and take: records, paths and errors.
//
// A record is a struct of texts and numbers that owns what it holds; records of one type compare
// with ==. An operation throws zor::Error, which also knows the registry's file, what happened in
// words, and whether the change is committed all the same; or it stores a std::error_code, whose
// codes are those of genreg_codes.h in zor::category(). They compare equal to std::errc where there
// is a like one: busy, no such file (also: no such record), exists, no memory, permission denied.
//
//   zor::Variable timeout{"Timeout", 30, "seconds"};
//   try {
//     settings.set(timeout);
//   } catch (const zor::Error& error) {
//     if (error.code() == std::errc::permission_denied) return false;
//     std::cerr << error.what();
//   }
//
// A text is never cut short: one that does not fit (OSS_RC_BUFFER_TOO_SMALL), holds a NUL or, in a
// text registry, a line's end (GENREG_RC_BAD_ARGUMENT) fails where it is to be stored, and so does
// port 0 (GENREG_RC_SERVICES_PACK_NO_PORT) and an empty name (GENREG_RC_NO_ARGUMENT).
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "genreg_codes.h"
#include "sysservices/file_system.h"
#include "zorreg.h"

#if defined(_MSC_VER) && !defined(ZOR_OVER_C)
// Where a compiler spells C++ names in its own way, or this is defined, all of zorgenreg.hpp stands
// over the plain C functions of zorreg.h and ossinstall.h, else over the classes of genreg.h.
#define ZOR_OVER_C 1
#endif

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
      static constexpr struct {
        unsigned int code;
        std::errc like;
      } rows[] = {
          {GENREG_RC_BUSY, std::errc::device_or_resource_busy},
          {OSS_RC_LOCK_BUSY, std::errc::device_or_resource_busy},
          {GENREG_RC_NOT_FOUND, std::errc::no_such_file_or_directory},
          {GENREG_RC_NO_FILE, std::errc::no_such_file_or_directory},
          {GENREG_RC_KEY_NOT_FOUND, std::errc::no_such_file_or_directory},
          {OSS_RC_FILE_NOT_FOUND, std::errc::no_such_file_or_directory},
          {GENREG_RC_DUPLICATE, std::errc::file_exists},
          {OSS_RC_FILE_EXISTS, std::errc::file_exists},
          {GENREG_RC_BUFFER_ALLOC, std::errc::not_enough_memory},
          {GENREG_RC_WORK_ALLOC, std::errc::not_enough_memory},
          {GENREG_RC_PACK_ALLOC, std::errc::not_enough_memory},
          {GENREG_RC_UNPACK_ALLOC, std::errc::not_enough_memory},
          {OSS_RC_NO_MEMORY, std::errc::not_enough_memory},
          {OSS_RC_ACCESS_DENIED, std::errc::permission_denied},
          {GENREG_RC_PATH_TOO_LONG, std::errc::filename_too_long},
          {OSS_RC_NAME_TOO_LONG, std::errc::filename_too_long},
          {OSS_RC_BUFFER_TOO_SMALL, std::errc::value_too_large},
          {GENREG_RC_BAD_ARGUMENT, std::errc::invalid_argument},
          {GENREG_RC_NO_ARGUMENT, std::errc::invalid_argument},
          {GENREG_RC_KEY_REJECTED, std::errc::invalid_argument},
          {GENREG_RC_SERVICES_PACK_NO_PORT, std::errc::invalid_argument},
          {OSS_RC_DISK_FULL, std::errc::no_space_on_device},
          {OSS_RC_TOO_MANY_FILES, std::errc::too_many_files_open},
          {OSS_RC_IO_ERROR, std::errc::io_error},
      };
      for (const auto& row : rows) {
        if (row.code == static_cast<unsigned int>(value)) return row.like;
      }
      return {value, *this};
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

// The std::error_code of a call that names none: what fails is thrown as zor::Error. It never holds
// anything.
inline std::error_code& throws() noexcept {
  static std::error_code none;
  return none;
}

namespace detail {

// Whether the registries take paths in UTF-8, as they do over C. The classes on Windows take them
// in the code page of the process, and none but UTF-8 has no character for this byte.
inline bool pathsAreUtf8() noexcept {
#ifdef ZOR_OVER_C
  return true;
#else
  char full[OSS_FULL_PATH_SIZE];
  return ossAbsolutePath("\xFF", full, sizeof full) != 0;
#endif
}

}  // namespace detail

// Where a registry is: text in the system's 8-bit encoding, as the classes take it; over C, UTF-8
// on Windows.
struct Path {
  // A path; null is the empty one.
  Path(const char* path) : text(path == nullptr ? "" : path) {}
  Path(std::string path) : text(std::move(path)) {}
  // Its native text. Where that is wide, which the classes do not take, it is the same in ASCII, or
  // in UTF-8 over C or when that is the code page of the process; else it fails as
  // GENREG_RC_PATH_ENCODING, never as another file, and can be given as text in the code page.
  Path(const std::filesystem::path& path) { take(path); }
  std::string text{};     // the path
  unsigned int code = 0;  // why it cannot be taken

 private:
  template <typename Native>
  void take(const Native& path) {
    if constexpr (std::is_same_v<typename Native::value_type, char>) {
      text = path.native();
    } else {
      const auto& wide = path.native();
      const bool isPlain = std::all_of(wide.begin(), wide.end(), [](auto c) { return c < 0x80; });
      try {
        const auto bytes = path.u8string();
        text.assign(bytes.begin(), bytes.end());
        if (isPlain || detail::pathsAreUtf8()) return;
      } catch (const std::system_error&) {
        text.clear();  // it is not even Unicode
      }
      code = GENREG_RC_PATH_ENCODING;
    }
  }
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

namespace detail {

// Stores a code, or throws it where `error` is throws().
inline void report(unsigned int code, const std::string& file, std::error_code& error) {
  if (&error != &throws()) {
    error = errorCode(code);
  } else if (code != 0) {
    throw Error(errorCode(code), file, {}, false);
  }
}

// Calls `work` at the end of its life.
template <typename Work>
class AtEnd {
 public:
  explicit AtEnd(Work work) noexcept : work_(std::move(work)) {}
  ~AtEnd() { work_(); }
  AtEnd(const AtEnd&) = delete;
  AtEnd& operator=(const AtEnd&) = delete;

 private:
  Work work_;
};

// A text of a field that need not hold a terminator.
inline std::string textIn(const char* field, std::size_t size) {
  const void* end = std::memchr(field, '\0', size);
  return {field,
          end == nullptr ? size : static_cast<std::size_t>(static_cast<const char*>(end) - field)};
}

}  // namespace detail

}  // namespace zor
