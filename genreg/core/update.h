// Add, Change and Delete, the same for all engines.
#pragma once

#include <cstdint>

#include "genreg/core/pending.h"
#include "genreg/core/record_store.h"

namespace genreg {

struct UpdateKind {
  Function StoreKind::*name;
  std::uint64_t operation;    // GENREG_OP_...
  std::uint64_t lockRequest;  // GENREG_LOCK_... bits
  // Change and Delete remove their temporary file when there is nothing to commit; an Add's stays
  // and becomes the corrupt file.
  bool deletesTemporary;
};

constexpr UpdateKind addUpdate{&StoreKind::add, GENREG_OP_ADD,
                               GENREG_LOCK_EXCLUSIVE | GENREG_LOCK_WAIT | GENREG_LOCK_CREATE_DIR,
                               false};
constexpr UpdateKind changeUpdate{&StoreKind::change, GENREG_OP_CHANGE,
                                  GENREG_LOCK_EXCLUSIVE | GENREG_LOCK_WAIT, true};
constexpr UpdateKind deleteUpdate{&StoreKind::remove, GENREG_OP_DELETE,
                                  GENREG_LOCK_EXCLUSIVE | GENREG_LOCK_WAIT, true};

// Calls the hook that is called after a successful update, if the handle's features say so.
void callPostUpdate(const RecordStore& store, Routine& routine) noexcept;

class Update {
 public:
  // `record` is the new record, null for a Delete; `key` is null for an Add. All must outlive it.
  Update(RecordStore& store, const UpdateKind& kind, std::uint64_t mask, void* record,
         void* key) noexcept
      : store_(store),
        routine_(store.kind.*kind.name),
        kind_(kind),
        mask_(mask),
        record_(record),
        key_(key) {}

  // Runs the whole update. Returns the first failure; one of closing, unlocking or releasing only
  // when nothing failed before.
  Code run() noexcept;

 private:
  bool isAdd() const noexcept { return kind_.operation == GENREG_OP_ADD; }
  bool isChange() const noexcept { return kind_.operation == GENREG_OP_CHANGE; }

  bool compares() const noexcept;

  bool check() noexcept;
  void runPending() noexcept;
  bool openPending() noexcept;
  bool endRecords() noexcept;
  bool notePending() noexcept;
  Code next(Frame& frame) noexcept;
  bool keep(const Frame& frame) noexcept;
  bool drop() noexcept;
  bool put(std::string_view made, Code failed, unsigned int point) noexcept;
  bool provesItself(std::string_view made) noexcept;
  bool failPending() noexcept;
  bool findings() noexcept;
  void rewrite() noexcept;
  bool copyRecords() noexcept;
  bool keepRun() noexcept;
  bool judge(const Frame& frame, bool* matching) noexcept;
  bool treat(const Frame& frame, bool matching) noexcept;
  bool change(const Frame& frame) noexcept;
  bool writeAdded() noexcept;
  bool readBack(std::string_view frame) noexcept;
  bool unpackMade(std::string_view made, unsigned int point) noexcept;
  void close() noexcept;
  void verify() noexcept;
  void release() noexcept;
  void notifyHooks() noexcept;

  RecordStore& store_;
  Pending* const pending_{store_.pending()};  // the content, in an update of many changes
  Routine routine_;
  const UpdateKind& kind_;
  std::uint64_t mask_;
  void* record_;
  void* key_;
  std::uint64_t size_ = 0;  // bytes of a record in memory, known once the checks have passed
  Slot stored_;
  Slot written_;
  std::uint64_t count_ = 0;  // records changed or deleted
  bool unchanged_ = false;   // a matching record equals the new one already
  bool toBeVerified_ = false;
};

}  // namespace genreg
