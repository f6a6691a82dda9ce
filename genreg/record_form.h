// What a flavour brings to a handle: its hooks, and what it knows of stored records as they stand
// in a file's window, so that one that is not wanted is neither copied nor unpacked.
#pragma once

#include <cstddef>
#include <cstdint>

#include "genreg_handle.h"

namespace genreg {

// What unpacking a stored record and comparing it with a key would come to.
enum class Match {
  Differs,
  Matches,
  Unclear,  // it takes unpacking to know, or unpacking would fail or log something
};

// A hash of the fields by which records are known (FNV-1a).
class IdentityHash {
 public:
  // A text that ends at a NUL, or behind `most` bytes.
  void addText(const char* text, std::size_t most = SIZE_MAX) noexcept {
    for (std::size_t i = 0; i < most && text[i] != '\0'; ++i) add(text[i]);
    add('\0');
  }
  void addBytes(const void* bytes, std::size_t count) noexcept {
    for (std::size_t i = 0; i < count; ++i) add(static_cast<const char*>(bytes)[i]);
  }
  void add(char byte) noexcept { value_ = (value_ ^ static_cast<unsigned char>(byte)) * 16777619u; }
  std::uint32_t value() const noexcept { return value_; }

 private:
  std::uint32_t value_ = 2166136261u;
};

struct RecordForm {
  // The hooks; null where the flavour has none. Where a handle has others in their slots, every
  // record is unpacked for those to look at.
  GenRegCompareHook compareRecord;
  GenRegValidateHook validateKey;
  GenRegPrintHook printRecord;
  GenRegNotifyHook notifyChange;  // does nothing
  GenRegUnpackHook unpackRecord;
  GenRegPackHook packRecord;
  GenRegSizeHook getRecordSize;  // gives `recordSize`
  GenRegLengthHook getRecordLength;
  GenRegLengthHook getPackedLength;

  std::size_t recordSize;  // bytes of a record in memory

  // `stored`: a record's bytes without their length, or a line without its newline, which neither
  // continues another line nor is continued. `key` is not null.
  Match (*match)(std::uint64_t mask, const char* stored, std::size_t length,
                 const void* key) noexcept;
  // Makes the record of stored bytes. False when it takes the hook: unpacking would fail or log
  // something. The record may hold anything then.
  bool (*fill)(const char* stored, std::size_t length, void* record) noexcept;
  // The hash of the fields of a record or key that the mask selects. False when it selects none
  // that is compared, or the record lacks one. Records of different hashes differ under that mask,
  // and so does one without a hash from each that has one.
  bool (*hash)(std::uint64_t mask, const void* record, IdentityHash* hash) noexcept;
  // The mask of the fields by which records such as this are known; 0: it has none.
  std::uint64_t (*identity)(const void* record) noexcept;
  // Whether ValidateKey accepts every key under that mask; null where it never does.
  bool (*accepts)(std::uint64_t mask) noexcept;
  // As match(), for whoever fills the record next: whether it can be filled at all is left to that.
  Match (*matchToFill)(std::uint64_t mask, const char* stored, std::size_t length,
                       const void* key) noexcept;
};

}  // namespace genreg
