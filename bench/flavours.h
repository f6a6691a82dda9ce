// What the four flavours of registries differ in: the record, the mask, and the bytes in the file.
#pragma once

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "bench/subject.h"
#include "genreg.h"

namespace flavours {

inline void copyText(char* field, const std::string& text) {
  std::memcpy(field, text.c_str(), text.size() + 1);
}

// A little-endian number of `Width` bytes.
template <std::size_t Width>
std::string number(std::uint64_t value) {
  std::string bytes;
  for (std::size_t i = 0; i < Width; ++i) bytes += static_cast<char>(value >> (8 * i));
  return bytes;
}

inline std::string frame(const std::string& bytes) { return number<4>(bytes.size()) + bytes; }

struct BinaryVariables {
  using Handle = GenRegBinVarVal;
  using Record = BinVarValRecord;
  static constexpr std::uint64_t mask = BINVARVAL_VARIABLE;
  static constexpr std::size_t frameBytes = 4;

  static Handle open(const std::string& path) { return Handle(path.c_str(), nullptr); }
  static void fill(Record& record, const Entry& entry) {
    copyText(record.Variable, entry.name);
    record.Value = entry.value;
    copyText(record.Comment, entry.comment);
  }
  static std::string stored(const Entry& entry) {
    std::string name = entry.name;
    std::string comment = entry.comment;
    name.resize(sizeof Record::Variable);
    comment.resize(sizeof Record::Comment);
    return frame(name + number<4>(static_cast<std::uint32_t>(entry.value)) + comment);
  }
};

struct GlobalRegistry {
  using Handle = GlobalReg;
  using Record = GlobalRegRecord;
  static constexpr std::uint64_t mask = 0x3;  // service and variable
  static constexpr std::size_t frameBytes = 4;

  // The path comes from the environment, which a program sets once.
  static Handle open(const std::string& path) {
    static const std::string* named = nullptr;
    if (named != &path) (void)::setenv("ZOR_GLOBAL_REG_PATHNAME", path.c_str(), 1);
    named = &path;
    return Handle();
  }
  static void fill(Record& record, const Entry& entry) {
    record.RecordType = GLOBALREG_RECORD_VARIABLE;
    record.FieldMask = entry.comment.empty() ? 0x7 : 0xF;
    record.MissingFieldMask = 0;
    copyText(record.Variable.Service, "zor");
    copyText(record.Variable.Variable, entry.name);
    copyText(record.Variable.Value, std::to_string(entry.value));
    copyText(record.Variable.Comment, entry.comment);
  }
  static std::string stored(const Entry& entry) {
    const bool commented = !entry.comment.empty();
    std::string bytes = number<4>(GLOBALREG_RECORD_VARIABLE) + number<8>(commented ? 0xF : 0x7) +
                        number<8>(0) + field("zor") + field(entry.name) +
                        field(std::to_string(entry.value));
    if (commented) bytes += field(entry.comment);
    return frame(bytes + number<4>(0));
  }

 private:
  static std::string field(std::string text) {
    text += '\0';
    return number<2>(text.size()) + text;
  }
};

struct ProfileVariables {
  using Handle = GenRegVarVal;
  using Record = VarValRecord;
  static constexpr std::uint64_t mask = VARVAL_VARIABLE;
  static constexpr std::size_t frameBytes = 0;

  static Handle open(const std::string& path) { return Handle(path.c_str(), nullptr); }
  static void fill(Record& record, const Entry& entry) {
    static std::string value;
    value = std::to_string(entry.value);
    const bool commented = !entry.comment.empty();
    record.Contains = VARVAL_HAS_VARIABLE;
    if (commented) record.Contains |= VARVAL_HAS_COMMENT;
    record.Variable = entry.name.c_str();
    record.Value = value.c_str();
    record.Comment = commented ? entry.comment.c_str() : nullptr;
  }
  static std::string stored(const Entry& entry) {
    std::string line = entry.name + " = " + std::to_string(entry.value);
    if (!entry.comment.empty()) line += " # " + entry.comment;
    return line + "\n";
  }
};

struct Services {
  using Handle = GenRegServices;
  using Record = ServiceEntryRecord;
  static constexpr std::uint64_t mask = SERVICES_NAME | SERVICES_PROTOCOL;
  static constexpr std::size_t frameBytes = 0;

  static Handle open(const std::string& path) { return Handle(path.c_str(), nullptr); }
  static void fill(Record& record, const Entry& entry) {
    const bool commented = !entry.comment.empty();
    record.Contains = SERVICES_HAS_SERVICE;
    if (commented) record.Contains |= SERVICES_HAS_COMMENT;
    record.name = entry.name.c_str();
    record.protocol = "tcp";
    record.aliases = nullptr;
    record.comment = commented ? entry.comment.c_str() : nullptr;
    const auto port = static_cast<std::uint16_t>(entry.value);
    record.port = static_cast<std::uint16_t>((port << 8) | (port >> 8));
  }
  static std::string stored(const Entry& entry) {
    constexpr std::size_t tabStop = 8;
    std::string line = entry.name + (entry.name.size() < tabStop ? "\t\t" : "\t") +
                       std::to_string(entry.value) + "/tcp";
    if (!entry.comment.empty()) line += "\t\t\t# " + entry.comment;
    return line + "\n";
  }
};

// Writes a registry of `count` entries.
template <typename Flavour>
bool writeAll(const std::string& path, std::size_t count) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  for (std::size_t i = 0; i < count; ++i) file << Flavour::stored(entryAt(i));
  file.close();
  return !file.fail();
}

}  // namespace flavours
