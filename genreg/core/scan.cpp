// Scanning a registry file: open under a shared lock, position, rewind, close.
#include <cerrno>

#include "genreg/core/handle.h"
#include "genreg/core/pending.h"

using genreg::Function;
using genreg::Routine;

namespace {

// A stream whose file was moved: what was put back into it, and that it met the end, is no more.
void forgetStream(std::FILE* stream, genreg::Session& session) {
  (void)std::fseek(stream, 0, SEEK_CUR);
  session.scanned().setPlace();
  std::clearerr(stream);
}

}  // namespace

unsigned int GenRegFile::OpenScan() noexcept {
  const genreg::Operation operation(*this);
  return operation.end(openScan());
}

unsigned int GenRegFile::openScan() noexcept {
  Routine routine(Function::openScan);
  if (session == nullptr) return routine.refuse(GENREG_RC_OPEN_FAILED, 5);
  if (genreg::Pending* pending = session->pending(); pending != nullptr) {
    status &= ~(GENREG_STATUS_SCAN_OPEN | GENREG_STATUS_SCAN_END);
    if (pending->isMissing()) return routine.refuse(GENREG_RC_OPEN_FAILED, 11);
    pending->scanPlace = 0;
    status |= GENREG_STATUS_SCAN_OPEN;
    return GENREG_RC_OK;
  }
  // A caller that opens a second scan over an open one gives the first one up.
  session->hideStreams();
  (void)session->endScan();
  status &= ~(GENREG_STATUS_SCAN_OPEN | GENREG_STATUS_SCAN_END);
  const bool isPlain = genreg::HandleAccess(*this).form() != nullptr;
  if (!(isPlain && session->scanCached()) && session->openReadable(routine, true, 10) != 0) {
    return routine.code();
  }
  // What is written behind the end from now on is not of this scan.
  const bool knows = session->scanned().learnSize();
  if (!knows || !session->showStreams()) {
    const int error = knows ? errno : session->scanned().error();
    (void)routine.failSystem(error, GENREG_RC_OPEN_FAILED, knows ? 40 : 30, registryPath);
    (void)session->endScan();
    return routine.code();
  }
  status |= GENREG_STATUS_SCAN_OPEN;
  return GENREG_RC_OK;
}

unsigned int GenRegFile::CloseScan() noexcept {
  Routine routine(Function::closeScan);
  const bool ownsFile = session != nullptr && session->pending() == nullptr;
  const int error = ownsFile ? session->endScan() : 0;
  if (error != 0) {
    (void)routine.failSystem(error, GENREG_RC_CLOSE_FAILED, 10, registryPath, OSS_SYSCALL_CLOSE);
  }
  mainStream = nullptr;
  status &= ~(GENREG_STATUS_SCAN_OPEN | GENREG_STATUS_SCAN_END);
  return routine.code();
}

unsigned int GenRegFile::Rewind() noexcept {
  Routine routine(Function::rewindScan);
  if ((status & GENREG_STATUS_SCAN_OPEN) == 0) return routine.refuse(GENREG_RC_NO_SCAN, 10);
  if (session->pending() != nullptr) {
    session->pending()->scanPlace = 0;
  } else {
    session->scanned().seek(0);
    forgetStream(mainStream, *session);
  }
  status &= ~GENREG_STATUS_SCAN_END;
  return GENREG_RC_OK;
}

unsigned int GenRegFile::getRegFilePosition(std::int64_t* position) noexcept {
  Routine routine(Function::getPosition);
  if ((status & GENREG_STATUS_SCAN_OPEN) == 0) return routine.refuse(GENREG_RC_NO_SCAN, 10);
  if (position == nullptr) return routine.refuse(OSS_RC_NULL_ARGUMENT, 20);
  if (session->pending() != nullptr) {
    *position = static_cast<std::int64_t>(session->pending()->scanPlace);
    return GENREG_RC_OK;
  }
  session->scanned().fetchPlace();
  *position = static_cast<std::int64_t>(session->scanned().offset());
  return GENREG_RC_OK;
}

unsigned int GenRegFile::setRegFilePosition(std::int64_t* position) noexcept {
  Routine routine(Function::setPosition);
  if ((status & GENREG_STATUS_SCAN_OPEN) == 0) return routine.refuse(GENREG_RC_NO_SCAN, 10);
  if (position == nullptr) return routine.refuse(OSS_RC_NULL_ARGUMENT, 20);
  if (*position < 0) {
    (void)routine.failSystem(EINVAL, GENREG_RC_SETPOS_FAILED, 30, registryPath);
    return routine.code();
  }
  const auto place = static_cast<std::uint64_t>(*position);
  if (session->pending() != nullptr) {
    session->pending()->scanPlace = place;
    return GENREG_RC_OK;
  }
  session->scanned().seek(place);
  forgetStream(mainStream, *session);
  return GENREG_RC_OK;
}
