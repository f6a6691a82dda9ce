// Which runtime library a stream is of, told from what stands in it: each has streams of at least
// this size, so that looking is safe, and lays them out in a way that makes no sense to the other.
#include <io.h>
#include <windows.h>

#include <cstdint>
#include <functional>

#include "platform/stream_face.h"

namespace platform {
namespace {

#ifdef _UCRT
// What this runtime library does not declare has been the same in all its versions.
struct Layout {
  const char* place;  // in the buffer
  const char* buffer;
  int left;  // from there on
  int flags;
  int descriptor;
  int oneByte;
  int size;  // of the buffer
};
constexpr int opened = 0x1 | 0x2 | 0x4;  // to be read, written, both

const Layout& layoutOf(const std::FILE* stream) { return *reinterpret_cast<const Layout*>(stream); }
#else
struct Layout {
  const char* place;
  const char* buffer;
  int left;
  int flags;
  int size;
};
constexpr int opened = _IOREAD | _IOWRT | _IORW;

Layout layoutOf(const std::FILE* stream) {
  return {stream->_ptr, stream->_base, stream->_cnt, stream->_flag, stream->_bufsiz};
}
#endif

// A stream without a buffer has no place in one; in a buffer it stands in it, with what is left.
bool makesSense(const Layout& stream) {
  if ((stream.flags & opened) == 0) return false;
  if (stream.buffer == nullptr) return stream.place == nullptr && stream.left <= 0;
  const auto buffer = reinterpret_cast<std::uintptr_t>(stream.buffer);
  const auto place = reinterpret_cast<std::uintptr_t>(stream.place);
  if (stream.size <= 0 || place < buffer) return false;
  const std::uintptr_t size = static_cast<unsigned int>(stream.size);
  return place - buffer <= size &&
         (stream.left <= 0 || place - buffer + static_cast<unsigned int>(stream.left) <= size);
}

HMODULE moduleOf(const void* address) {
  HMODULE module = nullptr;
  constexpr DWORD flags =
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  (void)::GetModuleHandleExW(flags, static_cast<const wchar_t*>(address), &module);
  return module;
}

}  // namespace

#ifdef _UCRT
// Whoever stands in for the system may have another layout. Then the older libraries are told by
// the tables in which their first streams are.
bool isOfThisRuntime(std::FILE* stream) noexcept {
  static const bool isLaidOutSo = makesSense(layoutOf(stdin));
  if (isLaidOutSo) return makesSense(layoutOf(stream));
  const HMODULE module = moduleOf(stream);
  return module == nullptr || module == moduleOf(stdin);
}
#else
// The first streams are in a table, the others in memory that the library asked for. Other ones of
// the older kind lay theirs out alike; but their files have numbers that are none here, or only by
// chance.
bool isOfThisRuntime(std::FILE* stream) noexcept {
  constexpr std::size_t tableSize = 20;
  const std::FILE* const table = __iob_func();
  if (!std::less<>()(stream, table) && std::less<>()(stream, table + tableSize)) return true;
  return moduleOf(stream) == nullptr && makesSense(layoutOf(stream)) &&
         ::_get_osfhandle(stream->_file) != -1;
}
#endif

}  // namespace platform
