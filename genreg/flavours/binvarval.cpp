// GenRegBinVarVal: the hooks of 36-byte variable records.
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "genreg/core/registry_handle.h"
#include "genreg/stored_form.h"
#include "genreg_binvarval.h"

using genreg::Function;
using genreg::Likeness;
using genreg::Routine;

namespace {

static_assert(sizeof(BinVarValRecord) == 36, "a record is stored as it lies in memory");

// Compares two names within their fields: a record from disk need not hold a terminator. Most
// differ in their first bytes, so a loop here is faster than a call.
bool equalNames(const char* left, const char* right) {
  for (std::size_t i = 0; i < sizeof(BinVarValRecord::Variable); ++i) {
    if (left[i] != right[i]) return false;
    if (left[i] == '\0') return true;
  }
  return true;
}

// `record`: its bytes, at any address.
bool isLike(std::uint64_t mask, const void* record, const BinVarValRecord& key) {
  const auto* bytes = static_cast<const char*>(record);
  return ((mask & BINVARVAL_VARIABLE) == 0 ||
          equalNames(bytes + offsetof(BinVarValRecord, Variable), key.Variable)) &&
         ((mask & BINVARVAL_VALUE) == 0 ||
          std::memcmp(bytes + offsetof(BinVarValRecord, Value), &key.Value, sizeof key.Value) == 0);
}

unsigned int compareRecord(std::uint64_t mask, void* record, void* key) {
  Routine routine(Function::binVarValCompareRecord);
  if (record == nullptr) {
    (void)routine.fail(GENREG_RC_NO_ARGUMENT, 10);
    return routine.exit(0);
  }
  if (key == nullptr) {
    (void)routine.fail(GENREG_RC_NO_ARGUMENT, 20);
    return routine.exit(0);
  }
  const bool like = isLike(mask, record, *static_cast<const BinVarValRecord*>(key));
  return routine.exit(like ? 1 : 0);
}

unsigned int validateKey(std::uint64_t, void*) {
  Routine routine(Function::binVarValValidateKey);
  return routine.exit(GENREG_RC_OK);
}

unsigned int getRecordLength(const void*, std::uint64_t* length) {
  Routine routine(Function::binVarValGetRecordLength);
  *length = sizeof(BinVarValRecord);
  return routine.exit(GENREG_RC_OK);
}

// A record of any other length is filled up or cut by the engine first.
Likeness liken(std::uint64_t mask, const char* stored, std::size_t length,
               const void* key) noexcept {
  if (length != sizeof(BinVarValRecord)) return Likeness::Unclear;
  return isLike(mask, stored, *static_cast<const BinVarValRecord*>(key)) ? Likeness::Matches
                                                                         : Likeness::Differs;
}

void take(const char* stored, std::size_t length, void* record) noexcept {
  std::memcpy(record, stored, length);
}

const genreg::StoredForm ownForm{compareRecord, nullptr, sizeof(BinVarValRecord),
                                 liken,         take,    nullptr};

unsigned int getRecordSize(std::uint64_t* size) {
  Routine routine(Function::binVarValGetRecordSize);
  *size = sizeof(BinVarValRecord);
  return routine.exit(GENREG_RC_OK);
}

}  // namespace

GenRegBinVarVal::GenRegBinVarVal(const char* path, unsigned int* rc) noexcept {
  Routine routine(Function::binVarValConstructor);
  const FlavourHooks hooks{compareRecord, validateKey,   PrintRecord,     nullptr,
                           nullptr,       getRecordSize, getRecordLength, &ownForm};
  if (routine.exit(RegistryHandle::setUp(*this, routine, path, hooks, rc)) != 0) return;
  (void)setFeature(GENREG_ALLOW_DUPLICATES);
  (void)setFeature(GENREG_VERIFY_UPDATES);
}

GenRegBinVarVal::~GenRegBinVarVal() { Routine routine(Function::binVarValDestructor); }

unsigned int GenRegBinVarVal::PrintRecord(void* record) noexcept {
  if (record == nullptr) {
    // Only its failure is recorded; a dump is not traced.
    return genreg::logFailure(Function::binVarValPrintRecord, GENREG_RC_NO_ARGUMENT, 10);
  }
  const auto& fields = *static_cast<const BinVarValRecord*>(record);
  std::printf("   Variable = |%.*s|\n", static_cast<int>(sizeof fields.Variable), fields.Variable);
  std::printf("   Value    = %i\n", fields.Value);
  std::printf("   Comment  = |%.*s|\n", static_cast<int>(sizeof fields.Comment), fields.Comment);
  return GENREG_RC_OK;
}
