// The records of the flavours as named fields, both ways.
//
// A text registry's record is built anew from all of its fields. The others are laid out in memory:
// a field that is not given stays in them byte for byte, whatever another program stored there.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "faces/kinds.h"
#include "faces/named_fields.h"
#include "genreg.h"

namespace faces {

// Mask bits beside those of the flavours, for what these do not compare.
constexpr std::uint64_t byComment = std::uint64_t{1} << 58;
constexpr std::uint64_t byAliases = std::uint64_t{1} << 59;
constexpr std::uint64_t byCheckSum = std::uint64_t{1} << 60;
constexpr std::uint64_t byUnknownFields = std::uint64_t{1} << 61;
// The key was made by makeRecord, and asks for more than the flavour's own look at keys lets pass:
// a field that is empty, or nothing that the flavour compares.
constexpr std::uint64_t isMade = std::uint64_t{1} << 57;
// The key is a record as it was found; nothing else matches.
constexpr std::uint64_t asFound = std::uint64_t{1} << 62;
// Of the global registry: the record has the identity of the key, which may lack a part of it.
constexpr std::uint64_t byIdentity = std::uint64_t{1} << 63;
constexpr std::uint64_t beyondFlavours =
    isMade | byComment | byAliases | byCheckSum | byUnknownFields | asFound | byIdentity;

// What is wrong with fields or values; nothing when the code is 0.
struct Complaint {
  unsigned int code = 0;
  std::string cause;
  std::optional<std::string> value;  // the wrong one
  explicit operator bool() const noexcept { return code != 0; }
};

// A record with the memory that it points to.
template <typename Record>
struct Made {
  Made() = default;
  Made(const Made&) = delete;
  Made& operator=(const Made&) = delete;

  Record record{};
  NamedFields texts;
  std::vector<std::string> words;
  std::vector<const char*> aliases;
};

// One field of a kind.
struct FieldRow {
  const char* name;
  std::uint64_t mask;  // the bit by which it is compared
  bool isNeeded;       // a new record has it
};

// What is known of a kind; `fields` and `identity` of the global registry depend on the type.
template <typename Record>
struct KindOf;

template <>
struct KindOf<BinVarValRecord> {
  static constexpr Kind kind = Kind::Bin;
  static constexpr bool mayRepeat = true;  // several records of one identity are one thing
  static constexpr std::uint64_t identity = BINVARVAL_IDENTITY;
  static constexpr FieldRow fields[] = {{"Variable", BINVARVAL_VARIABLE, true},
                                        {"Value", BINVARVAL_VALUE, true},
                                        {"Comment", byComment, false}};
};
template <>
struct KindOf<VarValRecord> {
  static constexpr Kind kind = Kind::Var;
  static constexpr bool mayRepeat = true;
  static constexpr std::uint64_t identity = VARVAL_IDENTITY;
  static constexpr FieldRow fields[] = {{"Variable", VARVAL_VARIABLE, true},
                                        {"Value", VARVAL_VALUE, true},
                                        {"Comment", byComment, false}};
};
template <>
struct KindOf<ServiceEntryRecord> {
  static constexpr Kind kind = Kind::Services;
  static constexpr bool mayRepeat = false;
  static constexpr std::uint64_t identity = SERVICES_IDENTITY;
  static constexpr FieldRow fields[] = {{"Name", SERVICES_NAME, true},
                                        {"Port", SERVICES_PORT, true},
                                        {"Protocol", SERVICES_PROTOCOL, true},
                                        {"Aliases", byAliases, false},
                                        {"Comment", byComment, false}};
};
template <>
struct KindOf<GlobalRegRecord> {
  static constexpr Kind kind = Kind::Global;
  static constexpr bool mayRepeat = false;
  // Beside the fields of the type.
  static constexpr FieldRow fields[] = {{"Type", 0, true}, {"CheckSum", byCheckSum, false}};
};

// A comment without the blank that stands between it and its "#"; null stays null.
inline const char* bareComment(const char* comment) noexcept {
  return comment != nullptr && *comment == ' ' ? comment + 1 : comment;
}

// The identifying bits of a global record: those that its type names and it has, or all that it
// has.
std::uint64_t identityOf(const GlobalRegRecord& record) noexcept;

// What a record holds, in the order of the tables; of a global one, as "UnknownFields", the bits of
// the fields that this version does not know.
NamedFields fieldsOf(const BinVarValRecord& record);
NamedFields fieldsOf(const VarValRecord& record);
NamedFields fieldsOf(const ServiceEntryRecord& record);
NamedFields fieldsOf(const GlobalRegRecord& record);

// What a record is made for: to be stored, or to find one, which may hold what nobody stores anew.
enum class Use { Store, Key };

// Makes what `found` becomes with the given fields, or of null a record or key of nothing else.
Complaint makeRecord(const NamedFields& given, const BinVarValRecord* found,
                     Made<BinVarValRecord>& made, Use use = Use::Store);
Complaint makeRecord(const NamedFields& given, const VarValRecord* found, Made<VarValRecord>& made,
                     Use use = Use::Store);
Complaint makeRecord(const NamedFields& given, const ServiceEntryRecord* found,
                     Made<ServiceEntryRecord>& made, Use use = Use::Store);
Complaint makeRecord(const NamedFields& given, const GlobalRegRecord* found,
                     Made<GlobalRegRecord>& made, Use use = Use::Store);

// The bits of the rows that a key has.
template <typename Record>
std::uint64_t rowsIn(const NamedFields& key) noexcept {
  std::uint64_t mask = 0;
  for (const FieldRow& row : KindOf<Record>::fields) {
    if (key.has(row.name)) mask |= row.mask;
  }
  return mask;
}

// The mask of a key of which `made` was made.
inline std::uint64_t maskOf(const NamedFields& key, const Made<BinVarValRecord>&) {
  return rowsIn<BinVarValRecord>(key);
}
inline std::uint64_t maskOf(const NamedFields& key, const Made<VarValRecord>&) {
  return rowsIn<VarValRecord>(key);
}
std::uint64_t maskOf(const NamedFields& key, const Made<ServiceEntryRecord>& made);
std::uint64_t maskOf(const NamedFields& key, const Made<GlobalRegRecord>& made);

// A needed field that is absent; null when there is none.
template <typename Record>
const char* lackedBy(const NamedFields& fields) {
  for (const FieldRow& row : KindOf<Record>::fields) {
    if (row.isNeeded && !fields.has(row.name)) return row.name;
  }
  return nullptr;
}

}  // namespace faces
