// Streams of the runtime library over a second handle of the file. The two share one file pointer,
// which is where an unbuffered stream stands.
#include "platform/stream_face.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include "sysservices/fault_hook.h"

namespace platform {
namespace {

// The runtime's number for a handle, which it owns from then on; -1, with the handle closed, when
// there is none left. Never one of the standard three: a host that closed one of those must not
// find a registry file in its place.
int descriptorOf(HANDLE handle, int flags) {
  constexpr int firstFree = 3;
  int low[firstFree];
  int count = 0;
  int descriptor = -1;
  for (;;) {
    descriptor = ::_open_osfhandle(reinterpret_cast<std::intptr_t>(handle), flags);
    if (descriptor < 0) ::CloseHandle(handle);
    if (descriptor < 0 || descriptor >= firstFree) break;
    low[count++] = descriptor;
    HANDLE copy = nullptr;
    const HANDLE self = ::GetCurrentProcess();
    if (!::DuplicateHandle(self, handle, self, &copy, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
      descriptor = -1;
      break;
    }
    handle = copy;
  }
  while (count > 0) ::_close(low[--count]);
  return descriptor;
}

}  // namespace

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
  const int descriptor = descriptorOf(copy, flags);
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
