#include "genreg/core/many_changes.h"

#include <algorithm>
#include <cstring>

#include "genreg/core/update.h"

namespace genreg {

Code ManyChanges::begin(std::uint64_t request) noexcept {
  const HandleAccess& handle = store_.handle();
  if (store_.pending() != nullptr || handle.hasStatus(GENREG_STATUS_LOCKED)) {
    return routine_.refuse(GENREG_RC_UPDATE_OPEN, 10);
  }
  if (handle.hasStatus(GENREG_STATUS_SCAN_OPEN))
    return routine_.refuse(GENREG_RC_UPDATE_IN_SCAN, 20);
  handle.beginUpdate();
  if (!store_.lock(routine_, request | GENREG_LOCK_EXCLUSIVE)) return routine_.code();
  Session& session = store_.session();
  Code code = session.openContent();
  if (code != 0) {
    const bool kept = code == GENREG_RC_READ_FAILED || code == GENREG_RC_BUFFER_ALLOC;
    (void)routine_.failFrom(Function::openRegFile, code, kept ? code : GENREG_RC_OPEN_FOR_OPERATION,
                            64);
  } else if (code = session.pending()->load(store_,
                                            session.main().isOpen() ? &session.main() : nullptr);
             code != 0) {
    (void)routine_.failFrom(probeMemAlloc, code, GENREG_RC_BUFFER_ALLOC, 70);
  }
  if (!routine_.ok()) {
    store_.unlock(routine_);
    end();
  }
  return routine_.code();
}

Code ManyChanges::abandon() noexcept {
  if (store_.pending() == nullptr) return routine_.refuse(GENREG_RC_NO_UPDATE, 10);
  store_.unlock(routine_);
  end();
  return routine_.code();
}

Code ManyChanges::commit() noexcept {
  Pending* pending = store_.pending();
  if (pending == nullptr) return routine_.refuse(GENREG_RC_NO_UPDATE, 10);
  if (pending->isChanged()) replace();
  store_.unlock(routine_);
  if (routine_.code() == 0) notifyHooks(*pending);
  end();
  return routine_.code();
}

// The steps of a single update, but for the reading.
void ManyChanges::replace() noexcept {
  Session& session = store_.session();
  store_.handle().endScan();
  store_.pending()->dropIndex();
  if (const Code code = session.openForCommit(); code != 0) {
    (void)routine_.failFrom(Function::openRegFile, code, GENREG_RC_OPEN_FOR_OPERATION, 64);
    return;
  }
  write();
  (void)store_.close(routine_, routine_.ok() ? GENREG_OP_CHANGE : GENREG_OP_READ, 200);
  if (!store_.has(GENREG_VERIFY_UPDATES) || !routine_.ok()) {
    if (!session.isCommitted()) (void)session.deleteTemporary();
    return;
  }
  // A file that is refused stays to be looked at.
  if (const Code code = verify(); code != 0) {
    (void)routine_.failFrom(store_.kind.verifyUpdate, code, GENREG_RC_VERIFY_FAILED, 220);
  }
}

void ManyChanges::write() noexcept {
  File& file = store_.session().second();
  (void)store_.pending()->forEachRun([&](std::string_view run) {
    if (file.append(run.data(), run.size())) return true;
    const std::int32_t error = file.error();
    return routine_.fail(GENREG_RC_WRITE_NEW_FAILED, 100, number(error));
  });
}

// Both files are read again: the old one must still be what was read, the new one what is pending.
Code ManyChanges::verify() noexcept {
  Routine routine(store_.kind.verifyUpdate);
  Session& session = store_.session();
  if (!store_.open(routine, GENREG_OP_VERIFY, 70)) return routine.code();
  const Pending& pending = *store_.pending();
  File& before = session.main();
  File& after = session.second();
  if (expectBytes(routine, before, pending.original(), GENREG_RC_READ_FAILED)) {
    (void)pending.forEachRun([&](std::string_view run) {
      return expectBytes(routine, after, run, GENREG_RC_VERIFY_READ_NEW);
    });
  }
  if (routine.ok() && !(before.atEnd() && after.atEnd())) {
    (void)routine.fail(GENREG_RC_VERIFY_ADD_TRAILING, 132);
  }
  (void)store_.close(routine, routine.ok() ? GENREG_OP_VERIFY : GENREG_OP_READ, 160);
  return routine.code();
}

// Whether these bytes are the next of a file, which then stands behind them.
bool ManyChanges::expectBytes(Routine& routine, File& file, std::string_view bytes,
                              Code unreadable) noexcept {
  constexpr std::size_t piece = std::size_t{64} * 1024;
  while (!bytes.empty()) {
    const std::size_t count = std::min(bytes.size(), piece);
    const std::uint64_t offset = file.offset();
    if (!file.more(count)) {
      const std::int32_t error = file.error();
      return routine.fail(unreadable, 90, number(error), number(offset));
    }
    if (file.windowSize() < count || std::memcmp(file.window(), bytes.data(), count) != 0) {
      return routine.fail(GENREG_RC_VERIFY_UNEXPECTED, 101, number(offset));
    }
    file.skip(count);
    bytes.remove_prefix(count);
  }
  return true;
}

void ManyChanges::end() noexcept {
  store_.handle().endScan();
  store_.session().endMany();
}

void ManyChanges::notifyHooks(const Pending& pending) noexcept {
  const HandleAccess& handle = store_.handle();
  bool accepted = true;
  for (const Pending::Note& note : pending.notes()) {
    if (handle.notifyHook() == nullptr) break;
    const Code answer =
        handle.notifyHook()(&handle.handle(), note.operation, note.first, note.second);
    accepted = accepted && (answer == 0 || note.operation == GENREG_OP_ADD);
  }
  if (accepted && pending.wasChanged()) callPostUpdate(store_, routine_);
}

}  // namespace genreg
