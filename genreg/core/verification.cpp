#include "genreg/core/verification.h"

#include <algorithm>
#include <cstring>

namespace genreg {

Code Verification::run() noexcept {
  if (check() && store_.open(routine_, GENREG_OP_VERIFY, 70)) {
    compareFiles();
    (void)store_.close(routine_, routine_.ok() ? GENREG_OP_VERIFY : GENREG_OP_READ, 160);
  }
  release(new_, GENREG_RC_VERIFY_FREE_NEW, 170);
  release(old_, GENREG_RC_VERIFY_FREE_OLD, 180);
  return routine_.code();
}

bool Verification::check() noexcept {
  if (const Code code = store_.checkHooks(); code != 0) {
    return routine_.failFrom(store_.kind.checkHooks, code, GENREG_RC_HOOK_MISSING, 10);
  }
  return store_.recordSize(routine_, &size_) && reserve(old_, GENREG_RC_VERIFY_ALLOC_OLD, 60) &&
         reserve(new_, GENREG_RC_VERIFY_ALLOC_NEW, 61);
}

bool Verification::reserve(Side& side, Code failed, unsigned int point) noexcept {
  const Code code = side.slot.record.reserve(size_);
  return code == 0 || routine_.failFrom(probeMemAlloc, code, failed, point);
}

void Verification::release(Side& side, Code failed, unsigned int point) noexcept {
  const Code code = side.slot.release();
  if (code != 0) (void)routine_.failFrom(probeMemFree, code, failed, point);
}

void Verification::compareFiles() noexcept {
  old_.file = &store_.session().main();
  new_.file = &store_.session().second();
  if (!store_.canCompare(routine_, 75) || !comparePairs() || !checkEnds()) return;
  if (changes_ > 1 && !store_.has(GENREG_ALLOW_DUPLICATES)) {
    (void)finding(GENREG_RC_VERIFY_MANY, 140);
  } else if (changes_ == 0) {
    (void)finding(GENREG_RC_VERIFY_NOTHING_CHANGED, 150);
  }
}

bool Verification::comparePairs() noexcept {
  for (;;) {
    skipSame();
    if (!nextOld() || !nextNew()) return false;
    if (!old_.have || !new_.have) return true;
    if (!store_.isKept(old_.frame, new_.frame) && !checkDifference()) return false;
  }
}

// Passes over whole records that both windows have in common from where they stand. With tracing on
// every record is read singly, to be in the trace.
void Verification::skipSame() noexcept {
  if (tracingOn() || old_.frame.goesOn || new_.frame.goesOn) return;
  const char* before = old_.file->window();
  const char* after = new_.file->window();
  const std::size_t limit = std::min(old_.file->windowSize(), new_.file->windowSize());
  std::size_t same = 0;
  // memcmp says that two blocks differ, but not where: the blocks get smaller.
  for (std::size_t block = limit; block > 0; block /= 2) {
    while (limit - same >= block && std::memcmp(before + same, after + same, block) == 0) {
      same += block;
    }
  }
  const std::size_t whole = store_.wholeFrames(*old_.file, same);
  old_.file->skip(whole);
  new_.file->skip(whole);
}

bool Verification::next(Side& side, Code failed, unsigned int point) noexcept {
  const Code code = store_.next(*side.file, side.frame);
  side.have = code == 0;
  if (code == 0 || code == GENREG_RC_END) return true;
  return routine_.failFrom(store_.kind.readRecord, code, failed, point);
}

bool Verification::finding(Code code, unsigned int point) noexcept {
  const std::uint64_t oldOffset = old_.file->offset();
  const std::uint64_t newOffset = new_.file->offset();
  return routine_.fail(code, point, number(oldOffset), number(newOffset));
}

bool Verification::requireKey(Code otherwise, unsigned int point) noexcept {
  if (!store_.unpack(routine_, old_.frame, old_.slot, size_, 90)) return false;
  const bool matches = old_.slot.parsed && store_.matches(mask_, old_.slot, key_);
  return matches || finding(otherwise, point);
}

// A line that does not parse is nobody's record: what cannot be read back is not committed.
bool Verification::requireRecord(Code otherwise, unsigned int point) noexcept {
  if (!store_.unpack(routine_, new_.frame, new_.slot, size_, 95)) return false;
  const bool equal = new_.slot.parsed && store_.isRecord(new_.slot, record_);
  return equal || finding(otherwise, point);
}

bool Verification::checkDifference() noexcept {
  if (kind_ == GENREG_OP_DELETE) return skipDeleted();
  if (kind_ != GENREG_OP_CHANGE) return finding(GENREG_RC_VERIFY_ADD_CHANGED, 105);
  ++changes_;
  return requireKey(GENREG_RC_VERIFY_CHANGED_KEY, 100) &&
         requireRecord(GENREG_RC_VERIFY_UNEXPECTED, 101);
}

// The old record is gone: pass over every deleted one until the new file's record is met. That one
// must not be a last record that an interrupted write might have left.
bool Verification::skipDeleted() noexcept {
  do {
    ++changes_;
    if (!requireKey(GENREG_RC_VERIFY_REMOVED_KEY, 110) || !nextOld()) return false;
    if (!old_.have || old_.frame.unended) return finding(GENREG_RC_VERIFY_OLD_ENDED, 111);
  } while (!store_.isKept(old_.frame, new_.frame));
  return true;
}

bool Verification::checkEnds() noexcept {
  switch (kind_) {
    case GENREG_OP_CHANGE:
      // A Change neither adds nor removes a record.
      return !(old_.have || new_.have) || finding(GENREG_RC_VERIFY_SHORT, 120);
    case GENREG_OP_DELETE:
      return checkDeletedTail();
    default:
      return checkAdded();
  }
}

bool Verification::checkDeletedTail() noexcept {
  if (new_.have) return finding(GENREG_RC_VERIFY_OLD_ENDED, 125);
  while (old_.have) {
    ++changes_;
    if (!requireKey(GENREG_RC_VERIFY_UNEXPECTED, 126) || !nextOld()) return false;
  }
  return true;
}

bool Verification::checkAdded() noexcept {
  if (old_.have || !new_.have) return finding(GENREG_RC_VERIFY_ADD_COUNT, 130);
  ++changes_;
  if (!requireRecord(GENREG_RC_VERIFY_ADD_RECORD, 131) || !nextNew()) return false;
  return !new_.have || finding(GENREG_RC_VERIFY_ADD_TRAILING, 132);
}

}  // namespace genreg
