// The verification pass: the old registry file and the new temporary file are read side by side
// under the update lock, and the new one is committed only when the two differ by exactly the
// operation's change. Records that the operation did not touch must be the same byte for byte.
#include <cstring>

#include "genreg/binary_store.h"
#include "genreg/core/registry_handle.h"

using genreg::Function;
using genreg::Outcome;
using genreg::Routine;

namespace {

class Verification {
 public:
  Verification(BinaryStore& store, Routine& routine, std::uint64_t kind, std::uint64_t mask,
               void* record, void* key, std::uint64_t size) noexcept
      : store_(store),
        routine_(routine),
        kind_(kind),
        mask_(mask),
        record_(record),
        key_(key),
        size_(size) {}

  unsigned int allocate() noexcept {
    if (const unsigned int code =
            store_.allocate(routine_, old_, size_, GENREG_RC_VERIFY_ALLOC_OLD);
        code != 0) {
      return code;
    }
    return store_.allocate(routine_, new_, size_, GENREG_RC_VERIFY_ALLOC_NEW);
  }

  unsigned int compareFiles() noexcept {
    if (!store_.canCompare()) return routine_.fail(GENREG_RC_NO_COMPARE_HOOK, 75);
    oldCursor_ = store_.mainCursor();
    newCursor_ = store_.secondCursor();
    if (const unsigned int code = readBoth(); code != 0) return code;
    while (haveOld_ && haveNew_) {
      if (const unsigned int code = comparePair(); code != 0) return code;
      if (const unsigned int code = readBoth(); code != 0) return code;
    }
    if (const unsigned int code = checkEnds(); code != 0) return code;
    if (changes_ > 1 && !store_.has(GENREG_ALLOW_DUPLICATES)) {
      return finding(GENREG_RC_VERIFY_MANY, 140);
    }
    return changes_ == 0 ? finding(GENREG_RC_VERIFY_NOTHING_CHANGED, 150) : GENREG_RC_OK;
  }

  void release(Outcome& outcome) noexcept {
    if (const unsigned int code = new_.release(); code != 0) {
      outcome.note(routine_.failFrom(genreg::probeMemFree, code, GENREG_RC_VERIFY_FREE_NEW, 170));
    }
    if (const unsigned int code = old_.release(); code != 0) {
      outcome.note(routine_.failFrom(genreg::probeMemFree, code, GENREG_RC_VERIFY_FREE_OLD, 180));
    }
  }

 private:
  unsigned int finding(unsigned int code, unsigned int point) const noexcept {
    return routine_.fail(code, point, genreg::wide(oldCursor_.offset),
                         genreg::wide(newCursor_.offset));
  }

  unsigned int read(RecordCursor& cursor, LoadedRecord& into, bool& have, unsigned int failed,
                    unsigned int point) noexcept {
    const unsigned int code = store_.load(routine_, cursor, into, size_, failed, point);
    have = code == 0;
    return code == GENREG_RC_END ? GENREG_RC_OK : code;
  }
  unsigned int readOld() noexcept {
    return read(oldCursor_, old_, haveOld_, GENREG_RC_READ_FAILED, 80);
  }
  unsigned int readNew() noexcept {
    return read(newCursor_, new_, haveNew_, GENREG_RC_VERIFY_READ_NEW, 85);
  }
  unsigned int readBoth() noexcept {
    const unsigned int code = readOld();
    return code != 0 ? code : readNew();
  }

  void* oldRecord() const noexcept { return store_.record(old_); }
  void* newRecord() const noexcept { return store_.record(new_); }
  bool equal(void* left, void* right) const noexcept {
    return store_.matches(GENREG_ALL_FIELDS, left, right);
  }
  bool oldMatchesKey() const noexcept { return store_.matches(mask_, oldRecord(), key_); }

  // Two records that the flavour calls equal are one kept record, which must be untouched.
  unsigned int checkKept() const noexcept {
    const bool same = old_.length == new_.length &&
                      std::memcmp(old_.stored.data(), new_.stored.data(), old_.length) == 0;
    return same ? GENREG_RC_OK : finding(GENREG_RC_VERIFY_UNEXPECTED, 90);
  }

