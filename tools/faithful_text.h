// Text registries as the tool needs them: a record carries its comment as it stands in the file,
// and two records that differ in the comment or the aliases alone are not equal, so that a change
// of those is a change.
#pragma once

#include <cstring>
#include <string>

#include "genreg.h"

namespace zorreg {

inline const char* commentOf(const VarValRecord& record) { return record.Comment; }
inline const char* commentOf(const ServiceEntryRecord& record) { return record.comment; }

// A comment without the blank that stands between it and its "#".
inline std::string bareComment(const char* comment) {
  if (comment == nullptr) return {};
  return *comment == ' ' ? comment + 1 : comment;
}

inline bool sameExtras(const VarValRecord&, const VarValRecord&) { return true; }
inline bool sameExtras(const ServiceEntryRecord& stored, const ServiceEntryRecord& given) {
  const char* none[] = {nullptr};
  const char** left = stored.aliases == nullptr ? none : stored.aliases;
  const char** right = given.aliases == nullptr ? none : given.aliases;
  for (; *left != nullptr && *right != nullptr; ++left, ++right) {
    if (std::strcmp(*left, *right) != 0) return false;
  }
  return *left == *right;
}

template <typename Flavour, typename Record>
class FaithfulText : public Flavour {
 public:
  FaithfulText(const char* path, unsigned int* code) : Flavour(path, code) {
    if (*code != 0) return;
    plainCompare = this->GenRegFile::CompareRecord;
    plainUnpack = this->GenRegFile::UnpackRecord;
    this->GenRegFile::CompareRecord = compare;
    this->GenRegFile::UnpackRecord = GenRegUnpackHook(unpack);
  }

  // Whether a stored record and one that is given are the same, comments and aliases included.
  static bool isSame(Record& stored, Record& given) {
    return compare(GENREG_ALL_FIELDS, &stored, &given) == 1;
  }

 private:
  static unsigned int compare(std::uint64_t mask, void* stored, void* given) {
    const unsigned int answer = plainCompare(mask, stored, given);
    if (answer != 1 || mask != GENREG_ALL_FIELDS) return answer;
    const auto& left = *static_cast<const Record*>(stored);
    const auto& right = *static_cast<const Record*>(given);
    // A given comment is written behind a blank, which a stored one therefore has.
    const char* comment = commentOf(right);
    const bool same = bareComment(commentOf(left)) == (comment == nullptr ? "" : comment);
    return same && sameExtras(left, right) ? 1 : 0;
  }

  // The flavour shows every byte that no terminal shows as a "."; what is written back must be what
  // was there. The texts have the same length.
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

using FaithfulVarVal = FaithfulText<GenRegVarVal, VarValRecord>;
using FaithfulServices = FaithfulText<GenRegServices, ServiceEntryRecord>;

}  // namespace zorreg
