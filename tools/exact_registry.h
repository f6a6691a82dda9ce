// The flavours as the tool needs them: two records that differ in anything a person can set are not
// equal, so that a change of it is a change, and what is written back is what was there.
#pragma once

#include <cstring>
#include <string>
#include <type_traits>

#include "genreg.h"
#include "global_fields.h"
#include "sysservices/environment.h"

namespace zorreg {

// Masks beside those of the flavours: the key is a record as it was found, nothing else matches;
// and, of the global registry, the record has the identity of the key.
constexpr std::uint64_t asFound = std::uint64_t{1} << 62;
constexpr std::uint64_t byIdentity = std::uint64_t{1} << 63;

inline const char* commentOf(const VarValRecord& record) { return record.Comment; }
inline const char* commentOf(const ServiceEntryRecord& record) { return record.comment; }

// Whether a record that the flavour itself has read shows every byte of its comment: a "." may
// stand for one that no terminal shows.
template <typename Record>
bool isWhollyShown(const Record& record) {
  if constexpr (std::is_same_v<Record, VarValRecord> ||
                std::is_same_v<Record, ServiceEntryRecord>) {
    const char* comment = commentOf(record);
    return comment == nullptr || std::strchr(comment, '.') == nullptr;
  } else {
    return true;
  }
}

// A comment without the blank that stands between it and its "#".
inline std::string bareComment(const char* comment) {
  if (comment == nullptr) return {};
  return *comment == ' ' ? comment + 1 : comment;
}

// A comment that a person gives is written behind a blank, which one that was found has.
template <typename Record>
bool sameComment(std::uint64_t mask, const Record& stored, const Record& given) {
  const char* comment = commentOf(given);
  if (mask == asFound) comment = comment != nullptr && *comment == ' ' ? comment + 1 : comment;
  return bareComment(commentOf(stored)) == (comment == nullptr ? "" : comment);
}

// What a flavour's own comparison leaves out of two records that it calls equal.
inline bool sameRest(std::uint64_t, const BinVarValRecord& stored, const BinVarValRecord& given) {
  return std::strncmp(stored.Comment, given.Comment, sizeof stored.Comment) == 0;
}

inline bool sameRest(std::uint64_t mask, const VarValRecord& stored, const VarValRecord& given) {
  return sameComment(mask, stored, given);
}

inline bool sameRest(std::uint64_t mask, const ServiceEntryRecord& stored,
                     const ServiceEntryRecord& given) {
  const char* none[] = {nullptr};
  const char** left = stored.aliases == nullptr ? none : stored.aliases;
  const char** right = given.aliases == nullptr ? none : given.aliases;
  while (*left != nullptr && *right != nullptr && std::strcmp(*left, *right) == 0) ++left, ++right;
  return *left == *right && sameComment(mask, stored, given);
}

// A number that is absent is not 0.
inline bool sameRest(std::uint64_t, const GlobalRegRecord& stored, const GlobalRegRecord& given) {
  return stored.FieldMask == given.FieldMask;
}

// What a mask of some fields asks for beyond what the flavour compares.
template <typename Record>
bool holdsFields(std::uint64_t, const Record&, const Record&) {
  return true;
}
inline bool holdsFields(std::uint64_t mask, const GlobalRegRecord& stored,
                        const GlobalRegRecord& given) {
  if (mask == byIdentity) return identityOf(stored) == identityOf(given);
  return (mask & given.FieldMask & ~stored.FieldMask) == 0;
}

constexpr const char* globalPathVariable = "ZOR_GLOBAL_REG_PATHNAME";

struct Outcome {
  unsigned int opened = 0;  // the code of the construction
};

template <typename Flavour, typename Stored>
class Exact : public Outcome, public Flavour {
 public:
  using Record = Stored;

  explicit Exact(const std::string& file) : Flavour(file.c_str(), &opened) {
    if (opened != 0) return;
    plainCompare = this->GenRegFile::CompareRecord;
    plainUnpack = this->GenRegFile::UnpackRecord;
    compareExactly(true);
  }

  // The flavour's own comparison finds names by its index, but knows less of two records.
  void compareExactly(bool exactly) {
    this->GenRegFile::CompareRecord = exactly ? compare : plainCompare;
    if constexpr (std::is_base_of_v<GenRegText, Flavour>) {
      this->GenRegFile::UnpackRecord = exactly ? GenRegUnpackHook(unpack) : plainUnpack;
    }
  }

  static bool isSame(Record& stored, Record& given) {
    return compare(GENREG_ALL_FIELDS, &stored, &given) == 1;
  }
  void print(Record& record) const { (void)this->GenRegBase::PrintRecord(&record); }
  // What an operation would only call "rejected".
  unsigned int validate(std::uint64_t mask, Record& record) const {
    return this->ValidateKey(mask, &record);
  }

 private:
  static unsigned int compare(std::uint64_t mask, void* stored, void* given) {
    const bool wholly = mask == GENREG_ALL_FIELDS || mask == asFound;
    const unsigned int answer = plainCompare(wholly ? GENREG_ALL_FIELDS : mask, stored, given);
    if (answer != 1) return answer;
    const auto& left = *static_cast<const Record*>(stored);
    const auto& right = *static_cast<const Record*>(given);
    return (wholly ? sameRest(mask, left, right) : holdsFields(mask, left, right)) ? 1 : 0;
  }

  // A text flavour shows every byte of a comment that no terminal shows as a "."; what is written
  // back must be what was there. The texts have the same length.
  static unsigned int unpack(void* record, char* line) {
    const unsigned int code = plainUnpack.text(record, line);
    if (const char* comment = commentOf(*static_cast<const Record*>(record)); comment != nullptr) {
      std::memcpy(const_cast<char*>(comment), std::strchr(line, '#') + 1, std::strlen(comment));
    }
    return code;
  }

  static inline GenRegCompareHook plainCompare = nullptr;
  static inline GenRegUnpackHook plainUnpack;
};

}  // namespace zorreg