  unsigned int comparePair() noexcept {
    if (equal(oldRecord(), newRecord())) return checkKept();
    switch (kind_) {
      case GENREG_OP_CHANGE:
        if (!oldMatchesKey()) return finding(GENREG_RC_VERIFY_CHANGED_KEY, 100);
        if (!equal(newRecord(), record_)) return finding(GENREG_RC_VERIFY_UNEXPECTED, 101);
        ++changes_;
        return GENREG_RC_OK;
      case GENREG_OP_DELETE:
        return skipDeleted();
      default:
        return finding(GENREG_RC_VERIFY_ADD_CHANGED, 105);
    }
  }

  // The old record is gone: pass over every deleted one until the new file's record is met.
  unsigned int skipDeleted() noexcept {
    do {
      if (!oldMatchesKey()) return finding(GENREG_RC_VERIFY_REMOVED_KEY, 110);
      ++changes_;
      if (const unsigned int code = readOld(); code != 0) return code;
      if (!haveOld_) return finding(GENREG_RC_VERIFY_OLD_ENDED, 111);
    } while (!equal(newRecord(), oldRecord()));
    return checkKept();
  }

  unsigned int checkEnds() noexcept {
    switch (kind_) {
      case GENREG_OP_CHANGE:
        if (haveOld_) return finding(GENREG_RC_VERIFY_SHORT, 120);
        // A Change adds nothing; a new file that is longer is not its work.
        return haveNew_ ? finding(GENREG_RC_VERIFY_UNEXPECTED, 121) : GENREG_RC_OK;
      case GENREG_OP_DELETE:
        return checkDeletedTail();
      default:
        return checkAdded();
    }
  }

  unsigned int checkDeletedTail() noexcept {
    if (haveNew_) return finding(GENREG_RC_VERIFY_OLD_ENDED, 125);
    while (haveOld_) {
      if (!oldMatchesKey()) return finding(GENREG_RC_VERIFY_UNEXPECTED, 126);
      ++changes_;
      if (const unsigned int code = readOld(); code != 0) return code;
    }
    return GENREG_RC_OK;
  }

  unsigned int checkAdded() noexcept {
    if (haveOld_ || !haveNew_) return finding(GENREG_RC_VERIFY_ADD_COUNT, 130);
    if (!equal(newRecord(), record_)) return finding(GENREG_RC_VERIFY_ADD_RECORD, 131);
    ++changes_;
    if (const unsigned int code = readNew(); code != 0) return code;
    return haveNew_ ? finding(GENREG_RC_VERIFY_ADD_TRAILING, 132) : GENREG_RC_OK;
  }

  BinaryStore& store_;
  Routine& routine_;
  std::uint64_t kind_;
  std::uint64_t mask_;
  void* record_;
  void* key_;
  std::uint64_t size_;
  LoadedRecord old_{__LINE__};
  LoadedRecord new_{__LINE__};
  RecordCursor oldCursor_{};
  RecordCursor newCursor_{};
  bool haveOld_ = false;
  bool haveNew_ = false;
  std::uint64_t changes_ = 0;
};

}  // namespace

unsigned int BinaryStore::verifyUpdate(std::uint64_t kind, std::uint64_t mask, void* record,
                                       void* key) noexcept {
  Routine routine(Function::binVerifyUpdate);
  if (const unsigned int code = checkHooks(); code != 0) {
    return routine.exit(
        routine.failFrom(Function::binCheckHooks, code, GENREG_RC_HOOK_MISSING, 10));
  }
  std::uint64_t size = 0;
  if (const unsigned int code = recordSize(routine, &size); code != 0) return routine.exit(code);

  Verification verification(*this, routine, kind, mask, record, key, size);
  Outcome outcome;
  outcome.note(verification.allocate());
  if (outcome.ok()) {
    if (const unsigned int code = RegistryHandle::openRegFile(handle_, GENREG_OP_VERIFY);
        code != 0) {
      outcome.note(routine.failFrom(Function::openRegFile, code, GENREG_RC_OPEN_FOR_OPERATION, 70));
    } else {
      outcome.note(verification.compareFiles());
      const unsigned int closed =
          RegistryHandle::closeRegFile(handle_, outcome.ok() ? GENREG_OP_VERIFY : GENREG_OP_READ);
      if (closed != 0) {
        const unsigned int own =
            routine.failFrom(Function::closeRegFile, closed, GENREG_RC_CLOSE_AFTER_OPERATION, 160);
        outcome.note(own);
      }
    }
  }
  verification.release(outcome);
  return routine.exit(outcome.code());
}
