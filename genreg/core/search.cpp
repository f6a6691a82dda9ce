#include "genreg/core/search.h"

#include <cstring>

#include "genreg/core/cached_reads.h"
#include "genreg/core/pending.h"

namespace genreg {
namespace {

constexpr unsigned int readOpenSeverity = 4;  // a binary registry that cannot be opened for Get

// Where records come from, one after the other.
struct FileRecords {
  const RecordStore& store;
  File& file;
  Code next(Frame& frame) noexcept { return store.next(file, frame); }
  void skipDiffering(const RecordForm* form, std::uint64_t mask, const void* key) noexcept {
    file.skip(store.run(file, form, mask, key, false).size());
  }
};
struct PendingRecords {
  Pending& pending;
  Code next(Frame& frame) noexcept { return pending.next(frame); }
  void skipDiffering(const RecordForm*, std::uint64_t, const void*) noexcept {}
};
struct IndexedRecords {
  const RecordStore& store;
  RecordIndex& index;
  Code next(Frame& frame) noexcept { return index.next(store, frame); }
  void skipDiffering(const RecordForm*, std::uint64_t, const void*) noexcept {}
};

class Search {
 public:
  Search(RecordStore& store, Function name, std::uint64_t mask, void* key, void* record) noexcept
      : store_(store), routine_(name), mask_(mask), key_(key), record_(record) {}

  Code get() noexcept;
  Code getNext() noexcept;

 private:
  void explainLate() noexcept;
  void findPending() noexcept;
  bool check(bool asks) noexcept;
  bool open() noexcept;
  bool openPending(bool isRefused) noexcept;
  bool failToOpen(Code code) noexcept;
  void close() noexcept;
  void search() noexcept;
  template <typename Records>
  void find(Records records) noexcept;
  bool judge(const Frame& frame, bool* found) noexcept;
  bool release() noexcept;

