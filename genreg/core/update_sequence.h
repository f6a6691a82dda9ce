// The order of every Add, Change and Delete, the same for both engines: checks, buffers, lock,
// open, record work, close, verification, unlock, buffers, hooks. An engine brings the record work
// and the verification pass.
#pragma once

#include <cstdint>

#include "genreg/core/diagnostics.h"
#include "genreg/core/engine.h"

namespace genreg {

struct UpdateKind {
  std::uint64_t operation;    // GENREG_OP_...
  std::uint64_t lockRequest;  // GENREG_LOCK_... bits
  // Change and Delete remove their temporary file when there is nothing to commit; an Add's stays
  // and becomes the corrupt file.
  bool deletesTemporary;
};

constexpr UpdateKind addUpdate{
    GENREG_OP_ADD, GENREG_LOCK_EXCLUSIVE | GENREG_LOCK_WAIT | GENREG_LOCK_CREATE_DIR, false};
constexpr UpdateKind changeUpdate{GENREG_OP_CHANGE, GENREG_LOCK_EXCLUSIVE | GENREG_LOCK_WAIT, true};
constexpr UpdateKind deleteUpdate{GENREG_OP_DELETE, GENREG_LOCK_EXCLUSIVE | GENREG_LOCK_WAIT, true};

// What an engine's routines are called in the log, and whether it calls NotifyChange.
struct UpdateRoutines {
  Function checkHooks;
  Function verifyUpdate;
  bool notifies;
};

class Update {
 public:
  // `record` is the new record, null for a Delete; `key` is null for an Add. All must outlive it.
  Update(Engine& engine, Routine& routine, const UpdateRoutines& names, const UpdateKind& kind,
         std::uint64_t mask, void* record, void* key) noexcept
      : engine_(engine),
        routine_(routine),
        names_(names),
        kind_(kind),
        mask_(mask),
        record_(record),
        key_(key) {}

  // Runs the whole update and returns its result: the first failure; one of closing, unlocking or
  // releasing only when nothing failed before.
  unsigned int run() noexcept;

 protected:
  ~Update() = default;

  // The hooks an Add needs; 0 or the first missing one's code.
  virtual unsigned int checkHooks() noexcept = 0;
  // Room for records of size_ bytes; 0 or the operation's code.
  virtual unsigned int allocate() noexcept = 0;
  // Gives the room back; 0 or the allocator's code.
  virtual unsigned int release() noexcept = 0;
  // Reads the registry file and writes the new content. A failure abandons the update;
  // GENREG_RC_UNCHANGED is a result, not a failure.
  virtual unsigned int work() noexcept = 0;
  // The verification pass: closes with a commit when it accepts the new file.
  virtual unsigned int verify() noexcept = 0;

  // Add, for the engines' work(): whether the registry file held anything when it was opened.
  unsigned int askFileSize(std::uint64_t* size) const noexcept;
  // The stream that an Add appends to, at its end.
  unsigned int seekTarget(std::FILE** target) const noexcept;
  bool appendsInPlace() const noexcept {
    return RegistryHandle::appendsInPlace(engine_.file(), kind_.operation);
  }
  std::FILE* temporary() const noexcept { return RegistryHandle::second(engine_.file()); }

  Engine& engine_;
  Routine& routine_;
  const UpdateRoutines& names_;
  const UpdateKind& kind_;
  std::uint64_t mask_;
  void* record_;
  void* key_;
  std::uint64_t size_ = 0;  // bytes of a record in memory, known once the checks have passed

 private:
  unsigned int check() noexcept;
  unsigned int session() noexcept;
  void updateOpened(Outcome& outcome, Outcome& cleanUp) noexcept;
};

}  // namespace genreg
