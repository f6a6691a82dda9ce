// The verification pass: the old registry file and the new temporary file are read side by side
// under the update lock, and the new one is committed only when the two differ by exactly the
// operation's change. What the operation did not touch must be the same byte for byte, which also
// spares every kept record a second parse.
#pragma once

#include <cstdint>

#include "genreg/core/record_store.h"

namespace genreg {

class Verification {
 public:
  // `record` is the new record, null for a Delete; `key` is null for an Add.
  Verification(RecordStore& store, std::uint64_t kind, std::uint64_t mask, void* record,
               void* key) noexcept
      : store_(store),
        routine_(store.kind.verifyUpdate),
        kind_(kind),
        mask_(mask),
        record_(record),
        key_(key) {}

  // Runs the pass of an update whose work succeeded. Returns 0 when it committed, else the finding;
  // nothing is committed then.
  Code run() noexcept;

 private:
  // One of the two files: where it is read, and its current record.
  struct Side {
    File* file = nullptr;
    Frame frame;
    Slot slot;
    bool have = false;
  };

  bool check() noexcept;
  bool reserve(Side& side, Code failed, unsigned int point) noexcept;
  void release(Side& side, Code failed, unsigned int point) noexcept;
  void compareFiles() noexcept;
  bool comparePairs() noexcept;
  void skipSame() noexcept;
  bool next(Side& side, Code failed, unsigned int point) noexcept;
  bool nextOld() noexcept { return next(old_, GENREG_RC_READ_FAILED, 80); }
  bool nextNew() noexcept { return next(new_, GENREG_RC_VERIFY_READ_NEW, 85); }
  bool finding(Code code, unsigned int point) noexcept;
  bool requireKey(Code otherwise, unsigned int point) noexcept;
  bool requireRecord(Code otherwise, unsigned int point) noexcept;
  bool checkDifference() noexcept;
  bool skipDeleted() noexcept;
  bool checkEnds() noexcept;
  bool checkDeletedTail() noexcept;
  bool checkAdded() noexcept;

  RecordStore& store_;
  Routine routine_;
  std::uint64_t kind_;
  std::uint64_t mask_;
  void* record_;
  void* key_;
  std::uint64_t size_ = 0;
  Side old_;
  Side new_;
  std::uint64_t changes_ = 0;
};

}  // namespace genreg
