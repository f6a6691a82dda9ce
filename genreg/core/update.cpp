#include "genreg/core/update.h"

#include "genreg/core/verification.h"

namespace genreg {

Code Update::run() noexcept {
  store_.handle().beginUpdate();
  if (!check()) return routine_.code();  // nothing is touched before every check has passed
  if (pending_ != nullptr) {             // one of many changes: the session has all it needs
    runPending();
    release();
    return routine_.code();
  }
  if (store_.lock(routine_, kind_.lockRequest)) {  // one writer, whoever comes and goes
    // A crashed commit put back, leftovers aside, a new file.
    if (store_.open(routine_, kind_.operation, 64)) {
      rewrite();                    // unchanged runs as they are, the rest judged one by one
      close();                      // synced; without verification this commits
      if (toBeVerified_) verify();  // exactly this change is committed, or nothing
    }
    store_.unlock(routine_);
  }
  release();
  if (routine_.code() == 0) notifyHooks();
  return routine_.code();
}

// The caller's arguments and the hooks. A Change validates its new record, not the key.
bool Update::check() noexcept {
  if (isAdd()) {
    if (const Code code = store_.checkHooks(); code != 0) {
      return routine_.failFrom(store_.kind.checkHooks, code, GENREG_RC_HOOK_MISSING, 5);
    }
  }
  const bool writes = kind_.operation != GENREG_OP_DELETE;
  if (!store_.validate(routine_, mask_, writes ? record_ : key_)) return false;
  if (writes && record_ == nullptr) return routine_.fail(OSS_RC_NULL_ARGUMENT, 25);
  if (!store_.recordSize(routine_, &size_)) return false;
  const Code code = stored_.record.reserve(size_);
  return code == 0 || routine_.failFrom(probeMemAlloc, code, GENREG_RC_BUFFER_ALLOC, 60);
}

// --- in an update of many changes ---

void Update::runPending() noexcept {
  if (!openPending()) return;
  void* const key = isAdd() ? record_ : key_;
  // An Add that would append in place looks at the end alone.
  const bool onlyEnd = !compares() && !store_.has(GENREG_VERIFY_UPDATES);
  if (onlyEnd) {
    pending_->beginAtLast();
  } else {
    const RecordForm* form = store_.canKeepRuns() ? store_.form(key, size_) : nullptr;
    compares() ? pending_->begin(form, mask_, key) : pending_->beginOdd(form);
  }
  const bool read = onlyEnd ? endRecords() : copyRecords();
  if (read && (isAdd() ? writeAdded() : findings()) && notePending()) {
    pending_->accept(store_.form(key, size_));
  }
}

bool Update::endRecords() noexcept {
  Frame frame;
  Code code = 0;
  while ((code = pending_->next(frame)) == 0) {
    std::string_view gap;
    if (!store_.gapBehind(routine_, frame.bytes, &gap)) return false;
    if (!gap.empty() && !pending_->end(gap, store_)) return failPending();
  }
  return code == GENREG_RC_END ||
         routine_.failFrom(store_.kind.readRecord, code, GENREG_RC_READ_FAILED, 96);
}

// What opening the registry file would say.
bool Update::openPending() noexcept {
  const bool scans = store_.handle().hasStatus(GENREG_STATUS_SCAN_OPEN);
  if (!scans && (isAdd() || !pending_->isMissing())) return true;
  return routine_.failFrom(Function::openRegFile, scans ? GENREG_RC_SCAN_OPEN : GENREG_RC_NO_FILE,
                           GENREG_RC_OPEN_FOR_OPERATION, 64);
}

// Copies for the hook that hears of the change once it is committed.
bool Update::notePending() noexcept {
  if (store_.kind.isText || !store_.has(GENREG_NOTIFY_CHANGE) ||
      store_.handle().notifyHook() == nullptr) {
    return true;
  }
  void* const first = isAdd() ? record_ : key_;
  Pending::Note note{kind_.operation, pending_->keepCopy(first, size_),
                     isChange() ? pending_->keepCopy(record_, size_) : nullptr};
  const bool kept = note.first != nullptr || first == nullptr;
  return (kept && (!isChange() || note.second != nullptr) && pending_->add(note)) || failPending();
}

bool Update::failPending() noexcept {
  return routine_.failFrom(probeMemAlloc, OSS_RC_NO_MEMORY, GENREG_RC_BUFFER_ALLOC, 116);
}

Code Update::next(Frame& frame) noexcept {
  return pending_ != nullptr ? pending_->next(frame) : store_.next(store_.session().main(), frame);
}

bool Update::keep(const Frame& frame) noexcept {
  if (pending_ == nullptr) {
    return store_.keep(routine_, store_.session().second(), frame, kind_.operation);
  }
  // A last line without its end might be what an interrupted write has left.
  if (kind_.operation == GENREG_OP_DELETE && frame.unended && store_.has(GENREG_VERIFY_UPDATES) &&
      pending_->followsRemoved()) {
    return routine_.failFrom(store_.kind.verifyUpdate, GENREG_RC_VERIFY_OLD_ENDED,
                             GENREG_RC_VERIFY_FAILED, 118);
  }
  std::string_view gained;
  if (!store_.mayKeep(routine_, frame, kind_.operation, &gained)) return false;
  return gained.empty() || pending_->end(gained, store_) || failPending();
}

bool Update::drop() noexcept { return pending_ == nullptr || pending_->remove() || failPending(); }

// Writes a record that was made, in the place of the one read last or behind all.
bool Update::put(std::string_view made, Code failed, unsigned int point) noexcept {
  if (pending_ == nullptr) {
    return store_.write(routine_, store_.session().second(), made, failed, point) && readBack(made);
  }
  if (!readBack(made) || !provesItself(made)) return false;
  return (isAdd() ? pending_->add(made) : pending_->replace(made)) || failPending();
}

// The commit compares bytes alone, so that what cannot be read back is refused here, as the
// verification of a single update does.
bool Update::provesItself(std::string_view made) noexcept {
  const bool repacked = !store_.kind.isText && store_.has(GENREG_PACKED_RECORDS);
  if (!store_.has(GENREG_VERIFY_UPDATES) || repacked) return true;
  if (!unpackMade(made, 116) || !store_.canCompare(routine_, 117)) return false;
  const bool isOne = !store_.kind.isText || made.find('\n') + 1 == made.size();
  return (isOne && written_.parsed && store_.isRecord(written_, record_)) ||
         routine_.failFrom(store_.kind.verifyUpdate, GENREG_RC_VERIFY_UNEXPECTED,
                           GENREG_RC_VERIFY_FAILED, 118);
}

// --- the work ---

// Whether records are compared with the operation's; an Add that allows duplicates looks at none.
bool Update::compares() const noexcept { return !isAdd() || !store_.has(GENREG_ALLOW_DUPLICATES); }

// What a Change or Delete has come to when all records are read.
bool Update::findings() noexcept {
  if (unchanged_) return routine_.fail(GENREG_RC_UNCHANGED, 120);
  return count_ != 0 || routine_.fail(GENREG_RC_NOT_FOUND, 125);
}

// Reads the registry file and writes the new content.
void Update::rewrite() noexcept {
  if (!isAdd()) {
    if (copyRecords()) (void)findings();
    return;
  }
  std::uint64_t fileSize = 0;
  if (const Code code = store_.session().askSize(&fileSize); code != 0) {
    (void)routine_.failFrom(probeFileGetInfo, code, GENREG_RC_FILE_INFO, 66);
    return;
  }
  const bool inPlace = store_.session().appendsInPlace(kind_.operation);
  if (inPlace || fileSize == 0 || copyRecords()) (void)writeAdded();
}

bool Update::copyRecords() noexcept {
  Frame frame;
  for (;;) {
    if (pending_ == nullptr && !frame.goesOn && !keepRun()) return false;
    if (const Code code = next(frame); code != 0) {
      if (code == GENREG_RC_END) return true;
      return routine_.failFrom(store_.kind.readRecord, code, GENREG_RC_READ_FAILED, 70);
    }
    bool matching = false;
    if (!judge(frame, &matching) || !treat(frame, matching)) return false;
  }
}

// Writes what surely stays in one piece, as it stands. Where an Add allows duplicates, that is what
// matches the new record, too, and every line.
bool Update::keepRun() noexcept {
  void* key = isAdd() ? record_ : key_;
  const RecordForm* form = store_.form(key, size_);
  const bool anything = store_.kind.isText && !compares();
  if ((form == nullptr && !anything) || !store_.canKeepRuns()) return true;
  File& file = store_.session().main();
  const std::string_view run = store_.run(file, anything ? nullptr : form, mask_, key, !compares());
  if (run.empty()) return true;
  file.skip(run.size());
  return store_.write(routine_, store_.session().second(), run, GENREG_RC_COPY_FAILED, 110);
}

// Whether a record matches the key of the operation; for an Add that allows duplicates, none does.
// A line that does not parse matches nothing.
bool Update::judge(const Frame& frame, bool* matching) noexcept {
  if (!compares() && store_.kind.isText) return true;
  if (!store_.unpack(routine_, frame, stored_, size_, 72)) return false;
  if (!compares() || !stored_.parsed) return true;
  if (!store_.canCompare(routine_, 76)) return false;
  *matching = store_.matches(mask_, stored_, isAdd() ? record_ : key_);
  return true;
}

bool Update::treat(const Frame& frame, bool matching) noexcept {
  if (!matching) return keep(frame);
  if (isAdd()) {
    routine_.trace(79, text("Match found; duplicate record"));
    return routine_.fail(GENREG_RC_DUPLICATE, 80);
  }
  if (isChange() && store_.matches(GENREG_ALL_FIELDS, stored_, record_)) {
    unchanged_ = true;
    return keep(frame);
  }
  if (count_ > 0 && !store_.has(GENREG_ALLOW_DUPLICATES)) {
    return routine_.fail(GENREG_RC_AMBIGUOUS, 82);
  }
  if (!store_.mayTouch(routine_, frame)) return false;
  ++count_;
  return isChange() ? change(frame) : drop();
}

bool Update::change(const Frame& frame) noexcept {
  const std::string_view made =
      store_.pack(routine_, record_, &frame, written_, size_, GENREG_RC_COPY_FAILED);
  return !made.empty() && put(made, GENREG_RC_COPY_FAILED, 112);
}

bool Update::writeAdded() noexcept {
  Session& session = store_.session();
  const bool inPlace = session.appendsInPlace(kind_.operation);  // not in an update of many
  std::string_view before;
  if (inPlace && !store_.findEnd(routine_, session.main(), &before)) return false;
  const std::string_view made =
      store_.pack(routine_, record_, nullptr, written_, size_, GENREG_RC_WRITE_NEW_FAILED);
  if (made.empty()) return false;
  if (!inPlace) return put(made, GENREG_RC_WRITE_NEW_FAILED, 100);
  // Readers look at this very file: until all of it is on the disk, it is no record.
  const std::string_view mark = store_.unfinishedMark(made);
  const int error =
      session.main().append(before.data(), before.size())
          ? session.main().appendInPlace(made.data(), made.size(), mark.data(), mark.size())
          : session.main().error();
  return error == 0 ||
         routine_.failSystem(error, GENREG_RC_WRITE_NEW_FAILED, 104, session.registryPath());
}

// The verification pass compares with the record as it will be read: a field that the caller's
// record does not have may hold anything there, and holds nothing in what was stored.
bool Update::readBack(std::string_view frame) noexcept {
  if (!store_.has(GENREG_VERIFY_UPDATES) || !store_.has(GENREG_PACKED_RECORDS) ||
      store_.kind.isText) {
    return true;
  }
  return unpackMade(frame, 114);
}

bool Update::unpackMade(std::string_view made, unsigned int point) noexcept {
  Frame frame;
  frame.bytes = made;
  frame.stored = store_.storedOf(made);
  const Code code = written_.record.reserve(size_);
  if (code != 0) return routine_.failFrom(probeMemAlloc, code, GENREG_RC_BUFFER_ALLOC, point);
  return store_.unpack(routine_, frame, written_, size_, 115);
}

// Closes the files. Failures here count only when nothing else failed.
void Update::close() noexcept {
  Session& session = store_.session();
  const bool unchanged = routine_.code() == GENREG_RC_UNCHANGED;
  const bool abandoned = !routine_.ok() && !unchanged;
  bool closed = false;
  {
    const Routine::CleanUp cleanUp(routine_);
    closed = store_.close(routine_, abandoned ? GENREG_OP_READ : kind_.operation, 200);
  }
  if (!store_.has(GENREG_VERIFY_UPDATES)) return;
  if (kind_.deletesTemporary && (abandoned || unchanged)) {
    const Code code = session.deleteTemporary();
    if (code != 0) {
      (void)routine_.failFrom(probeFileDelete, code, GENREG_RC_DELETE_TEMP_FAILED, 210);
      routine_.replace(GENREG_RC_DELETE_TEMP_FAILED);
    }
    return;
  }
  // A Change or Delete is verified even after a failed close: the pass reads what is on the disk,
  // and a file that lacks something is refused. An Add is not. Nor is a temporary file whose sync
  // failed: reading it back would come from memory and prove nothing about the disk.
  toBeVerified_ =
      routine_.ok() && (closed || kind_.deletesTemporary) && session.temporaryIsDurable();
}

void Update::verify() noexcept {
  const bool repacked = !store_.kind.isText && store_.has(GENREG_PACKED_RECORDS);
  void* record = repacked && record_ != nullptr ? written_.record.data() : record_;
  const Code code = Verification(store_, kind_.operation, mask_, record, key_).run();
  if (code != 0) {
    (void)routine_.failFrom(store_.kind.verifyUpdate, code, GENREG_RC_VERIFY_FAILED, 220);
  }
}

void Update::release() noexcept {
  const Code first = stored_.release();
  const Code second = written_.release();
  const Code code = first != 0 ? first : second;
  if (code == 0) return;
  const Routine::CleanUp cleanUp(routine_);
  (void)routine_.failFrom(probeMemFree, code, GENREG_RC_BUFFER_FREE, 240);
}

void Update::notifyHooks() noexcept {
  const HandleAccess& handle = store_.handle();
  if (!store_.kind.isText && store_.has(GENREG_NOTIFY_CHANGE) && handle.notifyHook() != nullptr) {
    const Code answer =
        handle.notifyHook()(&handle.handle(), kind_.operation, isAdd() ? record_ : key_,
                            isChange() ? record_ : nullptr);
    // An Add ignores the answer; after the others it keeps PostUpdate from being called.
    if (answer != 0 && !isAdd()) return;
  }
  callPostUpdate(store_, routine_);
}

void callPostUpdate(const RecordStore& store, Routine& routine) noexcept {
  if (!store.has(GENREG_POST_UPDATE)) return;
  if (store.handle().postUpdateHook() == nullptr) {
    (void)routine.fail(GENREG_RC_NO_POST_UPDATE_HOOK, 250);
  } else if (const Code answer = store.handle().postUpdateHook()(); answer != 0) {
    routine.note(answer, 260, failureSeverity, number(answer));
  }
}

}  // namespace genreg
