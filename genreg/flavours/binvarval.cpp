// GenRegBinVarVal: the hooks of 36-byte variable records.
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

// Compares two names within their fields: a record from disk need not hold a terminator.
template <std::size_t Size>
bool equalNames(const char (&left)[Size], const char (&right)[Size]) {
  return std::strncmp(left, right, Size) == 0;
}

bool isLike(std::uint64_t mask, const BinVarValRecord& left, const BinVarValRecord& right) {
  return ((mask & BINVARVAL_VARIABLE) == 0 || equalNames(left.Variable, right.Variable)) &&
         ((mask & BINVARVAL_VALUE) == 0 || left.Value == right.Value);
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
  const bool like = isLike(mask, *static_cast<const BinVarValRecord*>(record),
                           *static_cast<const BinVarValRecord*>(key));
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
  BinVarValRecord record;
  if (length != sizeof record) return Likeness::Unclear;
  std::memcpy(&record, stored, sizeof record);
  return isLike(mask, record, *static_cast<const BinVarValRecord*>(key)) ? Likeness::Matches
                                                                         : Likeness::Differs;
}

void take(const char* stored, std::size_t length, void* record) noexcept {
  std::memcpy(record, stored, length);
}

const genreg::StoredForm ownForm{compareRecord, nullptr, sizeof(BinVarValRecord), liken, take};

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
