// The bytes are the stored form of a global registry record, which may be anything.
//   - Nothing is read past them.
//   - Matching them as they are refuses what unpacking refuses, and finds each field of the record
//     by what it holds and by nothing else.
//   - A record that could be read is packed, with these bytes as the record it replaces, into a
//     stored form that is read as the same record; packing that again changes nothing.
//   - What is shown of fields that the library does not know is stored as those fields again.
#include <cstring>
#include <vector>

#include "faces/unknown_fields.h"
#include "genreg/flavours/global_codec.h"
#include "targets.h"

namespace {

std::vector<unsigned char> packed(const GlobalRegRecord& record, const unsigned char* previous,
                                  std::size_t length) {
  const genreg::GlobalPacker packer(record, *globalRegFindType(record.RecordType), previous,
                                    length);
  require(packer.unsupplied() == 0);
  std::vector<unsigned char> bytes(packer.measure());
  require(!bytes.empty() && packer.write(bytes.data()) == bytes.size());
  return bytes;
}

bool matches(const std::vector<unsigned char>& stored, std::uint64_t mask,
             const GlobalRegRecord& key) {
  bool same = false;
  require(genreg::matchGlobal(stored.data(), stored.size(), mask, key, &same) == 0);
  return same;
}

void requireMatches(const std::vector<unsigned char>& stored, const GlobalRegRecord& record) {
  GlobalRegRecord key = record;
  require(matches(stored, GENREG_ALL_FIELDS, key));
  const GlobalRegType& type = *globalRegFindType(record.RecordType);
  for (std::size_t i = 0; i < type.fieldCount; ++i) {
    const GlobalRegField& field = type.fields[i];
    auto* memory = reinterpret_cast<unsigned char*>(&key) + field.offset;
    *memory ^= 1;
    require(!matches(stored, field.bit, key) && matches(stored, ~field.bit, key));
    *memory ^= 1;
  }
}

}  // namespace

int fuzzStoredRecord(const std::uint8_t* data, std::size_t size) {
  GlobalRegRecord record;
  // A copy of exactly this size, so that one byte too many is seen.
  const std::vector<unsigned char> stored(data, data + size);
  (void)genreg::unpackGlobal(stored.data(), stored.size(), false, record);
  const unsigned int code = genreg::unpackGlobal(stored.data(), stored.size(), true, record);
  if (code != 0) {
    bool same = false;
    require(genreg::matchGlobal(stored.data(), stored.size(), 0, {}, &same) == code);
    return 0;
  }
  requireMatches(stored, record);
  const GlobalRegType& type = *globalRegFindType(record.RecordType);
  const std::string_view bytes(reinterpret_cast<const char*>(stored.data()), size);
  const std::string kept = faces::storedFormOf(faces::unknownFieldsOf(bytes), type);
  require(faces::storedFormOf(faces::unknownFieldsOf(kept), type) == kept);
  const std::vector<unsigned char> once = packed(record, stored.data(), stored.size());
  GlobalRegRecord again;
  require(genreg::unpackGlobal(once.data(), once.size(), true, again) == 0);
  require(std::memcmp(&record, &again, sizeof record) == 0);
  require(packed(again, once.data(), once.size()) == once);
  return 0;
}