  RecordStore& store_;
  Pending* const pending_{store_.pending()};  // the content, in an update of many changes
  CachedReads* cached_ = nullptr;             // the content, where it is kept between reads
  Routine routine_;
  std::uint64_t mask_;
  void* key_;
  void* record_;
  std::uint64_t size_ = 0;
  Slot slot_;
  std::uint64_t place_ = 0;  // of the scan whose file a Get borrows
  bool borrows_ = false;
  Code readCode_ = 0;  // why no record could be read
  bool any_ = false;   // any line is asked for, without a key
};

Code Search::get() noexcept {
  if (!check(true) || !store_.recordSize(routine_, &size_)) return routine_.code();
  if (open()) {
    search();
    close();
  }
  if (routine_.code() == GENREG_RC_END) {
    std::memset(record_, 0, size_);
    routine_.replace(GENREG_RC_NOT_FOUND);
  }
  // The caller of a text registry has what was asked for: a release that fails is only logged.
  const Code result = routine_.code();
  if (!release() && store_.kind.isText) routine_.replace(result);
  return routine_.code();
}

Code Search::getNext() noexcept {
  if (!store_.handle().hasStatus(GENREG_STATUS_SCAN_OPEN)) {
    return routine_.refuse(GENREG_RC_NO_SCAN, 5);
  }
  any_ = store_.kind.isText && mask_ == 0;
  if (!check(!any_)) return routine_.code();
  if (store_.handle().hasStatus(GENREG_STATUS_SCAN_END)) {
    (void)routine_.end(GENREG_RC_END);
    return GENREG_RC_END;
  }
  if (!store_.recordSize(routine_, &size_)) return routine_.code();
  if (pending_ != nullptr) {
    findPending();
  } else {
    File& file = store_.session().scanned();
    file.fetchPlace();
    find(FileRecords{store_, file});
    file.setPlace();
  }
  const Code result = routine_.code();
  if (result == GENREG_RC_END) store_.handle().setStatus(GENREG_STATUS_SCAN_END);
  if (result == GENREG_RC_END || result == GENREG_RC_NO_UNPACK_HOOK_PACKED ||
      result == GENREG_RC_UNPACK_FAILED) {
    std::memset(record_, 0, size_);
  }
  if (!release() && store_.kind.isText) routine_.replace(GENREG_RC_BUFFER_FREE);
  if (routine_.code() != 0) explainLate();
  return routine_.code();
}

// A scan reads too many records for each to say beforehand that failures are to be explained.
[[gnu::noinline]] void Search::explainLate() noexcept {
  if (routine_.code() == GENREG_RC_END) return;
  Cause& cause = store_.session().cause();
  cause.clear();
  cause.explain(routine_.code(), readCode_);
}

// Apart, so that it is not in the way of the scans of files.
[[gnu::noinline]] void Search::findPending() noexcept {
  pending_->beginAt(pending_->scanPlace);
  find(PendingRecords{*pending_});
  pending_->scanPlace = pending_->place();
}

bool Search::check(bool asks) noexcept {
  if (!store_.validate(routine_, mask_, key_, asks)) return false;
  return record_ != nullptr || routine_.fail(OSS_RC_NULL_ARGUMENT, 25);
}

// The registry file, or the scan's where a scan is open and GENREG_GET_IN_SCAN says so; the scan's
// own state, its end included, stays as it is.
bool Search::open() noexcept {
  const bool scans = store_.handle().hasStatus(GENREG_STATUS_SCAN_OPEN);
  borrows_ = scans && store_.has(GENREG_GET_IN_SCAN);
  if (pending_ != nullptr) return openPending(scans && !borrows_);
  if (borrows_) {
    File& file = store_.session().scanned();
    file.fetchPlace();
    place_ = file.offset();
    file.seek(0);
    return true;
  }
  const RecordForm* form = store_.form(key_, size_);
  if (form != nullptr && store_.handle().session() != nullptr) {
    cached_ = store_.session().cachedReads();
    if (cached_ != nullptr) return true;
  }
  const Code code = store_.handle().open(GENREG_OP_READ);
  return code == 0 || failToOpen(code);
}

void Search::search() noexcept {
  if (pending_ != nullptr) return find(PendingRecords{*pending_});
  if (cached_ == nullptr) return find(FileRecords{store_, store_.session().scanned()});
  const RecordForm* form = store_.form(key_, size_);
  if (RecordIndex* index = cached_->find(store_, form, mask_, key_); index != nullptr) {
    return find(IndexedRecords{store_, *index});
  }
  cached_->file().seek(0);
  find(FileRecords{store_, cached_->file()});
}

bool Search::openPending(bool isRefused) noexcept {
  if (isRefused) return failToOpen(GENREG_RC_SCAN_OPEN);
  if (pending_->isMissing()) return failToOpen(GENREG_RC_NO_FILE);
  pending_->begin(store_.canKeepRuns() ? store_.form(key_, size_) : nullptr, mask_, key_);
  return true;
}

bool Search::failToOpen(Code code) noexcept {
  const bool isText = store_.kind.isText;
  const bool noFile = code == GENREG_RC_NO_FILE && !isText;
  return routine_.failFrom(Function::openRegFile, code,
                           noFile ? GENREG_RC_NO_FILE : GENREG_RC_OPEN_FOR_OPERATION, 60,
                           isText ? failureSeverity : readOpenSeverity);
}

void Search::close() noexcept {
  if (pending_ != nullptr || cached_ != nullptr) return;
  if (borrows_) {
    File& file = store_.session().scanned();
    file.seek(place_);
    file.setPlace();
    return;
  }
  const Routine::CleanUp cleanUp(routine_);
  (void)store_.close(routine_, GENREG_OP_READ, 170);
}

// The first match from where the file stands, in the caller's record; GENREG_RC_END, or a failure.
// What the flavour knows of stored bytes passes over what is not wanted and fills the record at
// once; what it is not sure of goes through the hooks.
template <typename Records>
void Search::find(Records records) noexcept {
  const RecordForm* form = store_.form(any_ ? record_ : key_, size_);
  Frame frame;
  for (;;) {
    if (const Code code = records.next(frame); code != 0) {
      if (code == GENREG_RC_END) {
        (void)routine_.end(code);
      } else {
        readCode_ = code;
        (void)routine_.failFrom(store_.kind.readRecord, code, GENREG_RC_READ_FAILED, 80);
      }
      return;
    }
    if (form != nullptr && frame.isPlain()) {
      const char* stored = frame.stored.data();
      const Match match =
          any_ ? Match::Matches : form->matchToFill(mask_, stored, frame.stored.size(), key_);
      if (match == Match::Differs) {
        records.skipDiffering(form, mask_, key_);
        continue;
      }
      if (match == Match::Matches && form->fill(stored, frame.stored.size(), record_)) return;
    }
    bool found = false;
    if (!judge(frame, &found)) return;
    if (!found) continue;
    if (size_ < smallestReturnedRecord) {
      (void)routine_.fail(GENREG_RC_RECORD_TOO_LARGE, 150, number(smallestReturnedRecord));
    } else {
      store_.copyOut(slot_, size_, record_);
    }
    return;
  }
}

// A line that does not parse is compared all the same: the flavour may know it by what it could
// read.
bool Search::judge(const Frame& frame, bool* found) noexcept {
  if (const Code code = slot_.record.reserve(size_); code != 0) {
    return routine_.failFrom(probeMemAlloc, code, GENREG_RC_BUFFER_ALLOC, 82);
  }
  if (!store_.unpack(routine_, frame, slot_, size_, 84)) return false;
  if (!any_ && !store_.canCompare(routine_, 90)) return false;
  *found = any_ || store_.matches(mask_, slot_, key_);
  return true;
}

bool Search::release() noexcept {
  const Code code = slot_.release();
  if (code == 0) return true;
  const Routine::CleanUp cleanUp(routine_);
  return routine_.failFrom(probeMemFree, code, GENREG_RC_BUFFER_FREE, 180);
}

}  // namespace

Code get(RecordStore& store, std::uint64_t mask, void* key, void* record) noexcept {
  return Search(store, store.kind.get, mask, key, record).get();
}

namespace {

// The next record of a scan, where all up to it stand whole in the window, and the flavour knows
// them as they stand: that is so for most. Else false, and only records that differ are passed.
bool takeNext(RecordStore& store, std::uint64_t mask, const void* key, void* record) noexcept {
  const HandleAccess& handle = store.handle();
  constexpr std::uint64_t scanBits = GENREG_STATUS_SCAN_OPEN | GENREG_STATUS_SCAN_END;
  if (!handle.isExactly(scanBits, GENREG_STATUS_SCAN_OPEN) || record == nullptr) return false;
  const RecordForm* form = handle.form();
  if (form == nullptr || store.pending() != nullptr || handle.sizeHook() != form->getRecordSize ||
      handle.validateHook() != form->validateKey || !store.suits(*form)) {
    return false;
  }
  const bool any = store.kind.isText && mask == 0;
  if (!any && (key == nullptr || form->accepts == nullptr || !form->accepts(mask))) return false;
  File& file = store.session().scanned();
  file.fetchPlace();
  bool taken = false;
  for (Frame frame; !taken && store.takePlain(file, frame);) {
    const std::string_view stored = frame.stored;
    const Match match =
        any ? Match::Matches : form->matchToFill(mask, stored.data(), stored.size(), key);
    if (match == Match::Differs) continue;
    taken = match == Match::Matches && form->fill(stored.data(), stored.size(), record);
    if (taken) continue;
    file.seek(frame.offset);
    break;
  }
  file.setPlace();
  return taken;
}

}  // namespace

Code getNext(RecordStore& store, std::uint64_t mask, void* key, void* record) noexcept {
  if (takeNext(store, mask, key, record)) return GENREG_RC_OK;
  return Search(store, store.kind.getNext, mask, key, record).getNext();
}

}  // namespace genreg
