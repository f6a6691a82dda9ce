// GenRegBin: Add, Change and Delete.
#include <cstdio>
#include <string_view>

#include "genreg/binary_store.h"
#include "genreg/core/registry_handle.h"
#include "genreg/core/update_sequence.h"

using genreg::Function;
using genreg::Routine;

namespace {

constexpr genreg::UpdateRoutines routines{Function::binCheckHooks, Function::binVerifyUpdate, true};

// What the three operations share: the buffers and the pass over the stored records.
class BinaryUpdate : public genreg::Update {
 public:
  BinaryUpdate(BinaryStore& store, Routine& routine, const genreg::UpdateKind& kind,
               std::uint64_t mask, void* record, void* key) noexcept
      : Update(store, routine, routines, kind, mask, record, key), store_(store) {}

 protected:
  ~BinaryUpdate() = default;

  unsigned int checkHooks() noexcept final { return store_.checkHooks(); }
  unsigned int allocate() noexcept final {
    return store_.allocate(routine_, loaded_, size_, GENREG_RC_BUFFER_ALLOC);
  }
  unsigned int release() noexcept final {
    const unsigned int first = loaded_.release();
    const unsigned int second = written_.release();
    return first != 0 ? first : second;
  }
  unsigned int verify() noexcept final {
    const bool repacked = record_ != nullptr && store_.has(GENREG_PACKED_RECORDS);
    return store_.verifyUpdate(kind_.operation, mask_, repacked ? store_.record(written_) : record_,
                               key_);
  }

  // Writes the new record, in the place of a stored one or at the end.
  unsigned int writeNew(std::FILE* stream, const LoadedRecord* replaced,
                        unsigned int writeFailed) noexcept {
    return store_.writeNew(routine_, stream, record_, replaced, written_, size_, writeFailed);
  }

  // The verification pass compares with the record as it will be read: a field that the caller's
  // record does not have may hold anything there, and holds nothing in what was stored.
  unsigned int readBack() noexcept {
    return store_.has(GENREG_VERIFY_UPDATES) ? store_.unpack(routine_, written_, size_, 130)
                                             : GENREG_RC_OK;
  }

  // Writes the next records as they stand, as far as they can be told, as they stand, to stay:
  // those that differ from `key` and, unless `onlyDifferent`, those that match it.
  unsigned int keep(RecordCursor& cursor, void* key, bool onlyDifferent) noexcept {
    const genreg::StoredForm* form = store_.storedForm(key, size_);
    if (form == nullptr || !store_.canWriteKept()) return GENREG_RC_OK;
    const std::string_view kept =
        store_.passOver(cursor, [&](const char* stored, std::size_t length) {
          const genreg::Likeness likeness = form->liken(mask_, stored, length, key);
          return likeness == genreg::Likeness::Differs ||
                 (likeness == genreg::Likeness::Matches && !onlyDifferent);
        });
    return kept.empty() ? GENREG_RC_OK : store_.writeKept(routine_, temporary(), kept);
  }

  // Loads the next stored record that does not surely stay; it is unpacked if it matches `key`.
  // GENREG_RC_END at the end.
  unsigned int next(RecordCursor& cursor, void* key, bool* matching) noexcept {
    if (const unsigned int code = keep(cursor, key, true); code != 0) return code;
    return store_.loadAndMatch(routine_, cursor, loaded_, size_, mask_, key, matching);
  }

  BinaryStore& store_;
  LoadedRecord loaded_{__LINE__};
  LoadedRecord written_{__LINE__};
};

class AddWork final : public BinaryUpdate {
 public:
  using BinaryUpdate::BinaryUpdate;

  unsigned int work() noexcept override {
    std::uint64_t fileSize = 0;
    if (const unsigned int code = askFileSize(&fileSize); code != 0) return code;
    if (fileSize != 0) {
      const unsigned int code = appendsInPlace() ? checkTail() : copyAll();
      if (code != 0) return code;
    }
    std::FILE* target = nullptr;
    if (const unsigned int code = seekTarget(&target); code != 0) return code;
    const unsigned int code = writeNew(target, nullptr, GENREG_RC_WRITE_NEW_FAILED);
    return code != 0 ? code : readBack();
  }

