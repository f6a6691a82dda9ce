// Streams of the runtime library over a second handle of the file. The two share one file pointer,
// which is where an unbuffered stream stands.
#include "platform/stream_face.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include "sysservices/fault_hook.h"
#include "sysservices/windows/system_call.h"

namespace platform {

bool StreamFace::open(StreamTarget& target, std::intptr_t handle, bool appends) noexcept {
  close();
  const int fault = ossFaultPoint("fopen", nullptr);
  errno = fault > 0 ? fault : EMFILE;
  if (fault > 0) return false;
  HANDLE copy = nullptr;
  const HANDLE self = ::GetCurrentProcess();
  const auto own = reinterpret_cast<HANDLE>(handle);  // NOLINT(performance-no-int-to-ptr)
  if (!::DuplicateHandle(self, own, self, &copy, 0, FALSE, DUPLICATE_SAME_ACCESS)) return false;
  const int flags = _O_BINARY | _O_NOINHERIT | (appends ? _O_APPEND : _O_RDONLY);
  const int descriptor = oss::descriptorOf(copy, flags);
  if (descriptor < 0) return false;
  stream_ = ::_fdopen(descriptor, appends ? "a+b" : "rb");
  if (stream_ == nullptr) {
    ::_close(descriptor);
    return false;
  }
  (void)std::setvbuf(stream_, nullptr, _IONBF, 0);
  setPlace(target);
  return true;
}

void StreamFace::fetchPlace(StreamTarget& target) const noexcept {
  const std::int64_t place = stream_ == nullptr ? -1 : ::_ftelli64(stream_);
  if (place >= 0 && place != target.streamPlace()) (void)target.streamSeek(place, false);
}

void StreamFace::setPlace(const StreamTarget& target) const noexcept {
  if (stream_ != nullptr) (void)::_fseeki64(stream_, target.streamPlace(), SEEK_SET);
}

}  // namespace platform
