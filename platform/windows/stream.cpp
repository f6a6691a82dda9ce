// Streams of the runtime library over system handles, always binary: text mode would end a file at
// a 0x1A byte and tell wrong positions in one whose lines end in a bare newline.
//
// The runtime library makes its own reads and writes, so the fault hook is asked where a stream is
// about to make one: where what is asked for is not in its buffer, or does not fit.
#include "platform/stream.h"

#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "sysservices/memory.h"
#include "sysservices/windows/system_call.h"

namespace platform {

// The stream's buffer follows it in the same block of memory.
struct StreamBacking {
  HANDLE handle;  // the stream's own
  bool locked;    // came from a handle, with its lock
  std::uint64_t size;
};

namespace {

constexpr std::size_t smallestBuffer = 4096;
constexpr std::size_t largestBuffer = std::size_t{256} * 1024;
constexpr std::size_t headerRoom = 64;  // the backing, padded to where the buffer starts
static_assert(sizeof(StreamBacking) <= headerRoom);

const char* const sourceFile = "stream";

HANDLE systemHandle(std::intptr_t handle) {
  return reinterpret_cast<HANDLE>(handle);  // NOLINT(performance-no-int-to-ptr)
}

std::FILE* failClosed(HANDLE handle, int error) {
  ::CloseHandle(handle);
  errno = error;
  return nullptr;
}

// The runtime's number for a handle, which it owns from then on; -1, with the handle closed, when
// there is none left. Never one of the standard three: a host that closed one of those must not
// find a registry file in its place.
int descriptorOf(HANDLE handle, int flags) {
  constexpr int firstFree = 3;
  int low[firstFree];
  int count = 0;
  for (;;) {
    const int descriptor = ::_open_osfhandle(reinterpret_cast<std::intptr_t>(handle), flags);
    if (descriptor < 0) ::CloseHandle(handle);
    const bool isLow = descriptor >= 0 && descriptor < firstFree;
    HANDLE copy = nullptr;
    const HANDLE self = ::GetCurrentProcess();
    if (isLow && ::DuplicateHandle(self, handle, self, &copy, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
      low[count++] = descriptor;
      handle = copy;
      continue;
    }
    if (isLow) low[count++] = descriptor;
    while (count > 0) ::_close(low[--count]);
    return isLow ? -1 : descriptor;
  }
}

// A stream of a handle with the buffer that follows `backing`; null with errno, and the handle
// closed, on failure.
std::FILE* makeStream(HANDLE handle, StreamUse use, StreamBacking* backing, std::size_t room) {
  if (!oss::passesFaultPoint("fopen", nullptr)) return failClosed(handle, errno);
  const bool appends = use == StreamUse::Append;
  const int flags = _O_BINARY | _O_NOINHERIT | (appends ? _O_APPEND : _O_RDONLY);
  const int descriptor = descriptorOf(handle, flags);
  if (descriptor < 0) {
    errno = EMFILE;
    return nullptr;
  }
  std::FILE* const stream = ::_fdopen(descriptor, appends ? "a+b" : "rb");
  if (stream == nullptr) {
    const int error = errno;
    ::_close(descriptor);
    errno = error;
    return nullptr;
  }
  backing->handle = systemHandle(::_get_osfhandle(descriptor));
  (void)std::setvbuf(stream, reinterpret_cast<char*>(backing) + headerRoom, _IOFBF, room);
  return stream;
}

std::FILE* wrap(HANDLE handle, StreamUse use, bool locked, std::uint64_t size,
                std::uint64_t expectedSize, StreamBacking** backing) {
  const auto room = static_cast<std::size_t>(
      std::clamp<std::uint64_t>(expectedSize + 1, smallestBuffer, largestBuffer));
  void* block = nullptr;
  if (_ossMemAlloc(&block, 0, headerRoom + room, 1, sourceFile, __LINE__) != 0) {
    return failClosed(handle, ENOMEM);
  }
  auto* const made = new (block) StreamBacking{handle, locked, size};
  std::FILE* const stream = makeStream(handle, use, made, room);
  if (stream == nullptr) {
    const int error = errno;
    (void)_ossMemFree(&block, 0, 0, sourceFile, __LINE__);
    errno = error;
    return nullptr;
  }
  *backing = made;
  return stream;
}

std::FILE* wrapWhole(HANDLE handle, StreamUse use, bool locked, StreamBacking** backing) {
  LARGE_INTEGER size{};
  if (!oss::systemCall("fstat", nullptr, [&] { return ::GetFileSizeEx(handle, &size) != 0; })) {
    return failClosed(handle, errno);
  }
  const auto bytes = static_cast<std::uint64_t>(size.QuadPart);
  return wrap(handle, use, locked, bytes, bytes, backing);
}

// The access list of a file, for another that is to take its place.
class AccessList {
 public:
  explicit AccessList(const char* model) noexcept {
    DWORD size = sizeof list_;
    present_ = ::GetFileSecurityA(model, DACL_SECURITY_INFORMATION, list_, size, &size) != 0;
    if (!present_) error_ = ::GetLastError();
  }
  // Whether the new file would be as closed as the old one; a file system without access lists
  // has nothing to close.
  bool known() const {
    return present_ || error_ == ERROR_NOT_SUPPORTED || error_ == ERROR_INVALID_FUNCTION;
  }
  DWORD error() const { return error_; }
  SECURITY_DESCRIPTOR* descriptor() {
    return present_ ? reinterpret_cast<SECURITY_DESCRIPTOR*>(list_) : nullptr;
  }

 private:
  alignas(SECURITY_DESCRIPTOR) BYTE list_[16 * 1024];
  bool present_;
  DWORD error_ = ERROR_SUCCESS;
};

// What the stream holds written but has not given to the system yet.
bool holdsUnwritten(const std::FILE* stream) {
  return (stream->_flag & _IOWRT) != 0 && stream->_ptr > stream->_base;
}

// False, with the stream's error flag, when a test wants its next read or write to fail.
bool mayTransfer(std::FILE* stream, const char* operation) {
  if (oss::passesFaultPoint(operation, nullptr)) return true;
  stream->_flag |= _IOERR;
  return false;
}

// Writes out what is buffered. Returns 0 or the system error, EIO when there is none.
int flush(std::FILE* stream) {
  if (holdsUnwritten(stream) && !oss::passesFaultPoint("write", nullptr)) return errno;
  errno = 0;
  if (std::fflush(stream) == 0 && std::ferror(stream) == 0) return 0;
  return errno != 0 ? errno : EIO;
}

// Forgets what the stream holds, read or written.
void dropBuffered(std::FILE* stream) {
  stream->_ptr = stream->_base;
  stream->_cnt = 0;
}

int seek(std::FILE* stream, std::int64_t position, int origin) {
  if (!oss::passesFaultPoint("lseek", nullptr)) return -1;
  return ::_fseeki64(stream, position, origin);
}

}  // namespace

std::FILE* openStream(std::intptr_t handle, StreamUse use, StreamBacking** backing) {
  return wrapWhole(systemHandle(handle), use, true, backing);
}

std::FILE* openForReading(const char* path, StreamBacking** backing) {
  oss::FileOpening opening{GENERIC_READ, OPEN_EXISTING, true, false};
  const HANDLE handle = oss::openFile(path, opening, nullptr);
  return handle == INVALID_HANDLE_VALUE ? nullptr
                                        : wrapWhole(handle, StreamUse::Read, false, backing);
}

// The file has the access list of its model from birth, so that it is never open to more people;
// owner and group are who makes it.
std::FILE* createPrivateFile(const char* path, const FileAttributes& attributes,
                             std::uint64_t expectedSize, StreamBacking** backing,
                             PrivateFileStep* step) {
  constexpr std::uint32_t ownerWrite = 0200;
  *step = PrivateFileStep::Create;
  AccessList list(attributes.model);
  oss::FileOpening opening{GENERIC_READ | GENERIC_WRITE, CREATE_NEW, true, false};
  opening.readOnly = (attributes.permissions & ownerWrite) == 0;
  opening.security = list.descriptor();
  const HANDLE handle = oss::openFile(path, opening, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return nullptr;
  *step = PrivateFileStep::SetAttributes;
  if (!list.known() || !oss::passesFaultPoint("fchmod", path)) {
    const int error = list.known() ? errno : oss::errnoOf(list.error());
    (void)::DeleteFileA(path);
    return failClosed(handle, error);
  }
  *step = PrivateFileStep::Create;
  std::FILE* const stream = wrap(handle, StreamUse::Append, false, 0, expectedSize, backing);
  if (stream == nullptr) {
    const int error = errno;
    (void)::DeleteFileA(path);
    errno = error;
  }
  return stream;
}

std::uint64_t streamSize(const StreamBacking* backing) { return backing->size; }

// The runtime's own read window, as its getc macro uses it. Reading one byte and giving it back
// fills the window without a copy.
const char* peekStream(std::FILE* stream, std::size_t* count) {
  *count = 0;
  if (stream->_cnt <= 0) {
    if (std::ferror(stream) != 0 || std::feof(stream) != 0 || !mayTransfer(stream, "read"))
      return nullptr;
    const int byte = std::getc(stream);
    if (byte == EOF || std::ungetc(byte, stream) == EOF) return nullptr;
  }
  *count = static_cast<std::size_t>(stream->_cnt);
  return stream->_ptr;
}

void skipStream(std::FILE* stream, std::size_t count) {
  stream->_ptr += count;
  stream->_cnt -= static_cast<int>(count);
}

std::size_t readStream(std::FILE* stream, void* bytes, std::size_t count) {
  const std::size_t held =
      std::min(count, stream->_cnt > 0 ? static_cast<std::size_t>(stream->_cnt) : 0);
  std::memcpy(bytes, stream->_ptr, held);
  skipStream(stream, held);
  if (held == count || !mayTransfer(stream, "read")) return held;
  return held + std::fread(static_cast<char*>(bytes) + held, 1, count - held, stream);
}

std::size_t writeStream(std::FILE* stream, const void* bytes, std::size_t count) {
  const int room = holdsUnwritten(stream) ? stream->_cnt : stream->_bufsiz;
  const bool fits = room > 0 && count <= static_cast<std::size_t>(room);
  if (!fits && !mayTransfer(stream, "write")) return 0;
  return std::fwrite(bytes, 1, count, stream);
}

std::int64_t tellStream(std::FILE* stream, const StreamBacking*) { return ::_ftelli64(stream); }

int seekStream(std::FILE* stream, std::int64_t position) {
  return seek(stream, position, SEEK_SET);
}

int seekStreamEnd(std::FILE* stream) { return seek(stream, 0, SEEK_END); }

int makeDurable(std::FILE* stream, StreamBacking* backing) {
  if (const int error = flush(stream); error != 0) return error;
  const bool done =
      oss::systemCall("fsync", nullptr, [&] { return ::FlushFileBuffers(backing->handle) != 0; });
  return done ? 0 : errno;
}

int takeBack(std::FILE* stream, StreamBacking* backing) {
  dropBuffered(stream);
  std::clearerr(stream);
  LARGE_INTEGER end;
  end.QuadPart = static_cast<LONGLONG>(backing->size);
  const bool done = oss::systemCall("ftruncate", nullptr, [&] {
    return ::SetFilePointerEx(backing->handle, end, nullptr, FILE_BEGIN) != 0 &&
           ::SetEndOfFile(backing->handle) != 0;
  });
  return done ? 0 : errno;
}

// A lock that is left to the close may end a while after it.
int closeStream(std::FILE* stream, StreamBacking* backing) {
  int error = holdsUnwritten(stream) ? flush(stream) : 0;
  if (error != 0) dropBuffered(stream);
  if (backing->locked) (void)oss::unlockHandle(backing->handle);
  const int fault = ossFaultPoint("close", nullptr);
  errno = 0;
  const bool closed = std::fclose(stream) == 0;
  if (error == 0 && !closed) error = errno != 0 ? errno : EIO;
  if (error == 0 && fault > 0) error = fault;
  void* block = backing;
  const unsigned int freed = _ossMemFree(&block, 0, 0, sourceFile, __LINE__);
  return error == 0 && freed != 0 ? EIO : error;
}

int syncDirectoryOf(const char* path) { return oss::syncDirectoryOf(path); }

}  // namespace platform