 private:
  unsigned int copyAll() noexcept {
    const bool unique = !store_.has(GENREG_ALLOW_DUPLICATES);
    RecordCursor cursor = store_.mainCursor();
    for (;;) {
      bool duplicate = false;
      unsigned int code = unique ? next(cursor, record_, &duplicate) : loadAny(cursor);
      if (code != 0) return code == GENREG_RC_END ? GENREG_RC_OK : code;
      if (duplicate) {
        routine_.trace(84, genreg::text("Match found; duplicate record"));
        return routine_.fail(GENREG_RC_DUPLICATE, 85);
      }
      code = store_.writeKept(routine_, temporary(), loaded_);
      if (code != 0) return code;
    }
  }

  unsigned int loadAny(RecordCursor& cursor) noexcept {
    const unsigned int code = keep(cursor, record_, false);
    return code != 0 ? code : store_.load(routine_, cursor, loaded_, size_, 70);
  }

  // A record behind a torn one would never be found again, so a file that does not end in a whole
  // record is not appended to. Cutting the tail off instead could drop committed records when a
  // length in the middle is what is damaged.
  unsigned int checkTail() noexcept {
    RecordCursor cursor = store_.mainCursor();
    for (;;) {
      const unsigned int code = store_.readRecord(cursor, loaded_, size_);
      if (code == GENREG_RC_END) return GENREG_RC_OK;
      if (code != 0) {
        return routine_.failFrom(Function::binReadRecord, code, GENREG_RC_READ_FAILED, 78);
      }
    }
  }
};

class ChangeWork final : public BinaryUpdate {
 public:
  using BinaryUpdate::BinaryUpdate;

  unsigned int work() noexcept override {
    RecordCursor cursor = store_.mainCursor();
    for (;;) {
      bool matching = false;
      const unsigned int code = next(cursor, key_, &matching);
      if (code == GENREG_RC_END) break;
      if (code != 0) return code;
      if (const unsigned int failed = pass(matching); failed != 0) return failed;
    }
    if (unchanged_) return routine_.fail(GENREG_RC_UNCHANGED, 95);
    return changed_ == 0 ? routine_.fail(GENREG_RC_NOT_FOUND, 96) : readBack();
  }

 private:
  // One stored record: changed or kept.
  unsigned int pass(bool matching) noexcept {
    if (!matching) return store_.writeKept(routine_, temporary(), loaded_);
    if (store_.matches(GENREG_ALL_FIELDS, store_.record(loaded_), record_)) {
      unchanged_ = true;
      return store_.writeKept(routine_, temporary(), loaded_);
    }
    if (changed_ > 0 && !store_.has(GENREG_ALLOW_DUPLICATES)) {
      return routine_.fail(GENREG_RC_AMBIGUOUS, 85);
    }
    ++changed_;
    return writeNew(temporary(), &loaded_, GENREG_RC_COPY_FAILED);
  }

  std::uint64_t changed_ = 0;
  bool unchanged_ = false;  // a matching record equals the new one already
};

class DeleteWork final : public BinaryUpdate {
 public:
  using BinaryUpdate::BinaryUpdate;

  unsigned int work() noexcept override {
    std::uint64_t deleted = 0;
    RecordCursor cursor = store_.mainCursor();
    for (;;) {
      bool matching = false;
      unsigned int code = next(cursor, key_, &matching);
      if (code == GENREG_RC_END) break;
      if (code != 0) return code;
      if (!matching) {
        code = store_.writeKept(routine_, temporary(), loaded_);
        if (code != 0) return code;
      } else if (deleted++ > 0 && !store_.has(GENREG_ALLOW_DUPLICATES)) {
        return routine_.fail(GENREG_RC_AMBIGUOUS, 85);
      }
    }
    return deleted == 0 ? routine_.fail(GENREG_RC_NOT_FOUND, 96) : GENREG_RC_OK;
  }
};

}  // namespace

unsigned int GenRegBin::Add(std::uint64_t mask, void* record) noexcept {
  Routine routine(Function::binAdd);
  BinaryStore store(*this);
  return routine.exit(AddWork(store, routine, genreg::addUpdate, mask, record, nullptr).run());
}

unsigned int GenRegBin::Change(std::uint64_t mask, void* key, void* newRecord) noexcept {
  Routine routine(Function::binChange);
  BinaryStore store(*this);
  return routine.exit(ChangeWork(store, routine, genreg::changeUpdate, mask, newRecord, key).run());
}

unsigned int GenRegBin::Delete(std::uint64_t mask, void* key) noexcept {
  Routine routine(Function::binDelete);
  BinaryStore store(*this);
  return routine.exit(DeleteWork(store, routine, genreg::deleteUpdate, mask, nullptr, key).run());
}
