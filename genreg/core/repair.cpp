#include "genreg/core/repair.h"

namespace genreg {

Code Repair::run() noexcept {
  if (store_.pending() != nullptr) return routine_.refuse(GENREG_RC_UPDATE_OPEN, 10);
  store_.handle().beginUpdate();
  if (!store_.recordSize(routine_, &size_)) return routine_.code();
  constexpr std::uint64_t request = GENREG_LOCK_EXCLUSIVE | GENREG_LOCK_WAIT;
  if (const Code code = store_.handle().lock(request); code != 0) {
    const Code failed = code == GENREG_RC_BUSY ? code : GENREG_RC_LOCK_FAILED;
    (void)routine_.failFrom(Function::lockRegistry, code, failed, 62);
    return routine_.code();
  }
  // First to see whether there is anything to leave out: a repair that finds nothing leaves the
  // corrupt file of the one before it.
  Session& session = store_.session();
  if (open(GENREG_OP_READ)) {
    (void)salvage(false);
    close(false);
  }
  const bool needed = routine_.ok() && report_.bytesLeftOut != 0;
  report_ = needed ? GenRegRepairReport{} : report_;
  if (needed && open(GENREG_OP_CHANGE)) {
    (void)salvage(true);
    close(true);
  }
  if (const Code code = session.unlock(); code != 0) {
    const Routine::CleanUp cleanUp(routine_);
    (void)routine_.failFrom(Function::unlockRegistry, code, GENREG_RC_UNLOCK_FAILED, 230);
    session.dropLock();
  }
  return routine_.code();
}

bool Repair::open(std::uint64_t kind) noexcept {
  const Code code = store_.session().open(kind);
  return code == 0 ||
         routine_.failFrom(Function::openRegFile, code, GENREG_RC_OPEN_FOR_OPERATION, 64);
}

bool Repair::salvage(bool writes) noexcept {
  File& file = store_.session().main();
  Frame frame;
  for (;;) {
    const std::uint64_t start = file.offset();
    const Code code = store_.next(file, frame);
    if (code == 0) {
      if (!treat(frame, writes)) return false;
      continue;
    }
    if (code == GENREG_RC_END) {
      leaveOut(start, file.size() - start);  // what an append left unfinished
      return true;
    }
    if (file.error() != 0 || !store_.skipDamage(file, store_.form(this, size_))) {
      return routine_.failFrom(store_.kind.readRecord, code, GENREG_RC_READ_FAILED, 70);
    }
    leaveOut(start, file.offset() - start);
  }
}

bool Repair::treat(const Frame& frame, bool writes) noexcept {
  const bool sound = store_.isSound(frame);
  if (sound && (!dropUnreadable_ || isReadable(frame))) {
    ++report_.kept;
    return !writes || store_.keep(routine_, store_.session().second(), frame, GENREG_OP_CHANGE);
  }
  ++report_.dropped;
  leaveOut(frame.offset, frame.bytes.size());
  return true;
}

// A hook that refuses a record logs why, in a routine of its own.
bool Repair::isReadable(const Frame& frame) noexcept {
  Routine attempt(Function::repairRegistry);
  if (const Code code = slot_.record.reserve(size_); code != 0) {
    return routine_.failFrom(probeMemAlloc, code, GENREG_RC_BUFFER_ALLOC, 82);
  }
  return store_.unpack(attempt, frame, slot_, size_, 72) && slot_.parsed;
}

void Repair::leaveOut(std::uint64_t offset, std::uint64_t count) noexcept {
  if (count == 0) return;
  if (report_.bytesLeftOut == 0) report_.firstDamage = offset;
  report_.bytesLeftOut += count;
}

// What is left out is missing on purpose: nothing is there to be verified against.
void Repair::close(bool writes) noexcept {
  Session& session = store_.session();
  const Code code =
      writes && routine_.ok() ? session.replaceDamaged() : session.close(GENREG_OP_READ);
  if (code != 0) {
    (void)routine_.failFrom(Function::closeRegFile, code, GENREG_RC_CLOSE_AFTER_OPERATION, 200);
  }
  if (writes && !session.isCommitted()) (void)session.deleteTemporary();
}

}  // namespace genreg
