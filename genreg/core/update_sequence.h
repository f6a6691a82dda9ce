// The order of every Add, Change and Delete, the same for both engines: lock, open, record work,
// close, verification, unlock. The engine brings the record work and the verification pass.
#pragma once

#include <cstdint>

#include "genreg/core/diagnostics.h"
#include "genreg/core/registry_handle.h"

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

class UpdateWork {
 public:
  // Reads the registry file and writes the new content. A failure abandons the update;
  // GENREG_RC_UNCHANGED is a result, not a failure.
  virtual unsigned int work() noexcept = 0;
  // The verification pass: closes with a commit when it accepts the new file.
  virtual unsigned int verify() noexcept = 0;

 protected:
  ~UpdateWork() = default;
};

// Runs one update up to the release of the lock. Returns its result; a failure of closing or
// unlocking only when nothing failed before.
unsigned int runUpdate(GenRegFile& handle, Routine& routine, const UpdateKind& kind,
                       Function verifyFunction, UpdateWork& update) noexcept;

}  // namespace genreg
