// GenRegText's side of the verification pass: reading and matching the lines of both files.
#include <cstring>
#include <string_view>

#include "genreg/core/verification.h"
#include "genreg/text_store.h"

using genreg::Function;
using genreg::LineCursor;
using genreg::RecordBuffer;
using genreg::Routine;
using genreg::TextLine;

namespace {

// One of the two files: its current line and a record to parse it into.
struct Side {
  explicit Side(unsigned int sourceLine) noexcept : record("GenRegText", sourceLine) {}

  RecordBuffer record;
  TextLine line;
  LineCursor cursor;
};

class TextVerification final : public genreg::Verification {
 public:
  TextVerification(TextStore& store, Routine& routine, std::uint64_t kind, std::uint64_t mask,
                   void* record, void* key) noexcept
      : Verification(store, routine, kind),
        store_(store),
        mask_(mask),
        record_(record),
        key_(key) {}

 private:
  unsigned int allocate(std::uint64_t size) noexcept override {
    if (const unsigned int code = old_.record.reserve(size); code != 0) {
      return routine_.failFrom(genreg::probeMemAlloc, code, GENREG_RC_VERIFY_ALLOC_OLD, 60);
    }
    if (const unsigned int code = new_.record.reserve(size); code != 0) {
      return routine_.failFrom(genreg::probeMemAlloc, code, GENREG_RC_VERIFY_ALLOC_NEW, 61);
    }
    return GENREG_RC_OK;
  }
  unsigned int releaseOld() noexcept override { return old_.record.release(); }
  unsigned int releaseNew() noexcept override { return new_.record.release(); }

  void begin() noexcept override {
    old_.cursor = store_.mainCursor();
    new_.cursor = store_.secondCursor();
  }
  unsigned int readOld() noexcept override {
    return store_.next(routine_, old_.cursor, old_.line, GENREG_RC_READ_FAILED, 80);
  }
  unsigned int readNew() noexcept override {
    return store_.next(routine_, new_.cursor, new_.line, GENREG_RC_VERIFY_READ_NEW, 85);
  }

  void passOverKept() noexcept override {
    // Where lines are joined, a newline alone does not tell that one ends.
    if (store_.joins() || old_.cursor.insideLine || new_.cursor.insideLine) return;
    const std::string_view same = sameAhead(old_.cursor.stream, new_.cursor.stream);
    const std::size_t newline = same.rfind('\n');
    const std::size_t length = newline == std::string_view::npos ? 0 : newline + 1;
    old_.cursor.passOver(length);
    new_.cursor.passOver(length);
  }
  // The same bytes, or those of a last line without its newline and the newline that an update
  // gives it: a plain one, or one behind a carriage return.
  bool isKept() const noexcept override {
    const TextLine& before = old_.line;
    const TextLine& after = new_.line;
    if (after.rawLength < before.rawLength ||
        std::memcmp(before.raw, after.raw, before.rawLength) != 0) {
      return false;
    }
    const std::size_t added = after.rawLength - before.rawLength;
    const char* end = after.raw + before.rawLength;
    return added == 0 || (before.endOfFile && ((added == 1 && end[0] == '\n') ||
                                               (added == 2 && end[0] == '\r' && end[1] == '\n')));
  }
  unsigned int oldMatchesKey(bool* matches) noexcept override {
    *matches = store_.parseWhole(routine_, old_.record.data(), old_.line, 90) &&
               store_.matches(mask_, old_.record.data(), key_);
    return GENREG_RC_OK;
  }
  // A line that does not parse is nobody's record: what cannot be read back is not committed.
  unsigned int newIsTheRecord(bool* equal) noexcept override {
    *equal = store_.parseWhole(routine_, new_.record.data(), new_.line, 95) &&
             store_.equals(new_.record.data(), record_);
    return GENREG_RC_OK;
  }
  bool oldIsUnended() const noexcept override { return old_.line.endOfFile; }

  std::uint64_t oldOffset() const noexcept override { return old_.cursor.offset; }
  std::uint64_t newOffset() const noexcept override { return new_.cursor.offset; }

  TextStore& store_;
  std::uint64_t mask_;
  void* record_;
  void* key_;
  Side old_{__LINE__};
  Side new_{__LINE__};
};

}  // namespace

unsigned int TextStore::verifyUpdate(std::uint64_t kind, std::uint64_t mask, void* record,
                                     void* key) noexcept {
  Routine routine(Function::textVerifyUpdate);
  return routine.exit(TextVerification(*this, routine, kind, mask, record, key)
                          .run(Function::textCheckHooks, checkHooks()));
}
