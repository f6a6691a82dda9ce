// What the kinds' records are to the C interface beyond their fields: which ones are entries, by
// what each is known, and what may be stored.
#pragma once

#include <algorithm>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>

#include "faces/exact_registry.h"
#include "faces/unknown_fields.h"
#include "genreg/flavours/protocols.h"

namespace faces {

// Whether a line of a text registry holds a record.
template <typename Record>
bool isEntry(const Record& record) noexcept {
  if constexpr (std::is_same_v<Record, VarValRecord>) {
    return (record.Contains & VARVAL_HAS_VARIABLE) != 0;
  } else if constexpr (std::is_same_v<Record, ServiceEntryRecord>) {
    return (record.Contains & SERVICES_HAS_SERVICE) != 0;
  } else {
    return true;
  }
}

// The fields by which a record is known.
template <typename Record>
std::uint64_t identityOfKind(const Record& record) noexcept {
  if constexpr (std::is_same_v<Record, GlobalRegRecord>) {
    const GlobalRegType* const type = globalRegFindType(record.RecordType);
    const bool isWhole = type != nullptr && (record.FieldMask & type->identity) == type->identity;
    return isWhole ? type->identity : byIdentity;
  } else {
    return KindOf<Record>::identity;
  }
}

inline Complaint judgeContent(const GlobalRegRecord& record) {
  if (record.FieldMask != 0) return {};
  return {GENREG_RC_FIELD_MISSING, "a record has at least one field beside its Type", std::nullopt};
}

// A service whose port and protocol were not understood.
template <typename Other>
bool isNotUnderstood(const Other&) {
  return false;
}
inline bool isNotUnderstood(const ServiceEntryRecord& record) {
  return (record.Contains & SERVICES_BAD_PORT) != 0;
}

template <typename Other>
Complaint judgeProtocol(const Other&) {
  return {};
}
inline Complaint judgeProtocol(const ServiceEntryRecord& record) {
  if (record.protocol == nullptr || genreg::isProtocol(record.protocol)) return {};
  return {GENREG_RC_BAD_VALUE, "Protocol is tcp, udp, ddp or divert", record.protocol};
}

// Whether a record that the flavour itself has read may not show every byte of its comment: a "."
// may stand for one that no terminal shows.
template <typename Record>
bool mayHide(const Record& record) noexcept {
  if constexpr (isLine<Record>) {
    const char* const comment = commentOf(record);
    return comment != nullptr && std::strchr(comment, '.') != nullptr;
  } else {
    return false;
  }
}

// Whether it is a field of a newer version.
template <typename Record>
bool isUnknown(const std::string& name, const Record& record) {
  if constexpr (isGlobal<Record>) {
    const GlobalRegType* const type = globalRegFindType(record.RecordType);
    return type != nullptr && unknownBitOf(name, *type) != 0;
  } else {
    return false;
  }
}

template <typename Record>
bool hasUnknown(const Record& record) noexcept {
  if constexpr (isGlobal<Record>) {
    const GlobalRegType* const type = globalRegFindType(record.RecordType);
    return type != nullptr && (record.FieldMask & ~type->knownMask) != 0;
  } else {
    return false;
  }
}

}  // namespace faces
