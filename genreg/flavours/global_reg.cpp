// GlobalReg: where its file is, and its hooks.
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "genreg/core/record_buffer.h"
#include "genreg/flavours/flavour.h"
#include "genreg/flavours/global_codec.h"
#include "genreg/record_span.h"
#include "genreg_global.h"
#include "sysservices/environment.h"
#include "sysservices/file_system.h"

using genreg::Function;
using genreg::Match;
using genreg::RecordBuffer;
using genreg::RecordSpan;
using genreg::RecordSpanScope;
using genreg::Routine;

namespace {

constexpr std::size_t pathBufferSize = 261;  // bytes

// Stores the path in `path` of *size bytes, and the bytes it needs in *size. Returns 0,
// GENREG_RC_GLOBAL_PATH_SMALL, or GENREG_RC_PATH_ENCODING: another file would be a wrong answer.
unsigned int getGlobalRegPath(char* path, unsigned short* size) {
  char standard[] = "./global.reg";
  standard[1] = ossPathSeparator;
  const std::ptrdiff_t named = ossEnvironmentGet("ZOR_GLOBAL_REG_PATHNAME", path, *size);
  if (named == ossNoValue) return GENREG_RC_PATH_ENCODING;
  const std::size_t needed = named < 0 ? sizeof standard : static_cast<std::size_t>(named) + 1;
  const bool fits = needed <= *size;
  if (named < 0 && fits) std::memcpy(path, standard, needed);
  *size = static_cast<unsigned short>(needed < 0xFFFF ? needed : 0xFFFF);
  return fits ? GENREG_RC_OK : GENREG_RC_GLOBAL_PATH_SMALL;
}

std::uint32_t flagOf(const GlobalRegRecord& record, const GlobalRegField& field) {
  std::uint32_t flag = 0;
  std::memcpy(&flag, genreg::globalMemoryOf(record, field), sizeof flag);
  return flag;
}

bool isAcceptable(const GlobalRegRecord& record, const GlobalRegField& field) {
  switch (field.kind) {
    case GlobalRegFieldKind::Text:
      return *genreg::globalMemoryOf(record, field) != '\0';
    case GlobalRegFieldKind::Flag:
      return flagOf(record, field) <= 1;
    default:
      return true;
  }
}

// The fields of a record of one type: first what each holds, then what the mask selects.
unsigned int checkFields(const GlobalRegType& type, std::uint64_t mask,
                         const GlobalRegRecord& record) {
  for (std::size_t i = 0; i < type.fieldCount; ++i) {
    const GlobalRegField& field = type.fields[i];
    const bool checked = (record.FieldMask & field.bit) != 0 && field.badCode != 0;
    if (checked && !isAcceptable(record, field)) return field.badCode;
  }
  for (std::size_t i = 0; i < type.fieldCount; ++i) {
    const GlobalRegField& field = type.fields[i];
    const bool checked = (mask & field.bit) != 0 && field.absentCode != 0;
    if (checked && (record.FieldMask & field.bit) == 0) return field.absentCode;
  }
  return GENREG_RC_OK;
}

bool equalFields(const GlobalRegField& field, const GlobalRegRecord& left,
                 const GlobalRegRecord& right) {
  const void* first = genreg::globalMemoryOf(left, field);
  const void* second = genreg::globalMemoryOf(right, field);
  if (field.kind == GlobalRegFieldKind::Text) {
    return std::strncmp(static_cast<const char*>(first), static_cast<const char*>(second),
                        field.width) == 0;
  }
  return std::memcmp(first, second, field.width) == 0;
}

struct Global {
  using Record = GlobalRegRecord;
  static constexpr genreg::FlavourNames names{
      Function::globalValidateKey, Function::globalCompareRecord, Function::globalGetRecordSize,
      Function::globalGetRecordLength};

  static bool validate(Routine& routine, std::uint64_t mask, Record& record) {
    if (mask == 0) return true;
    if (record.RecordType == 0 || record.RecordType > GLOBALREG_RECORD_VARIABLE) {
      return routine.fail(GENREG_RC_BAD_RECORD_TYPE, 20, genreg::number(record.RecordType));
    }
    if (record.FieldMask == 0) return routine.fail(GENREG_RC_NO_FIELDS, 30);
    record.MissingFieldMask = 0;
    const GlobalRegType* type = globalRegFindType(record.RecordType);
    const unsigned int code = type == nullptr ? 0 : checkFields(*type, mask, record);
    return code == 0 ||
           routine.fail(code, 40, genreg::number(mask), genreg::number(record.FieldMask));
  }

