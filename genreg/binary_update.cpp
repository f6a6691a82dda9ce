// GenRegBin: Add, Change and Delete.
#include <cstdio>

#include "genreg/binary_store.h"
#include "genreg/core/registry_handle.h"
#include "genreg/core/update_sequence.h"
#include "sysservices/file_system.h"

using genreg::Function;
using genreg::Outcome;
using genreg::RecordBuffer;
using genreg::Routine;

namespace {

// What the three operations share: the arguments, the buffers and the pass over the stored records.
class BinaryUpdate : public genreg::UpdateWork {
 public:
  BinaryUpdate(GenRegBin& handle, Routine& routine, std::uint64_t operation, std::uint64_t mask,
               void* record, void* key) noexcept
      : store_(handle),
        routine_(routine),
        operation_(operation),
        mask_(mask),
        record_(record),
        key_(key) {}

  unsigned int verify() noexcept final {
    return store_.verifyUpdate(operation_, mask_, record_, key_);
  }

  // Checks, runs the update and gives the buffers back. `argument` is what ValidateKey judges.
  unsigned int run(const genreg::UpdateKind& kind, void* argument) noexcept {
    if (argument == nullptr && operation_ != GENREG_OP_DELETE) {
      return routine_.fail(OSS_RC_NULL_ARGUMENT, 5);
    }
    if (operation_ == GENREG_OP_ADD) {
      if (const unsigned int code = store_.checkHooks(); code != 0) {
        return routine_.failFrom(Function::binCheckHooks, code, GENREG_RC_HOOK_MISSING, 6);
      }
    }
    if (const unsigned int code = store_.validate(routine_, mask_, argument); code != 0) {
      return code;
    }
    if (const unsigned int code = store_.recordSize(routine_, &size_); code != 0) return code;
    if (const unsigned int code = store_.allocate(routine_, loaded_, size_, GENREG_RC_BUFFER_ALLOC);
        code != 0) {
      return code;
    }
    Outcome outcome;
    outcome.note(
        genreg::runUpdate(store_.handle(), routine_, kind, Function::binVerifyUpdate, *this));
    unsigned int freed = loaded_.release();
    if (const unsigned int code = scratch_.release(); freed == 0) freed = code;
    if (freed != 0) {
      outcome.note(routine_.failFrom(genreg::probeMemFree, freed, GENREG_RC_BUFFER_FREE, 240));
    }
    if (outcome.ok()) {
      void* first = operation_ == GENREG_OP_ADD ? record_ : key_;
      void* second = operation_ == GENREG_OP_CHANGE ? record_ : nullptr;
      outcome.note(store_.notify(routine_, operation_, first, second));
    }
    return outcome.code();
  }

 protected:
  std::FILE* temporary() const noexcept { return RegistryHandle::second(store_.handle()); }

  // Loads the next stored record; GENREG_RC_END at the end.
  unsigned int next(RecordCursor& cursor) noexcept {
    return store_.load(routine_, cursor, loaded_, size_, GENREG_RC_READ_FAILED, 70);
  }

  BinaryStore store_;
  Routine& routine_;
  std::uint64_t operation_;
  std::uint64_t mask_;
  void* record_;  // the new record; null for a Delete
  void* key_;     // null for an Add
  std::uint64_t size_ = 0;
  LoadedRecord loaded_{__LINE__};
  RecordBuffer scratch_{"GenRegBin", __LINE__};
};

class AddWork final : public BinaryUpdate {
 public:
  using BinaryUpdate::BinaryUpdate;

  unsigned int work() noexcept override {
    GenRegBin& handle = store_.handle();
    std::uint64_t fileSize = 0;
    if (const unsigned int code = RegistryHandle::registryFileSize(handle, &fileSize); code != 0) {
      return routine_.failFrom(genreg::probeFileGetInfo, code, GENREG_RC_FILE_INFO, 75);
    }
    const bool inPlace = RegistryHandle::appendsInPlace(handle, GENREG_OP_ADD);
    if (fileSize != 0) {
      const unsigned int code = inPlace ? checkTail() : copyAll();
      if (code != 0) return code;
    }
    std::FILE* target = inPlace ? RegistryHandle::main(handle) : temporary();
    if (std::fseek(target, 0, SEEK_END) != 0) {
      const std::int32_t error = std::ferror(target);
      return routine_.fail(GENREG_RC_SEEK_END_FAILED, 90, genreg::number(error));
    }
    return store_.writeNew(routine_, target, record_, nullptr, scratch_, size_,
                           GENREG_RC_WRITE_NEW_FAILED);
  }

