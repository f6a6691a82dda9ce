// The stored form of a global registry record: what it means, and making it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "genreg_global.h"

namespace genreg {

// Header: record type, field mask, missing-field mask, little-endian; then the entries in ascending
// order of their bit, each a 2-byte length and its bytes; then the check sum.
constexpr std::size_t globalTypeWidth = 4;
constexpr std::size_t globalMaskWidth = 8;
constexpr std::size_t globalHeaderWidth = globalTypeWidth + 2 * globalMaskWidth;
constexpr std::size_t globalEntryHeader = 2;
constexpr std::size_t globalCheckSumWidth = 4;
constexpr std::uint64_t globalEntryBits = 0x7FFFFFFFFFFFFFFFu;  // the top bit never has an entry

// No stored form is longer: an entry of the longest length for every bit.
constexpr std::size_t globalLongestStored =
    globalHeaderWidth + 63 * (globalEntryHeader + 0xFFFF) + globalCheckSumWidth;

// A number of the stored form, which has its bytes in the order of the machine.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);
template <typename Number>
Number globalDecode(const unsigned char* bytes) noexcept {
  Number number;
  std::memcpy(&number, bytes, sizeof number);
  return number;
}

// A field's bytes in a record in memory.
inline const unsigned char* globalMemoryOf(const GlobalRegRecord& record,
                                           const GlobalRegField& field) noexcept {
  return reinterpret_cast<const unsigned char*>(&record) + field.offset;
}

struct GlobalEntry {
  std::uint64_t bit;
  const unsigned char* bytes;
  std::size_t length;
};

// Reads a stored form within its length and never past it.
class GlobalStoredReader {
 public:
  // `length` is that of the stored form, or of the memory when only that is known.
  GlobalStoredReader(const void* stored, std::size_t length) noexcept
      : bytes_(static_cast<const unsigned char*>(stored)), length_(length) {
    if (stored == nullptr || !hasHeader()) return;
    type_ = globalDecode<std::uint32_t>(bytes_);
    fieldMask_ = globalDecode<std::uint64_t>(bytes_ + globalTypeWidth);
    missingMask_ = globalDecode<std::uint64_t>(bytes_ + globalTypeWidth + globalMaskWidth);
    // Records of no known type have no entries, whatever their mask says.
    bitsLeft_ = globalRegFindType(type_) == nullptr ? 0 : fieldMask_ & globalEntryBits;
  }

  bool hasHeader() const noexcept { return length_ >= globalHeaderWidth + globalCheckSumWidth; }
  std::uint32_t type() const noexcept { return type_; }
  std::uint64_t fieldMask() const noexcept { return fieldMask_; }
  std::uint64_t missingMask() const noexcept { return missingMask_; }

  // The next entry; false when there is none, or when it would run into the check sum (ok() then).
  bool next(GlobalEntry& entry) noexcept {
    if (bitsLeft_ == 0 || !ok_) return false;
    const std::size_t room = length_ - globalCheckSumWidth - offset_;
    const std::size_t length =
        room < globalEntryHeader ? room : globalDecode<std::uint16_t>(bytes_ + offset_);
    ok_ = room >= globalEntryHeader && room - globalEntryHeader >= length;
    if (!ok_) return false;
    entry = {bitsLeft_ & (~bitsLeft_ + 1), bytes_ + offset_ + globalEntryHeader, length};
    bitsLeft_ &= bitsLeft_ - 1;
    offset_ += globalEntryHeader + length;
    return true;
  }
  bool ok() const noexcept { return ok_; }
  // After the last entry: where the check sum stands, and its value.
  std::size_t offset() const noexcept { return offset_; }
  std::uint32_t checkSum() const noexcept;

 private:
  const unsigned char* bytes_;
  std::size_t length_;
  std::size_t offset_ = globalHeaderWidth;
  std::uint32_t type_ = 0;
  std::uint64_t fieldMask_ = 0;
  std::uint64_t missingMask_ = 0;
  std::uint64_t bitsLeft_ = 0;
  bool ok_ = true;
};

// Builds the record that a stored form describes. Returns 0; GENREG_RC_UNKNOWN_RECORD_TYPE;
// GENREG_RC_MALFORMED_RECORD. With `exact` the stored form must fill `length` bytes.
unsigned int unpackGlobal(const void* stored, std::size_t length, bool exact,
                          GlobalRegRecord& record) noexcept;

// Whether the record that a stored form of `length` bytes describes has the key's type, or the key
// none, and the key's fields under `mask`, without building it. Returns what unpackGlobal would.
unsigned int matchGlobal(const void* stored, std::size_t length, std::uint64_t mask,
                         const GlobalRegRecord& key, bool* matches) noexcept;

// The stored form of a record, in two steps over the same fields.
class GlobalPacker {
 public:
  // `previous` is the stored form that unknown fields come from, or null.
  GlobalPacker(const GlobalRegRecord& record, const GlobalRegType& type, const void* previous,
               std::size_t previousLength) noexcept;

  // Bytes of the stored form; 0 when a text has no end or `previous` is malformed.
  std::size_t measure() const noexcept;
  // Writes the stored form and returns the bytes written; `out` holds measure() bytes.
  std::size_t write(unsigned char* out) const noexcept;
  // Unknown fields that the record names and nobody supplies.
  std::uint64_t unsupplied() const noexcept { return unsupplied_; }

 private:
  template <typename Visit>
  bool forEachEntry(Visit visit) const noexcept;

  const GlobalRegRecord& record_;
  const GlobalRegType& type_;
  GlobalStoredReader previous_;
  std::uint64_t carried_ = 0;
  std::uint64_t unsupplied_ = 0;
};

}  // namespace genreg
