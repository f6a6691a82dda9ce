#include "genreg/core/repair.h"

namespace genreg {

Code Repair::run() noexcept {
  if (store_.pending() != nullptr) return routine_.refuse(GENREG_RC_UPDATE_OPEN, 10);
  store_.handle().beginUpdate();
  if (!store_.recordSize(routine_, &size_)) return routine_.code();
  if (!store_.lock(routine_, GENREG_LOCK_EXCLUSIVE | GENREG_LOCK_WAIT)) return routine_.code();
  // First to see whether there is anything to leave out: a repair that finds nothing leaves the
  // corrupt file of the one before it.
  if (store_.open(routine_, GENREG_OP_READ, 64)) {
    (void)salvage(false);
    (void)store_.close(routine_, GENREG_OP_READ, 200);
  }
  const bool needed = routine_.ok() && report_.bytesLeftOut != 0;
  report_ = needed ? GenRegRepairReport{} : report_;
  if (needed && store_.open(routine_, GENREG_OP_CHANGE, 64)) {
    (void)salvage(true);
    finish();
  }
  store_.unlock(routine_);
  return routine_.code();
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
    if (!store_.skipDamage(file, store_.form(this, size_))) {
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
void Repair::finish() noexcept {
  Session& session = store_.session();
  const Code code = routine_.ok() ? session.replaceDamaged() : session.close(GENREG_OP_READ);
  if (code != 0) {
    (void)routine_.failFrom(Function::closeRegFile, code, GENREG_RC_CLOSE_AFTER_OPERATION, 200);
  }
  if (!session.isCommitted()) (void)session.deleteTemporary();
}

}  // namespace genreg