 private:
  unsigned int copyAll() noexcept {
    const bool unique = !store_.has(GENREG_ALLOW_DUPLICATES);
    RecordCursor cursor = store_.mainCursor();
    for (;;) {
      unsigned int code = next(cursor);
      if (code != 0) return code == GENREG_RC_END ? GENREG_RC_OK : code;
      if (unique) {
        if (!store_.canCompare()) return routine_.fail(GENREG_RC_NO_COMPARE_HOOK, 80);
        if (store_.matches(mask_, store_.record(loaded_), record_)) {
          routine_.trace(84, genreg::text("Match found; duplicate record"));
          return routine_.fail(GENREG_RC_DUPLICATE, 85);
        }
      }
      code = store_.writeKept(routine_, temporary(), loaded_);
      if (code != 0) return code;
    }
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
      const unsigned int code = next(cursor);
      if (code == GENREG_RC_END) break;
      if (code != 0) return code;
      if (const unsigned int failed = pass(); failed != 0) return failed;
    }
    if (unchanged_) return routine_.fail(GENREG_RC_UNCHANGED, 95);
    return changed_ == 0 ? routine_.fail(GENREG_RC_NOT_FOUND, 96) : GENREG_RC_OK;
  }

 private:
  // One stored record: changed or kept.
  unsigned int pass() noexcept {
    if (!store_.canCompare()) return routine_.fail(GENREG_RC_NO_COMPARE_HOOK, 80);
    void* stored = store_.record(loaded_);
    if (!store_.matches(mask_, stored, key_)) {
      return store_.writeKept(routine_, temporary(), loaded_);
    }
    if (store_.matches(GENREG_ALL_FIELDS, stored, record_)) {
      unchanged_ = true;
      return store_.writeKept(routine_, temporary(), loaded_);
    }
    if (changed_ > 0 && !store_.has(GENREG_ALLOW_DUPLICATES)) {
      return routine_.fail(GENREG_RC_AMBIGUOUS, 85);
    }
    ++changed_;
    return store_.writeNew(routine_, temporary(), record_, &loaded_, scratch_, size_,
                           GENREG_RC_COPY_FAILED);
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
      unsigned int code = next(cursor);
      if (code == GENREG_RC_END) break;
      if (code != 0) return code;
      if (!store_.canCompare()) return routine_.fail(GENREG_RC_NO_COMPARE_HOOK, 80);
      if (!store_.matches(mask_, store_.record(loaded_), key_)) {
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
  AddWork update(*this, routine, GENREG_OP_ADD, mask, record, nullptr);
  return routine.exit(update.run(genreg::addUpdate, record));
}

unsigned int GenRegBin::Change(std::uint64_t mask, void* key, void* newRecord) noexcept {
  Routine routine(Function::binChange);
  ChangeWork update(*this, routine, GENREG_OP_CHANGE, mask, newRecord, key);
  return routine.exit(update.run(genreg::changeUpdate, newRecord));
}

unsigned int GenRegBin::Delete(std::uint64_t mask, void* key) noexcept {
  Routine routine(Function::binDelete);
  DeleteWork update(*this, routine, GENREG_OP_DELETE, mask, nullptr, key);
  return routine.exit(update.run(genreg::deleteUpdate, key));
}

unsigned int BinaryStore::notify(const Routine& routine, std::uint64_t kind, void* recordOrKey,
                                 void* newRecord) const noexcept {
  if (has(GENREG_NOTIFY_CHANGE) && handle_.NotifyChange != nullptr) {
    const unsigned int answer = handle_.NotifyChange(&handle_, kind, recordOrKey, newRecord);
    // An Add ignores the answer; after the others it keeps PostUpdate from being called.
    if (answer != 0 && kind != GENREG_OP_ADD) return GENREG_RC_OK;
  }
  if (!has(GENREG_POST_UPDATE)) return GENREG_RC_OK;
  if (handle_.PostUpdate == nullptr) return routine.fail(GENREG_RC_NO_POST_UPDATE_HOOK, 250);
  if (const unsigned int answer = handle_.PostUpdate(); answer != 0) {
    (void)routine.fail(answer, 260);
  }
  return GENREG_RC_OK;
}
