#include "faces/unknown_fields.h"

#include <charconv>
#include <cstdio>
#include <map>

#include "genreg/flavours/global_codec.h"

namespace faces {
namespace {

constexpr std::size_t longestEntry = 0xFFFF;  // bytes

void append(std::string& stored, std::uint64_t number, std::size_t width) {
  for (std::size_t i = 0; i < width; ++i) stored += static_cast<char>(number >> (8 * i));
}

}  // namespace

std::string unknownFieldName(std::uint64_t bit) {
  char name[32];
  (void)std::snprintf(name, sizeof name, "Field0x%llx", static_cast<unsigned long long>(bit));
  return name;
}

std::uint64_t unknownBitOf(std::string_view name, const GlobalRegType& type) {
  constexpr std::string_view prefix = "Field0x";
  std::uint64_t bit = 0;
  if (name.substr(0, prefix.size()) != prefix) return 0;
  const char* const end = name.data() + name.size();
  const auto [stop, error] = std::from_chars(name.data() + prefix.size(), end, bit, 16);
  const bool isOne = error == std::errc() && stop == end && (bit & (bit - 1)) == 0;
  return isOne && (bit & type.knownMask) == 0 && name == unknownFieldName(bit) ? bit : 0;
}

bool takeContent(std::string_view value, std::uint64_t bit, std::string& bytes) {
  const std::size_t digits = value.size() - 2;
  if (value.substr(0, 2) != "0x" || digits % 2 != 0 || digits / 2 > longestEntry) return false;
  if ((bit & genreg::globalEntryBits) == 0 && digits != 0) return false;
  bytes.clear();
  for (std::size_t at = 2; at < value.size(); at += 2) {
    unsigned char byte = 0;
    const char* const end = value.data() + at + 2;
    if (std::from_chars(value.data() + at, end, byte, 16).ptr != end) return false;
    bytes += static_cast<char>(byte);
  }
  return true;
}

NamedFields unknownFieldsOf(std::string_view stored) {
  constexpr char digits[] = "0123456789abcdef";
  NamedFields fields;
  genreg::GlobalStoredReader reader(stored.data(), stored.size());
  const GlobalRegType* const type = globalRegFindType(reader.type());
  if (type == nullptr) return fields;
  for (genreg::GlobalEntry entry{}; reader.next(entry);) {
    if ((entry.bit & type->knownMask) != 0) continue;
    std::string value = "0x";
    for (std::size_t i = 0; i < entry.length; ++i) {
      value += digits[entry.bytes[i] >> 4];
      value += digits[entry.bytes[i] & 0xF];
    }
    fields.set(unknownFieldName(entry.bit), std::move(value));
  }
  const std::uint64_t bare = reader.fieldMask() & ~genreg::globalEntryBits;
  if (bare != 0) fields.set(unknownFieldName(bare), "0x");
  return fields;
}

std::string storedFormOf(const NamedFields& given, const GlobalRegType& type) {
  std::map<std::uint64_t, std::string> entries;  // in the order of their bits
  std::uint64_t mask = 0;
  for (const auto& [name, value] : given.all()) {
    const std::uint64_t bit = unknownBitOf(name, type) & genreg::globalEntryBits;
    std::string bytes;
    if (bit == 0 || !takeContent(value, bit, bytes)) continue;
    entries[bit] = std::move(bytes);
    mask |= bit;
  }
  std::string stored;
  if (mask == 0) return stored;
  append(stored, type.type, genreg::globalTypeWidth);
  append(stored, mask, genreg::globalMaskWidth);
  append(stored, 0, genreg::globalMaskWidth);
  for (const auto& [bit, bytes] : entries) {
    append(stored, bytes.size(), genreg::globalEntryHeader);
    stored += bytes;
  }
  append(stored, 0, genreg::globalCheckSumWidth);
  return stored;
}

}  // namespace faces
