// The verification pass: the old registry file and the new temporary file are read side by side
// under the update lock, and the new one is committed only when the two differ by exactly the
// operation's change. What the operation did not touch must be the same byte for byte, which also
// spares every kept record a second parse. An engine brings the reading and the matching.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string_view>

#include "genreg/core/diagnostics.h"
#include "genreg/core/engine.h"

namespace genreg {

class Verification {
 public:
  Verification(Engine& engine, Routine& routine, std::uint64_t kind) noexcept
      : engine_(engine), routine_(routine), kind_(kind) {}

  // Runs the pass of an update whose work succeeded. `missingHook` is the code of the engine's
  // routine `checkHooks`. Returns 0 when it committed, else the finding; nothing is committed then.
  unsigned int run(Function checkHooks, unsigned int missingHook) noexcept;

 protected:
  ~Verification() = default;

  // Room for one record of each file, of `size` bytes in memory; 0,
  // GENREG_RC_VERIFY_ALLOC_OLD or GENREG_RC_VERIFY_ALLOC_NEW.
  virtual unsigned int allocate(std::uint64_t size) noexcept = 0;
  // Gives the room of one file back; 0 or the allocator's code.
  virtual unsigned int releaseOld() noexcept = 0;
  virtual unsigned int releaseNew() noexcept = 0;
  // Stands before the first record of both files, which are open.
  virtual void begin() noexcept = 0;
  // Reads the next record of one file: 0, GENREG_RC_END, or GENREG_RC_READ_FAILED (old) and
  // GENREG_RC_VERIFY_READ_NEW (new).
  virtual unsigned int readOld() noexcept = 0;
  virtual unsigned int readNew() noexcept = 0;
  // Passes over records that both files have in their streams' buffers and that are the same, as
  // far as they can be told apart without being read one by one.
  virtual void passOverKept() noexcept = 0;
  // Whether the new file's record is the old one's, untouched.
  virtual bool isKept() const noexcept = 0;
  // Whether the old record matches the key, and whether the new one is the operation's record; a
  // code when the record cannot be told.
  virtual unsigned int oldMatchesKey(bool* matches) noexcept = 0;
  virtual unsigned int newIsTheRecord(bool* equal) noexcept = 0;
  // Whether the old record is a last one that an interrupted write might have left.
  virtual bool oldIsUnended() const noexcept { return false; }
  // Where the reading stands, for the log.
  virtual std::uint64_t oldOffset() const noexcept = 0;
  virtual std::uint64_t newOffset() const noexcept = 0;

  // What the buffers of both streams have in common from where they stand.
  static std::string_view sameAhead(std::FILE* oldStream, std::FILE* newStream) noexcept;

  Engine& engine_;
  Routine& routine_;

 private:
  unsigned int finding(unsigned int code, unsigned int point) const noexcept;
  unsigned int nextOld() noexcept;
  unsigned int nextNew() noexcept;
  unsigned int nextPair() noexcept;
  unsigned int requireKey(unsigned int otherwise, unsigned int point) noexcept;
  unsigned int requireRecord(unsigned int otherwise, unsigned int point) noexcept;
  unsigned int compareFiles() noexcept;
  unsigned int checkDifference() noexcept;
  unsigned int skipDeleted() noexcept;
  unsigned int checkEnds() noexcept;
  unsigned int checkDeletedTail() noexcept;
  unsigned int checkAdded() noexcept;

  std::uint64_t kind_;
  std::uint64_t changes_ = 0;
  bool haveOld_ = false;
  bool haveNew_ = false;
};

}  // namespace genreg