  static bool matches(std::uint64_t mask, const Record& record, const Record& key) {
    if (key.RecordType != 0 && key.RecordType != record.RecordType) return false;
    const GlobalRegType* type = mask == 0 ? nullptr : globalRegFindType(record.RecordType);
    for (std::size_t i = 0; type != nullptr && i < type->fieldCount; ++i) {
      const GlobalRegField& field = type->fields[i];
      if ((mask & field.bit) != 0 && !equalFields(field, record, key)) return false;
    }
    return true;
  }
};

void printField(const GlobalRegField& field, const GlobalRegRecord& record) {
  const unsigned char* memory = genreg::globalMemoryOf(record, field);
  std::uint64_t number = 0;
  switch (field.kind) {
    case GlobalRegFieldKind::Text:
      std::printf("      %s = |%.*s|\n", field.label, static_cast<int>(field.width),
                  reinterpret_cast<const char*>(memory));
      break;
    case GlobalRegFieldKind::Flag:
      std::printf("      %s = %i\n", field.label, static_cast<int>(flagOf(record, field)));
      break;
    default:
      std::memcpy(&number, memory, sizeof number);
      std::printf("      %s = %" PRIu64 "\n", field.label, number);
  }
}

unsigned int printRecord(void* record) {
  if (record == nullptr) return GENREG_RC_NO_ARGUMENT;
  const auto& fields = *static_cast<const GlobalRegRecord*>(record);
  std::printf("   RecordType   = %d\n", static_cast<int>(fields.RecordType));
  std::printf("   FieldMask    = %" PRId64 "\n", static_cast<std::int64_t>(fields.FieldMask));
  std::printf("   MissingFieldMask = %" PRId64 "\n",
              static_cast<std::int64_t>(fields.MissingFieldMask));
  const GlobalRegType* type = globalRegFindType(fields.RecordType);
  if (type == nullptr) return GENREG_RC_OK;
  if (type->type == GLOBALREG_RECORD_SERVICES) {
    std::printf("Services record not yet implemented\n");
    return GENREG_RC_OK;
  }
  std::printf("   %sRecord:\n", type->word);
  for (std::size_t i = 0; i < type->fieldCount; ++i) {
    if (type->fields[i].label != nullptr) printField(type->fields[i], fields);
  }
  std::printf("      CheckSum    = %i\n", fields.CheckSum);
  return GENREG_RC_OK;
}

unsigned int notifyChange(GenRegBase*, std::uint64_t, void*, void*) { return GENREG_RC_OK; }

// The stored form at `memory`: its length when the engine tells it, else no more than any can have.
struct Stored {
  explicit Stored(const void* memory) noexcept {
    const RecordSpan* span = RecordSpanScope::find(memory);
    exact = span != nullptr && span->stored != 0;
    length = exact ? span->stored : genreg::globalLongestStored;
  }
  std::size_t length;
  bool exact;
};

unsigned int unpackRecord(void** record) {
  Routine routine(Function::globalUnpackRecord);
  if (*record == nullptr) return routine.refuse(GENREG_RC_NO_ARGUMENT, 4);
  RecordBuffer work;
  if (const unsigned int code = work.reserve(sizeof(GlobalRegRecord)); code != 0) {
    (void)routine.failFrom(genreg::probeMemAlloc, code, GENREG_RC_UNPACK_ALLOC, 5);
    return routine.code();
  }
  const Stored stored(*record);
  if (const unsigned int code = genreg::unpackGlobal(*record, stored.length, stored.exact,
                                                     *static_cast<GlobalRegRecord*>(work.data()));
      code != 0) {
    const std::uint64_t length = stored.length;
    (void)routine.fail(code, 10, genreg::number(length));
  } else {
    std::memcpy(*record, work.data(), sizeof(GlobalRegRecord));
  }
  if (const unsigned int code = work.release(); code != 0) {
    (void)routine.failFrom(genreg::probeMemFree, code, GENREG_RC_UNPACK_FREE, 20);
    routine.replace(GENREG_RC_UNPACK_FREE);
  }
  return routine.code();
}

Match match(std::uint64_t mask, const char* stored, std::size_t length, const void* key) noexcept {
  bool matches = false;
  const unsigned int code = genreg::matchGlobal(
      stored, length, mask, *static_cast<const GlobalRegRecord*>(key), &matches);
  if (code != 0) return Match::Unclear;
  return matches ? Match::Matches : Match::Differs;
}

bool fill(const char* stored, std::size_t length, void* record) noexcept {
  return genreg::unpackGlobal(stored, length, true, *static_cast<GlobalRegRecord*>(record)) == 0;
}

bool hashOf(std::uint64_t mask, const void* record, genreg::IdentityHash* hash) noexcept {
  const auto& fields = *static_cast<const GlobalRegRecord*>(record);
  const GlobalRegType* type = globalRegFindType(fields.RecordType);
  if (type == nullptr || (mask & type->knownMask) == 0) return false;
  hash->add(static_cast<char>(type->type));
  for (std::size_t i = 0; i < type->fieldCount; ++i) {
    const GlobalRegField& field = type->fields[i];
    if ((mask & field.bit) == 0) continue;
    const unsigned char* memory = genreg::globalMemoryOf(fields, field);
    if (field.kind == GlobalRegFieldKind::Text) {
      hash->addText(reinterpret_cast<const char*>(memory), field.width);
    } else {
      hash->addBytes(memory, field.width);
    }
  }
  return true;
}

std::uint64_t identityOf(const void* record) noexcept {
  const GlobalRegType* type =
      globalRegFindType(static_cast<const GlobalRegRecord*>(record)->RecordType);
  return type == nullptr ? 0 : type->identity;
}

using Hook = genreg::FlavourHook<Global>;

bool accepts(std::uint64_t mask) noexcept { return mask == 0; }

// Without a field to compare, the type decides.
Match matchToFill(std::uint64_t mask, const char* stored, std::size_t length,
                  const void* key) noexcept {
  const std::uint32_t wanted = static_cast<const GlobalRegRecord*>(key)->RecordType;
  const bool decides =
      mask == 0 && (wanted == 0 || genreg::GlobalStoredReader(stored, length).type() == wanted);
  return decides ? Match::Matches : match(mask, stored, length, key);
}

unsigned int getPackedLength(const void* packed, std::uint64_t* length) {
  const Routine routine(Function::globalGetPackedLength);
  genreg::GlobalStoredReader reader(packed, Stored(packed).length);
  for (genreg::GlobalEntry entry{}; reader.next(entry);) continue;
  *length = reader.offset() + genreg::globalCheckSumWidth;
  return GENREG_RC_OK;
}

// Fields that nobody knows and nobody supplies cannot be stored: each is reported and left out.
void reportUnsupplied(const Routine& routine, const GlobalRegType& type, std::uint64_t bits) {
  for (; bits != 0; bits &= bits - 1) {
    const std::uint64_t bit = bits & (~bits + 1);
    routine.trace(911, genreg::number(bit));
    std::printf("PackRecord: unknown %s field: %" PRIu64 "\n", type.word, bit);
  }
}

void packInto(Routine& routine, const genreg::GlobalPacker& packer, void* memory) {
  const std::uint64_t expected = packer.measure();
  if (expected == 0) {
    (void)routine.fail(GENREG_RC_MALFORMED_RECORD, 20);
    return;
  }
  // Of memory that is not the engine's only that it held the record is known.
  const RecordSpan* span = RecordSpanScope::find(memory);
  const std::uint64_t capacity = span != nullptr ? span->capacity : sizeof(GlobalRegRecord);
  RecordBuffer work;
  if (const unsigned int code = work.reserve(expected); code != 0) {
    (void)routine.failFrom(genreg::probeMemAlloc, code, GENREG_RC_PACK_ALLOC, 30);
    return;
  }
  const std::uint64_t written = packer.write(work.bytes());
  if (written != expected || written > capacity) {
    (void)routine.fail(GENREG_RC_PACK_LENGTH, 40, genreg::number(written), genreg::number(expected),
                       genreg::number(capacity));
  } else {
    std::memcpy(memory, work.data(), written);
  }
  if (const unsigned int code = work.release(); code != 0) {
    (void)routine.failFrom(genreg::probeMemFree, code, GENREG_RC_PACK_FREE, 50);
  }
}

unsigned int packRecord(void** record, void* previous) {
  Routine routine(Function::globalPackRecord);
  const auto& fields = *static_cast<const GlobalRegRecord*>(*record);
  const GlobalRegType* type = globalRegFindType(fields.RecordType);
  // Stored, such a record could never be read again, and neither could any behind it.
  if (type == nullptr) {
    return routine.refuse(GENREG_RC_UNKNOWN_RECORD_TYPE, 10, genreg::number(fields.RecordType));
  }
  const genreg::GlobalPacker packer(fields, *type, previous, Stored(previous).length);
  reportUnsupplied(routine, *type, packer.unsupplied());
  packInto(routine, packer, *record);
  return routine.code();
}

const genreg::RecordForm recordForm{Hook::compareRecord,
                                    Hook::validateKey,
                                    printRecord,
                                    notifyChange,
                                    unpackRecord,
                                    packRecord,
                                    Hook::getRecordSize,
                                    Hook::getRecordLength,
                                    getPackedLength,
                                    sizeof(GlobalRegRecord),
                                    match,
                                    fill,
                                    hashOf,
                                    identityOf,
                                    accepts,
                                    matchToFill};

}  // namespace

GlobalReg::GlobalReg() noexcept : GlobalReg(nullptr, nullptr) {}

GlobalReg::GlobalReg(const char* path, unsigned int* rc) noexcept {
  Routine routine(Function::globalConstructor);
  genreg::HandleAccess::install(*this, recordForm);
  char own[pathBufferSize];
  unsigned short size = sizeof own;
  unsigned int code = 0;
  if (path == nullptr) {
    code = getGlobalRegPath(own, &size);
    path = own;
  }
  if (code == 0) code = genreg::HandleAccess::checkPath(path);
  if (code != 0) {
    // Without a path there are no names, and without names no operation.
    const std::uint64_t needed = size;
    (void)routine.fail(code, 10, genreg::number(needed));
  } else if (genreg::HandleAccess::nameFiles(*this, routine, path) == 0) {
    (void)unsetFeature(GENREG_ALLOW_DUPLICATES);
    (void)setFeature(GENREG_VERIFY_UPDATES);
    (void)setFeature(GENREG_PACKED_RECORDS);
    (void)setFeature(GENREG_NOTIFY_CHANGE);
  }
  if (rc != nullptr) *rc = routine.code();
}

GlobalReg::~GlobalReg() = default;
