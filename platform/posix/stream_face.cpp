// Streams that ask the file's owner for every byte.
#include "platform/stream_face.h"

#include "sysservices/fault_hook.h"

namespace platform {
namespace {

StreamTarget& targetOf(void* cookie) { return *static_cast<StreamTarget*>(cookie); }

ssize_t readTarget(void* cookie, char* buffer, std::size_t size) {
  return targetOf(cookie).streamRead(buffer, size);
}

// A stream takes 0 for a failure.
ssize_t writeTarget(void* cookie, const char* buffer, std::size_t size) {
  const std::ptrdiff_t written = targetOf(cookie).streamWrite(buffer, size);
  return written < 0 ? 0 : written;
}

int seekTarget(void* cookie, off64_t* position, int whence) {
  StreamTarget& target = targetOf(cookie);
  const std::int64_t base = whence == SEEK_CUR ? target.streamPlace() : 0;
  const std::int64_t place = target.streamSeek(base + *position, whence == SEEK_END);
  if (place < 0) return -1;
  *position = place;
  return 0;
}

}  // namespace

// A process has one C library here.
bool isOfThisRuntime(std::FILE*) noexcept { return true; }

bool StreamFace::open(StreamTarget& target, std::intptr_t, bool appends) noexcept {
  close();
  const cookie_io_functions_t functions{readTarget, writeTarget, seekTarget, nullptr};
  if (const int fault = ossFaultPoint("fopen", nullptr); fault > 0) {
    errno = fault;
    return false;
  }
  stream_ = ::fopencookie(&target, appends ? "r+" : "r", functions);
  if (stream_ == nullptr) return false;
  (void)std::setvbuf(stream_, nullptr, _IONBF, 0);
  return true;
}

// The stream has no place of its own.
void StreamFace::fetchPlace(StreamTarget&) const noexcept {}
void StreamFace::setPlace(const StreamTarget&) const noexcept {}

}  // namespace platform
