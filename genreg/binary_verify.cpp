// GenRegBin's side of the verification pass: reading and matching the records of both files.
#include <cstring>

#include "genreg/binary_store.h"
#include "genreg/core/verification.h"

using genreg::Function;
using genreg::Routine;

namespace {

class BinaryVerification final : public genreg::Verification {
 public:
  BinaryVerification(BinaryStore& store, Routine& routine, std::uint64_t kind, std::uint64_t mask,
                     void* record, void* key) noexcept
      : Verification(store, routine, kind),
        store_(store),
        mask_(mask),
        record_(record),
        key_(key) {}

 private:
  unsigned int allocate(std::uint64_t size) noexcept override {
    size_ = size;
    const unsigned int code = store_.allocate(routine_, old_, size_, GENREG_RC_VERIFY_ALLOC_OLD);
    return code != 0 ? code : store_.allocate(routine_, new_, size_, GENREG_RC_VERIFY_ALLOC_NEW);
  }
  unsigned int releaseOld() noexcept override { return old_.release(); }
  unsigned int releaseNew() noexcept override { return new_.release(); }

  void begin() noexcept override {
    oldCursor_ = store_.mainCursor();
    newCursor_ = store_.secondCursor();
  }
  unsigned int readOld() noexcept override {
    return store_.read(routine_, oldCursor_, old_, size_, GENREG_RC_READ_FAILED, 80);
  }
  unsigned int readNew() noexcept override {
    return store_.read(routine_, newCursor_, new_, size_, GENREG_RC_VERIFY_READ_NEW, 85);
  }

  void passOverKept() noexcept override {
    if (genreg::tracingOn()) return;  // every record that is read is in the trace
    std::size_t left = sameAhead(oldCursor_.stream, newCursor_.stream).size();
    const std::string_view kept =
        store_.passOver(oldCursor_, [&left](const char*, std::size_t length) {
          const std::size_t frame = genreg::lengthWidth + length;
          if (frame > left) return false;
          left -= frame;
          return true;
        });
    platform::skipStream(newCursor_.stream, kept.size());
    newCursor_.offset += kept.size();
  }
  bool isKept() const noexcept override {
    return old_.length == new_.length &&
           std::memcmp(old_.stored.data(), new_.stored.data(), old_.length) == 0;
  }
  unsigned int oldMatchesKey(bool* matches) noexcept override {
    if (const unsigned int code = store_.unpack(routine_, old_, size_, 90); code != 0) return code;
    *matches = store_.matches(mask_, store_.record(old_), key_);
    return GENREG_RC_OK;
  }
  unsigned int newIsTheRecord(bool* equal) noexcept override {
    if (const unsigned int code = store_.unpack(routine_, new_, size_, 95); code != 0) return code;
    *equal = store_.matches(GENREG_ALL_FIELDS, store_.record(new_), record_);
    return GENREG_RC_OK;
  }

  std::uint64_t oldOffset() const noexcept override { return oldCursor_.offset; }
  std::uint64_t newOffset() const noexcept override { return newCursor_.offset; }

  BinaryStore& store_;
  std::uint64_t mask_;
  void* record_;
  void* key_;
  std::uint64_t size_ = 0;
  LoadedRecord old_{__LINE__};
  LoadedRecord new_{__LINE__};
  RecordCursor oldCursor_{};
  RecordCursor newCursor_{};
};

}  // namespace

unsigned int BinaryStore::verifyUpdate(std::uint64_t kind, std::uint64_t mask, void* record,
                                       void* key) noexcept {
  Routine routine(Function::binVerifyUpdate);
  return routine.exit(BinaryVerification(*this, routine, kind, mask, record, key)
                          .run(Function::binCheckHooks, checkHooks()));
}
