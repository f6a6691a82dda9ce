// Streams over descriptors: stdio buffering on top of our own read, write, seek and close.
#include "platform/stream.h"

#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "sysservices/fault_hook.h"
#include "sysservices/file_system.h"
#include "sysservices/memory.h"
#include "sysservices/posix/system_call.h"

namespace platform {

// The stream's buffer follows it in the same block of memory. The offset is counted here, so that
// telling a position costs no system call.
struct StreamBacking {
  int descriptor;
  int writeError;       // errno of the first write that failed
  bool takenBack;       // further writes are dropped
  bool locked;          // came from a handle, with its lock
  std::int64_t offset;  // where the next read starts
  std::uint64_t size;   // bytes the file held when the stream was made
  std::uint64_t end;    // bytes it holds now
};

namespace {

constexpr std::size_t smallestBuffer = 4096;
constexpr std::size_t largestBuffer = std::size_t{256} * 1024;
constexpr std::size_t headerRoom = 64;  // the backing, padded to where the buffer starts
static_assert(sizeof(StreamBacking) <= headerRoom);

const char* const sourceFile = "stream";

// One read or write past the fault hook, which may fail it, interrupt it or make it fall short.
template <typename Call>
ssize_t transfer(const char* operation, std::size_t count, Call call) {
  const int fault = ossFaultPoint(operation, nullptr);
  if (fault > 0 && fault != EINTR) {
    errno = fault;
    return -1;
  }
  std::size_t asked = fault == OSS_FAULT_SHORT && count > 1 ? count / 2 : count;
  if (fault < OSS_FAULT_SHORT)
    asked = std::min(asked, static_cast<std::size_t>(OSS_FAULT_SHORT - fault));
  for (;;) {
    const ssize_t done = call(asked);
    if (done >= 0 || errno != EINTR) return done;
  }
}

ssize_t readBacking(void* cookie, char* buffer, std::size_t size) {
  auto& backing = *static_cast<StreamBacking*>(cookie);
  const ssize_t count = transfer("read", size, [&](std::size_t asked) {
    return ::pread(backing.descriptor, buffer, asked, backing.offset);
  });
  if (count > 0) backing.offset += count;
  return count;
}

// All or nothing: a short write goes on until everything is out or an error tells why not.
ssize_t writeBacking(void* cookie, const char* buffer, std::size_t size) {
  auto& backing = *static_cast<StreamBacking*>(cookie);
  if (backing.takenBack) return static_cast<ssize_t>(size);
  for (std::size_t done = 0; done < size;) {
    const ssize_t count = transfer("write", size - done, [&](std::size_t asked) {
      return ::write(backing.descriptor, buffer + done, asked);
    });
    if (count <= 0) {
      if (count == 0) errno = ENOSPC;
      if (backing.writeError == 0) backing.writeError = errno;
      return 0;
    }
    done += static_cast<std::size_t>(count);
    backing.end += static_cast<std::uint64_t>(count);
  }
  return static_cast<ssize_t>(size);
}

int seekBacking(void* cookie, off64_t* position, int whence) {
  auto& backing = *static_cast<StreamBacking*>(cookie);
  std::int64_t base = 0;
  if (whence == SEEK_CUR) {
    base = backing.offset;
  } else {
    // A real seek is a place where a test may fail the stream; counting an offset is not.
    if (const int fault = ossFaultPoint("lseek", nullptr); fault > 0) {
      errno = fault;
      return -1;
    }
    if (whence == SEEK_END) base = static_cast<std::int64_t>(backing.end);
  }
  if (base + *position < 0) {
    errno = EINVAL;
    return -1;
  }
  backing.offset = base + *position;
  *position = backing.offset;
  return 0;
}

int closeBacking(void* cookie) {
  auto& backing = *static_cast<StreamBacking*>(cookie);
  // The lock would outlive the close in a process that was forked meanwhile.
  if (backing.locked) (void)::flock(backing.descriptor, LOCK_UN);
  const int error = oss::closeDescriptor(backing.descriptor);
  void* block = cookie;
  const unsigned int freed = _ossMemFree(&block, 0, 0, sourceFile, __LINE__);
  if (error == 0 && freed == 0) return 0;
  errno = error != 0 ? error : EIO;
  return -1;
}

std::FILE* failClosed(int descriptor, int error) {
  (void)oss::closeDescriptor(descriptor);
  errno = error;
  return nullptr;
}

std::FILE* wrap(int descriptor, StreamUse use, bool locked, std::uint64_t size,
                std::uint64_t expectedSize, StreamBacking** backing) {
  // One byte more than the file, so that the read that meets its end is the one that reads it all.
  const std::size_t bufferSize = static_cast<std::size_t>(
      std::clamp<std::uint64_t>(expectedSize + 1, smallestBuffer, largestBuffer));
  void* block = nullptr;
  if (_ossMemAlloc(&block, 0, headerRoom + bufferSize, 1, sourceFile, __LINE__) != 0) {
    return failClosed(descriptor, ENOMEM);
  }
  auto* made = new (block) StreamBacking{descriptor, 0, false, locked, 0, size, size};
  const cookie_io_functions_t functions{readBacking, writeBacking, seekBacking, closeBacking};
  std::FILE* stream = ossFaultPoint("fopen", nullptr) > 0
                          ? nullptr
                          : ::fopencookie(made, use == StreamUse::Append ? "a+" : "r", functions);
  if (stream == nullptr) {
    (void)_ossMemFree(&block, 0, 0, sourceFile, __LINE__);
    return failClosed(descriptor, ENOMEM);
  }
  (void)std::setvbuf(stream, static_cast<char*>(block) + headerRoom, _IOFBF, bufferSize);
  (void)::__fsetlocking(stream, FSETLOCKING_BYCALLER);
  *backing = made;
  return stream;
}

// Permissions whose group gets no more than everybody.
mode_t withoutGroup(mode_t permissions) { return permissions & ~((~permissions & S_IRWXO) << 3); }

// Beside an access list the group's permission bits are the most that anyone on the list may have,
// so that they must not be given to the group without the list. False when there is one that cannot
// be copied.
bool copyAccessList(const char* model, int descriptor) {
  constexpr const char* name = "system.posix_acl_access";
  char list[4096];
  const ssize_t size = ::getxattr(model, name, list, sizeof list);
  if (size < 0) return errno != ERANGE;
  return ::fsetxattr(descriptor, name, list, static_cast<std::size_t>(size), 0) == 0;
}

// Gives a new file the owner, the group and the permissions of the file it is to replace. Only root
// may give a file away, so the owner stays who it is when that is refused; but permissions meant
// for one group must not be another's: without the group, its bits shrink to what everybody has.
int setAttributes(int descriptor, const char* path, const FileAttributes& attributes) {
  constexpr mode_t permissionBits = 07777;
  struct stat created;
  if (oss::systemCall("fstat", path, [&] { return ::fstat(descriptor, &created); }) != 0) {
    return errno;
  }
  auto wanted = static_cast<mode_t>(attributes.permissions);
  const bool sameGroup = created.st_gid == attributes.group;
  if ((created.st_uid != attributes.owner || !sameGroup) &&
      ::fchown(descriptor, attributes.owner, attributes.group) != 0 && !sameGroup &&
      ::fchown(descriptor, created.st_uid, attributes.group) != 0) {
    wanted = withoutGroup(wanted);
  }
  if ((wanted & S_IRWXG) != 0 && !copyAccessList(attributes.model, descriptor)) {
    wanted = withoutGroup(wanted);
  }
  if ((created.st_mode & permissionBits) == wanted) return 0;
  const int failed = oss::systemCall("fchmod", path, [&] { return ::fchmod(descriptor, wanted); });
  return failed == 0 ? 0 : errno;
}

}  // namespace

namespace {

std::FILE* openDescriptor(int descriptor, StreamUse use, bool locked, StreamBacking** backing) {
  struct stat status;
  if (oss::systemCall("fstat", nullptr, [&] { return ::fstat(descriptor, &status); }) != 0) {
    return failClosed(descriptor, errno);
  }
  const auto size = static_cast<std::uint64_t>(status.st_size);
  return wrap(descriptor, use, locked, size, size, backing);
}

}  // namespace

std::FILE* openStream(std::intptr_t handle, StreamUse use, StreamBacking** backing) {
  return openDescriptor(static_cast<int>(handle), use, true, backing);
}

std::FILE* openForReading(const char* path, StreamBacking** backing) {
  const int descriptor = oss::aboveStandard(oss::systemCall("open", path, [&] {
    return ::open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  }));
  return descriptor < 0 ? nullptr : openDescriptor(descriptor, StreamUse::Read, false, backing);
}

std::FILE* createPrivateFile(const char* path, const FileAttributes& attributes,
                             std::uint64_t expectedSize, StreamBacking** backing,
                             PrivateFileStep* step) {
  constexpr mode_t ownerOnly = 0600;
  *step = PrivateFileStep::Create;
  const int descriptor = oss::aboveStandard(oss::systemCall("open", path, [&] {
    return ::open(path, O_RDWR | O_APPEND | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, ownerOnly);
  }));
  if (descriptor < 0) return nullptr;
  *step = PrivateFileStep::SetAttributes;
  if (const int error = setAttributes(descriptor, path, attributes); error != 0) {
    (void)::unlink(path);
    return failClosed(descriptor, error);
  }
  *step = PrivateFileStep::Create;
  std::FILE* stream = wrap(descriptor, StreamUse::Append, false, 0, expectedSize, backing);
  if (stream == nullptr) {
    const int error = errno;
    (void)::unlink(path);
    errno = error;
  }
  return stream;
}

std::uint64_t streamSize(const StreamBacking* backing) { return backing->size; }

// The C library's own read window, as its getc macro uses it. Reading one byte and giving it back
// fills the window without a copy.
const char* peekStream(std::FILE* stream, std::size_t* count) {
  if (stream->_IO_read_ptr == stream->_IO_read_end) {
    if (::ferror_unlocked(stream) != 0) {
      *count = 0;
      return nullptr;
    }
    const int byte = ::getc_unlocked(stream);
    if (byte == EOF || std::ungetc(byte, stream) == EOF) {
      *count = 0;
      return nullptr;
    }
  }
  *count = static_cast<std::size_t>(stream->_IO_read_end - stream->_IO_read_ptr);
  return stream->_IO_read_ptr;
}

void skipStream(std::FILE* stream, std::size_t count) { stream->_IO_read_ptr += count; }

std::size_t readStream(std::FILE* stream, void* bytes, std::size_t count) {
  return std::fread(bytes, 1, count, stream);
}

std::size_t writeStream(std::FILE* stream, const void* bytes, std::size_t count) {
  return std::fwrite(bytes, 1, count, stream);
}

// A stream that is being read stands behind what it has taken of what was read: no call asks that.
std::int64_t tellStream(std::FILE* stream, const StreamBacking* backing) {
  if (stream->_IO_write_ptr > stream->_IO_write_base) return ::ftello(stream);
  return backing->offset - (stream->_IO_read_end - stream->_IO_read_ptr);
}

int seekStream(std::FILE* stream, std::int64_t position) {
  return ::fseeko(stream, position, SEEK_SET);
}

int seekStreamEnd(std::FILE* stream) { return std::fseek(stream, 0, SEEK_END); }

int makeDurable(std::FILE* stream, StreamBacking* backing) {
  errno = 0;
  if (std::fflush(stream) != 0 || std::ferror(stream) != 0) {
    return backing->writeError != 0 ? backing->writeError : EIO;
  }
  const int failed =
      oss::systemCall("fsync", nullptr, [&] { return ::fsync(backing->descriptor); });
  return failed == 0 ? 0 : errno;
}

int takeBack(std::FILE* stream, StreamBacking* backing) {
  backing->takenBack = true;
  (void)std::fflush(stream);
  std::clearerr(stream);
  backing->writeError = 0;
  const int failed = oss::systemCall("ftruncate", nullptr, [&] {
    return ::ftruncate(backing->descriptor, static_cast<off_t>(backing->size));
  });
  backing->end = backing->size;
  return failed == 0 ? 0 : errno;
}

int closeStream(std::FILE* stream, StreamBacking* backing) {
  const bool flushed = std::fflush(stream) == 0;
  const int writeError = backing->writeError;
  errno = 0;
  const bool closed = std::fclose(stream) == 0;
  if (flushed && closed && writeError == 0) return 0;
  if (writeError != 0) return writeError;
  return errno != 0 ? errno : EIO;
}

int syncDirectoryOf(const char* path) { return oss::syncDirectoryOf(path); }

}  // namespace platform
