// GenRegBinVarVal: the hooks of 36-byte variable records.
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "genreg/flavours/flavour.h"
#include "genreg_binvarval.h"

using genreg::Function;
using genreg::Match;
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
bool matchesKey(std::uint64_t mask, const void* record, const BinVarValRecord& key) {
  const auto* bytes = static_cast<const char*>(record);
  return ((mask & BINVARVAL_VARIABLE) == 0 ||
          equalNames(bytes + offsetof(BinVarValRecord, Variable), key.Variable)) &&
         ((mask & BINVARVAL_VALUE) == 0 ||
          std::memcmp(bytes + offsetof(BinVarValRecord, Value), &key.Value, sizeof key.Value) == 0);
}

struct BinVarVal {
  using Record = BinVarValRecord;
  static constexpr genreg::FlavourNames names{
      Function::binVarValValidateKey, Function::binVarValCompareRecord,
      Function::binVarValGetRecordSize, Function::binVarValGetRecordLength};
  static bool matches(std::uint64_t mask, const Record& record, const Record& key) {
    return matchesKey(mask, &record, key);
  }
};

// Every key and record is accepted as it is.
unsigned int validateKey(std::uint64_t, void*) {
  const Routine routine(Function::binVarValValidateKey);
  return GENREG_RC_OK;
}

// A record of any other length is filled up or cut by the engine first.
Match match(std::uint64_t mask, const char* stored, std::size_t length, const void* key) noexcept {
  if (length != sizeof(BinVarValRecord)) return Match::Unclear;
  return matchesKey(mask, stored, *static_cast<const BinVarValRecord*>(key)) ? Match::Matches
                                                                             : Match::Differs;
}

bool fill(const char* stored, std::size_t length, void* record) noexcept {
  if (length != sizeof(BinVarValRecord)) return false;
  std::memcpy(record, stored, length);
  return true;
}

bool hashOf(std::uint64_t mask, const void* record, genreg::IdentityHash* hash) noexcept {
  const auto& fields = *static_cast<const BinVarValRecord*>(record);
  if ((mask & BINVARVAL_VARIABLE) != 0) hash->addText(fields.Variable, sizeof fields.Variable);
  if ((mask & BINVARVAL_VALUE) != 0) hash->addBytes(&fields.Value, sizeof fields.Value);
  return (mask & (BINVARVAL_VARIABLE | BINVARVAL_VALUE)) != 0;
}

std::uint64_t identityOf(const void*) noexcept { return BINVARVAL_IDENTITY; }

using Hook = genreg::FlavourHook<BinVarVal>;

bool accepts(std::uint64_t) noexcept { return true; }

const genreg::RecordForm recordForm{Hook::compareRecord,
                                    validateKey,
                                    GenRegBinVarVal::PrintRecord,
                                    nullptr,
                                    nullptr,
                                    nullptr,
                                    Hook::getRecordSize,
                                    Hook::getRecordLength,
                                    nullptr,
                                    sizeof(BinVarValRecord),
                                    match,
                                    fill,
                                    hashOf,
                                    identityOf,
                                    accepts,
                                    match};

}  // namespace

GenRegBinVarVal::GenRegBinVarVal(const char* path, unsigned int* rc) noexcept {
  Routine routine(Function::binVarValConstructor);
  if (genreg::HandleAccess::setUp(*this, routine, path, &recordForm, rc) != 0) return;
  (void)setFeature(GENREG_ALLOW_DUPLICATES);
  (void)setFeature(GENREG_VERIFY_UPDATES);
}

GenRegBinVarVal::~GenRegBinVarVal() { const Routine routine(Function::binVarValDestructor); }

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
