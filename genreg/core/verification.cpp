#include "genreg/core/verification.h"

#include <algorithm>
#include <cstring>

namespace genreg {

unsigned int Verification::run(Function checkHooks, unsigned int missingHook) noexcept {
  if (missingHook != 0) {
    return routine_.failFrom(checkHooks, missingHook, GENREG_RC_HOOK_MISSING, 10);
  }
  std::uint64_t size = 0;
  if (const unsigned int code = engine_.recordSize(routine_, &size); code != 0) return code;
  Outcome outcome;
  outcome.note(allocate(size));
  if (outcome.ok()) {
    GenRegFile& handle = engine_.file();
    if (const unsigned int code = RegistryHandle::openRegFile(handle, GENREG_OP_VERIFY);
        code != 0) {
      outcome.note(
          routine_.failFrom(Function::openRegFile, code, GENREG_RC_OPEN_FOR_OPERATION, 70));
    } else {
      outcome.note(compareFiles());
      const unsigned int closed =
          RegistryHandle::closeRegFile(handle, outcome.ok() ? GENREG_OP_VERIFY : GENREG_OP_READ);
      if (closed != 0) {
        outcome.note(routine_.failFrom(Function::closeRegFile, closed,
                                       GENREG_RC_CLOSE_AFTER_OPERATION, 160));
      }
    }
  }
  if (const unsigned int code = releaseNew(); code != 0) {
    outcome.note(routine_.failFrom(probeMemFree, code, GENREG_RC_VERIFY_FREE_NEW, 170));
  }
  if (const unsigned int code = releaseOld(); code != 0) {
    outcome.note(routine_.failFrom(probeMemFree, code, GENREG_RC_VERIFY_FREE_OLD, 180));
  }
  return outcome.code();
}

unsigned int Verification::compareFiles() noexcept {
  if (!engine_.canCompare()) return routine_.fail(GENREG_RC_NO_COMPARE_HOOK, 75);
  begin();
  passOverKept();
  if (const unsigned int code = nextPair(); code != 0) return code;
  while (haveOld_ && haveNew_) {
    if (!isKept()) {
      if (const unsigned int code = checkDifference(); code != 0) return code;
    }
    passOverKept();
    if (const unsigned int code = nextPair(); code != 0) return code;
  }
  if (const unsigned int code = checkEnds(); code != 0) return code;
  if (changes_ > 1 && !engine_.has(GENREG_ALLOW_DUPLICATES)) {
    return finding(GENREG_RC_VERIFY_MANY, 140);
  }
  return changes_ == 0 ? finding(GENREG_RC_VERIFY_NOTHING_CHANGED, 150) : GENREG_RC_OK;
}

std::string_view Verification::sameAhead(std::FILE* oldStream, std::FILE* newStream) noexcept {
  std::size_t oldCount = 0;
  std::size_t newCount = 0;
  const char* before = platform::peekStream(oldStream, &oldCount);
  const char* after = platform::peekStream(newStream, &newCount);
  const std::size_t limit = std::min(oldCount, newCount);
  std::size_t same = 0;
  // memcmp tells that two blocks differ, but not where: the blocks get smaller.
  for (std::size_t block = limit; block > 0; block /= 2) {
    while (limit - same >= block && std::memcmp(before + same, after + same, block) == 0) {
      same += block;
    }
  }
  return {before, same};
}

unsigned int Verification::finding(unsigned int code, unsigned int point) const noexcept {
  return routine_.fail(code, point, wide(oldOffset()), wide(newOffset()));
}

unsigned int Verification::nextOld() noexcept {
  const unsigned int code = readOld();
  haveOld_ = code == 0;
  return code == GENREG_RC_END ? GENREG_RC_OK : code;
}

unsigned int Verification::nextNew() noexcept {
  const unsigned int code = readNew();
  haveNew_ = code == 0;
  return code == GENREG_RC_END ? GENREG_RC_OK : code;
}

unsigned int Verification::nextPair() noexcept {
  const unsigned int code = nextOld();
  return code != 0 ? code : nextNew();
}

unsigned int Verification::requireKey(unsigned int otherwise, unsigned int point) noexcept {
  bool matches = false;
  if (const unsigned int code = oldMatchesKey(&matches); code != 0) return code;
  return matches ? GENREG_RC_OK : finding(otherwise, point);
}

unsigned int Verification::requireRecord(unsigned int otherwise, unsigned int point) noexcept {
  bool equal = false;
  if (const unsigned int code = newIsTheRecord(&equal); code != 0) return code;
  return equal ? GENREG_RC_OK : finding(otherwise, point);
}

unsigned int Verification::checkDifference() noexcept {
  if (kind_ == GENREG_OP_DELETE) return skipDeleted();
  if (kind_ != GENREG_OP_CHANGE) return finding(GENREG_RC_VERIFY_ADD_CHANGED, 105);
  ++changes_;
  if (const unsigned int code = requireKey(GENREG_RC_VERIFY_CHANGED_KEY, 100); code != 0) {
    return code;
  }
  return requireRecord(GENREG_RC_VERIFY_UNEXPECTED, 101);
}

// The old record is gone: pass over every deleted one until the new file's record is met. That one
// must not be a last record that an interrupted write might have left.
unsigned int Verification::skipDeleted() noexcept {
  do {
    ++changes_;
    if (const unsigned int code = requireKey(GENREG_RC_VERIFY_REMOVED_KEY, 110); code != 0) {
      return code;
    }
    if (const unsigned int code = nextOld(); code != 0) return code;
    if (!haveOld_ || oldIsUnended()) return finding(GENREG_RC_VERIFY_OLD_ENDED, 111);
  } while (!isKept());
  return GENREG_RC_OK;
}

unsigned int Verification::checkEnds() noexcept {
  switch (kind_) {
    case GENREG_OP_CHANGE:
      // A Change neither adds nor removes a record.
      return haveOld_ || haveNew_ ? finding(GENREG_RC_VERIFY_SHORT, 120) : GENREG_RC_OK;
    case GENREG_OP_DELETE:
      return checkDeletedTail();
    default:
      return checkAdded();
  }
}

unsigned int Verification::checkDeletedTail() noexcept {
  if (haveNew_) return finding(GENREG_RC_VERIFY_OLD_ENDED, 125);
  while (haveOld_) {
    ++changes_;
    if (const unsigned int code = requireKey(GENREG_RC_VERIFY_UNEXPECTED, 126); code != 0) {
      return code;
    }
    if (const unsigned int code = nextOld(); code != 0) return code;
  }
  return GENREG_RC_OK;
}

unsigned int Verification::checkAdded() noexcept {
  if (haveOld_ || !haveNew_) return finding(GENREG_RC_VERIFY_ADD_COUNT, 130);
  ++changes_;
  if (const unsigned int code = requireRecord(GENREG_RC_VERIFY_ADD_RECORD, 131); code != 0) {
    return code;
  }
  if (const unsigned int code = nextNew(); code != 0) return code;
  return haveNew_ ? finding(GENREG_RC_VERIFY_ADD_TRAILING, 132) : GENREG_RC_OK;
}

}  // namespace genreg
