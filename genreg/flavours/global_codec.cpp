#include "genreg/flavours/global_codec.h"

#include <algorithm>
#include <cstring>

namespace genreg {
namespace {

std::uint64_t decode(const unsigned char* bytes, std::size_t width) noexcept {
  std::uint64_t number = 0;
  for (std::size_t i = width; i > 0; --i) number = (number << 8) | bytes[i - 1];
  return number;
}

void encode(std::uint64_t number, std::size_t width, unsigned char* bytes) noexcept {
  for (std::size_t i = 0; i < width; ++i) bytes[i] = static_cast<unsigned char>(number >> (8 * i));
}

// A number field in memory, whatever its width.
std::uint64_t loadNumber(const unsigned char* field, std::size_t width) noexcept {
  std::uint8_t one = 0;
  std::uint32_t four = 0;
  std::uint64_t eight = 0;
  switch (width) {
    case sizeof one:
      return *field;
    case sizeof four:
      std::memcpy(&four, field, sizeof four);
      return four;
    default:
      std::memcpy(&eight, field, sizeof eight);
      return eight;
  }
}

void storeNumber(std::uint64_t number, std::size_t width, unsigned char* field) noexcept {
  const auto four = static_cast<std::uint32_t>(number);
  switch (width) {
    case 1:
      *field = static_cast<unsigned char>(number);
      break;
    case sizeof four:
      std::memcpy(field, &four, sizeof four);
      break;
    default:
      std::memcpy(field, &number, sizeof number);
  }
}

const unsigned char* memoryOf(const GlobalRegRecord& record, const GlobalRegField& field) noexcept {
  return reinterpret_cast<const unsigned char*>(&record) + field.offset;
}

const GlobalRegField* fieldOf(const GlobalRegType& type, std::uint64_t bit) noexcept {
  for (std::size_t i = 0; i < type.fieldCount; ++i) {
    if (type.fields[i].bit == bit) return &type.fields[i];
  }
  return nullptr;
}

// Takes an entry into its field: a text with its NUL and within the field, a number of its width.
bool takeEntry(const GlobalEntry& entry, const GlobalRegField& field,
               GlobalRegRecord& record) noexcept {
  auto* memory = reinterpret_cast<unsigned char*>(&record) + field.offset;
  if (field.kind != GlobalRegFieldKind::Text) {
    if (entry.length != field.width) return false;
    storeNumber(decode(entry.bytes, entry.length), field.width, memory);
    return true;
  }
  const std::size_t length = ::strnlen(reinterpret_cast<const char*>(entry.bytes), entry.length);
  if (length == entry.length || entry.length > field.width) return false;
  std::memcpy(memory, entry.bytes, length);
  return true;
}

}  // namespace

GlobalStoredReader::GlobalStoredReader(const void* stored, std::size_t length) noexcept
    : bytes_(static_cast<const unsigned char*>(stored)), length_(length) {
  if (stored == nullptr || !hasHeader()) return;
  type_ = static_cast<std::uint32_t>(decode(bytes_, globalTypeWidth));
  fieldMask_ = decode(bytes_ + globalTypeWidth, globalMaskWidth);
  missingMask_ = decode(bytes_ + globalTypeWidth + globalMaskWidth, globalMaskWidth);
  // Records of no known type have no entries, whatever their mask says.
  bitsLeft_ = globalRegFindType(type_) == nullptr ? 0 : fieldMask_ & globalEntryBits;
}

bool GlobalStoredReader::next(GlobalEntry& entry) noexcept {
  if (bitsLeft_ == 0 || !ok_) return false;
  const std::size_t room = length_ - globalCheckSumWidth - offset_;
  const std::size_t length =
      room < globalEntryHeader
          ? room
          : static_cast<std::size_t>(decode(bytes_ + offset_, globalEntryHeader));
  ok_ = room >= globalEntryHeader && room - globalEntryHeader >= length;
  if (!ok_) return false;
  entry = {bitsLeft_ & (~bitsLeft_ + 1), bytes_ + offset_ + globalEntryHeader, length};
  bitsLeft_ &= bitsLeft_ - 1;
  offset_ += globalEntryHeader + length;
  return true;
}

std::uint32_t GlobalStoredReader::checkSum() const noexcept {
  return static_cast<std::uint32_t>(decode(bytes_ + offset_, globalCheckSumWidth));
}

unsigned int unpackGlobal(const void* stored, std::size_t length, bool exact,
                          GlobalRegRecord& record) noexcept {
  GlobalStoredReader reader(stored, length);
  if (!reader.hasHeader()) return GENREG_RC_MALFORMED_RECORD;
  const GlobalRegType* type = globalRegFindType(reader.type());
  if (type == nullptr) return GENREG_RC_UNKNOWN_RECORD_TYPE;
  // Fields that are not stored must compare alike every time the record is read.
  std::memset(static_cast<void*>(&record), 0, sizeof record);
  record.RecordType = reader.type();
  record.FieldMask = reader.fieldMask();
  record.MissingFieldMask = reader.missingMask() | (type->knownMask & ~record.FieldMask);
  // Fields stand in the table in the order of their entries.
  const GlobalRegField* field = type->fields;
  const GlobalRegField* const end = type->fields + type->fieldCount;
  for (GlobalEntry entry{}; reader.next(entry);) {
    while (field != end && field->bit < entry.bit) ++field;
    if (field == end || field->bit != entry.bit) continue;
    if (!takeEntry(entry, *field, record)) return GENREG_RC_MALFORMED_RECORD;
  }
  if (!reader.ok() || (exact && reader.offset() + globalCheckSumWidth != length)) {
    return GENREG_RC_MALFORMED_RECORD;
  }
  record.CheckSum = static_cast<std::int32_t>(reader.checkSum());
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
      visit(previous.bytes, previous.length, static_cast<const GlobalRegField*>(nullptr));
      continue;
    }
    const GlobalRegField& field = *fieldOf(type_, bit);
    const unsigned char* memory = memoryOf(record_, field);
    std::size_t length = field.width;
    if (field.kind == GlobalRegFieldKind::Text) {
      length = ::strnlen(reinterpret_cast<const char*>(memory), field.width) + 1;
      if (length > field.width) return false;
    }
    visit(memory, length, &field);
  }
  return reader.ok();
}

std::size_t GlobalPacker::measure() const noexcept {
  std::size_t total = globalHeaderWidth + globalCheckSumWidth;
  const bool ok = forEachEntry([&](const unsigned char*, std::size_t length,
                                   const GlobalRegField*) { total += globalEntryHeader + length; });
  return ok ? total : 0;
}

std::size_t GlobalPacker::write(unsigned char* out) const noexcept {
  unsigned char* at = out;
  const auto put = [&](std::uint64_t number, std::size_t width) {
    encode(number, width, at);
    at += width;
  };
  const std::uint64_t named = record_.FieldMask & (type_.knownMask | ~globalEntryBits);
  put(record_.RecordType, globalTypeWidth);
  put(named | carried_, globalMaskWidth);
  put(record_.MissingFieldMask, globalMaskWidth);
  (void)forEachEntry(
      [&](const unsigned char* bytes, std::size_t length, const GlobalRegField* field) {
        put(length, globalEntryHeader);
        if (field != nullptr && field->kind != GlobalRegFieldKind::Text) {
          put(loadNumber(bytes, length), length);
        } else {
          std::memcpy(at, bytes, length);
          at += length;
        }
      });
  put(static_cast<std::uint32_t>(record_.CheckSum), globalCheckSumWidth);
  return static_cast<std::size_t>(at - out);
}

}  // namespace genreg
