#include "genreg/flavours/global_codec.h"

#include <algorithm>
#include <cstring>

#include "genreg/core/record_buffer.h"

namespace genreg {
namespace {

constexpr std::size_t widestNumber = 8;  // bytes of a number field

const GlobalRegField* fieldOf(const GlobalRegType& type, std::uint64_t bit) noexcept {
  for (std::size_t i = 0; i < type.fieldCount; ++i) {
    if (type.fields[i].bit == bit) return &type.fields[i];
  }
  return nullptr;
}

// A text ends within its entry, as a rule with it, and within its field; a number has its width.
bool isSound(const GlobalEntry& entry, const GlobalRegField& field) noexcept {
  if (field.kind != GlobalRegFieldKind::Text) return entry.length == field.width;
  if (entry.length == 0 || entry.length > field.width) return false;
  return entry.bytes[entry.length - 1] == '\0' ||
         std::memchr(entry.bytes, '\0', entry.length) != nullptr;
}

// Copies a text up to its NUL, or all of it, over zeros. Most end within the first bytes, for which
// a loop is faster than two calls.
void copyText(unsigned char* to, const unsigned char* from, std::size_t most) noexcept {
  const std::size_t few = std::min<std::size_t>(most, 16);
  std::size_t at = 0;
  for (; at < few && from[at] != '\0'; ++at) to[at] = from[at];
  if (at < few) return;
  const char* rest = reinterpret_cast<const char*>(from + at);
  std::memcpy(to + at, rest, ::strnlen(rest, most - at));
}

// Takes a sound entry into its field.
void takeEntry(const GlobalEntry& entry, const GlobalRegField& field,
               GlobalRegRecord& record) noexcept {
  auto* memory = reinterpret_cast<unsigned char*>(&record) + field.offset;
  if (field.kind != GlobalRegFieldKind::Text) {
    std::memcpy(memory, entry.bytes, field.width);
  } else {
    copyText(memory, entry.bytes, entry.length);
  }
}

// Whether a key has in a field what a sound entry holds; a field without an entry is empty or 0.
bool equalsEntry(const GlobalRegRecord& key, const GlobalRegField& field,
                 const GlobalEntry* entry) noexcept {
  const unsigned char* memory = globalMemoryOf(key, field);
  if (field.kind != GlobalRegFieldKind::Text) {
    constexpr unsigned char zero[widestNumber] = {};
    return std::memcmp(memory, entry == nullptr ? zero : entry->bytes, field.width) == 0;
  }
  if (entry == nullptr) return *memory == '\0';
  // The entry's NUL ends the comparison within the entry. As a rule it ends in the first bytes.
  const unsigned char* stored = entry->bytes;
  while (*stored == *memory && *stored != '\0') ++stored, ++memory;
  return *stored == *memory;
}

// Takes a stored form of a known type apart: `take` gets every known field with its entry, or with
// null when the record does not have it. Returns 0 or GENREG_RC_MALFORMED_RECORD.
template <typename Take>
unsigned int takeApart(GlobalStoredReader& reader, const GlobalRegType& type, Take take) noexcept {
  GlobalEntry entry{};
  bool more = reader.next(entry);
  // Fields stand in the table in the order of their entries, before all unknown ones.
  for (std::size_t i = 0; i < type.fieldCount; ++i) {
    const GlobalRegField& field = type.fields[i];
    if (!more || entry.bit != field.bit) {
      take(field, static_cast<const GlobalEntry*>(nullptr));
      continue;
    }
    if (!isSound(entry, field)) return GENREG_RC_MALFORMED_RECORD;
    take(field, &entry);
    more = reader.next(entry);
  }
  while (more) more = reader.next(entry);
  return reader.ok() ? GENREG_RC_OK : GENREG_RC_MALFORMED_RECORD;
}

constexpr bool knownFieldsComeFirst() {
  for (const GlobalRegType& type : globalRegTypes) {
    for (std::size_t i = 0; i < type.fieldCount; ++i) {
      if (type.fields[i].bit != std::uint64_t{1} << i) return false;
    }
    if (type.knownMask != (std::uint64_t{1} << type.fieldCount) - 1) return false;
  }
  return true;
}
static_assert(knownFieldsComeFirst());

}  // namespace

std::uint32_t GlobalStoredReader::checkSum() const noexcept {
  return globalDecode<std::uint32_t>(bytes_ + offset_);
}

unsigned int unpackGlobal(const void* stored, std::size_t length, bool exact,
                          GlobalRegRecord& record) noexcept {
  GlobalStoredReader reader(stored, length);
  if (!reader.hasHeader()) return GENREG_RC_MALFORMED_RECORD;
  const GlobalRegType* type = globalRegFindType(reader.type());
  if (type == nullptr) return GENREG_RC_UNKNOWN_RECORD_TYPE;
  // Fields that are not stored must compare alike every time the record is read.
  clearRecord(record);
  record.RecordType = reader.type();
  record.FieldMask = reader.fieldMask();
  record.MissingFieldMask = reader.missingMask() | (type->knownMask & ~record.FieldMask);
  const unsigned int code =
      takeApart(reader, *type, [&](const GlobalRegField& field, const GlobalEntry* entry) {
        if (entry != nullptr) takeEntry(*entry, field, record);
      });
  if (code != 0) return code;
  if (exact && reader.offset() + globalCheckSumWidth != length) return GENREG_RC_MALFORMED_RECORD;
  record.CheckSum = static_cast<std::int32_t>(reader.checkSum());
  return GENREG_RC_OK;
}

unsigned int matchGlobal(const void* stored, std::size_t length, std::uint64_t mask,
                         const GlobalRegRecord& key, bool* matches) noexcept {
  GlobalStoredReader reader(stored, length);
  if (!reader.hasHeader()) return GENREG_RC_MALFORMED_RECORD;
  const GlobalRegType* type = globalRegFindType(reader.type());
  if (type == nullptr) return GENREG_RC_UNKNOWN_RECORD_TYPE;
  // A record that is not wanted is checked all the same: a malformed one is met by whatever reads.
  bool same = key.RecordType == 0 || key.RecordType == type->type;
  const unsigned int code =
      takeApart(reader, *type, [&](const GlobalRegField& field, const GlobalEntry* entry) {
        if (same && (mask & field.bit) != 0) same = equalsEntry(key, field, entry);
      });
  if (code != 0) return code;
  if (reader.offset() + globalCheckSumWidth != length) return GENREG_RC_MALFORMED_RECORD;
  *matches = same;
  return GENREG_RC_OK;
}

GlobalPacker::GlobalPacker(const GlobalRegRecord& record, const GlobalRegType& type,
                           const void* previous, std::size_t previousLength) noexcept
    : record_(record), type_(type), previous_(previous, previous == nullptr ? 0 : previousLength) {
  const std::uint64_t unknown = globalEntryBits & ~type.knownMask;
  carried_ = previous_.fieldMask() & unknown;
  unsupplied_ = record.FieldMask & unknown & ~carried_;
}

// Every entry of the stored form in the order of its bit: the record's known fields, and what the
// previous stored form has under bits that this library does not know.
template <typename Visit>
bool GlobalPacker::forEachEntry(Visit visit) const noexcept {
  GlobalStoredReader reader = previous_;
  const std::uint64_t known = record_.FieldMask & type_.knownMask;
  GlobalEntry previous{};
  bool havePrevious = reader.next(previous);
  for (std::uint64_t left = known | carried_; left != 0; left &= left - 1) {
    const std::uint64_t bit = left & (~left + 1);
    while (havePrevious && previous.bit < bit) havePrevious = reader.next(previous);
    if ((carried_ & bit) != 0) {
      if (!havePrevious || previous.bit != bit) return false;
      visit(previous.bytes, previous.length);
      continue;
    }
    const GlobalRegField& field = *fieldOf(type_, bit);
    const unsigned char* memory = globalMemoryOf(record_, field);
    std::size_t length = field.width;
    if (field.kind == GlobalRegFieldKind::Text) {
      length = ::strnlen(reinterpret_cast<const char*>(memory), field.width) + 1;
      if (length > field.width) return false;
    }
    visit(memory, length);
  }
  return reader.ok();
}

std::size_t GlobalPacker::measure() const noexcept {
  std::size_t total = globalHeaderWidth + globalCheckSumWidth;
  const bool ok = forEachEntry(
      [&](const unsigned char*, std::size_t length) { total += globalEntryHeader + length; });
  return ok ? total : 0;
}

std::size_t GlobalPacker::write(unsigned char* out) const noexcept {
  unsigned char* at = out;
  const auto put = [&](std::uint64_t number, std::size_t width) {
    std::memcpy(at, &number, width);
    at += width;
  };
  const std::uint64_t named = record_.FieldMask & (type_.knownMask | ~globalEntryBits);
  put(record_.RecordType, globalTypeWidth);
  put(named | carried_, globalMaskWidth);
  put(record_.MissingFieldMask, globalMaskWidth);
  (void)forEachEntry([&](const unsigned char* bytes, std::size_t length) {
    put(length, globalEntryHeader);
    std::memcpy(at, bytes, length);
    at += length;
  });
  put(static_cast<std::uint32_t>(record_.CheckSum), globalCheckSumWidth);
  return static_cast<std::size_t>(at - out);
}

}  // namespace genreg
