// Buffered streams over a system handle, and making what they wrote durable.
//
// A stream owns its handle: closing the stream closes the file and so ends its lock. Reads and
// writes pass the fault hook, are repeated after signals, and never report less than all of a write
// as done. A stream is not locked against several threads: the registry handle that owns it serves
// one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace platform {

// What stands behind one stream; lives exactly as long as the stream is open.
struct StreamBacking;

enum class StreamUse {
  Read,    // from the start
  Append,  // writes go to the end of what the file holds; reading is possible too
};

// Makes a stream of an open handle and stores what stands behind it at `backing`. Returns null with
// errno set, and the handle closed, when it cannot.
std::FILE* openStream(std::intptr_t handle, StreamUse use, StreamBacking** backing);

// Opens an existing plain file for reading, never through a symbolic link. Null with errno on
// failure.
std::FILE* openForReading(const char* path, StreamBacking** backing);

struct FileAttributes {
  std::uint32_t permissions;
  std::uint32_t owner;
  std::uint32_t group;
  const char* model;  // the file that has them, for its access list; valid during the call
};

enum class PrivateFileStep { Create, SetAttributes };

// Creates a file that must not exist yet, never through a symbolic link, open to its owner alone,
// or to those on the access list of its model, from birth; then, before its first byte, gives it
// the owner, as far as the process may, and the permissions of `attributes`. On failure returns
// null, errno and `step` tell why, and no file is left. `expectedSize` is about how many bytes will
// be written, for the buffer.
std::FILE* createPrivateFile(const char* path, const FileAttributes& attributes,
                             std::uint64_t expectedSize, StreamBacking** backing,
                             PrivateFileStep* step);

// Bytes the file held when the stream was made.
std::uint64_t streamSize(const StreamBacking* backing);

// What a stream holds read but not yet taken, without copying it: the bytes and their number, which
// is 0 at the end of the file and after a read error only (ferror tells which, and nothing more is
// read until the error is cleared). They stay valid
// until the next peek, read, seek or close.
const char* peekStream(std::FILE* stream, std::size_t* count);
// Takes `count` of the bytes that peekStream showed.
void skipStream(std::FILE* stream, std::size_t count);

// The next bytes, up to `count`, into or out of a caller's memory. Give the number that was read or
// written; fewer than asked for is the end of the file, or an error that ferror tells.
std::size_t readStream(std::FILE* stream, void* bytes, std::size_t count);
std::size_t writeStream(std::FILE* stream, const void* bytes, std::size_t count);

// 64-bit positions. tellStream gives -1 and the seeks non-zero, all with errno, on failure.
std::int64_t tellStream(std::FILE* stream, const StreamBacking* backing);
int seekStream(std::FILE* stream, std::int64_t position);
int seekStreamEnd(std::FILE* stream);

// Writes out what is buffered and waits until it is on stable storage. Returns 0 or the system
// error.
int makeDurable(std::FILE* stream, StreamBacking* backing);

// For an Append stream that must not keep what was written to it: drops what is buffered and cuts
// the file back to the size it had. Returns 0 or the system error.
int takeBack(std::FILE* stream, StreamBacking* backing);

// Writes out what is buffered and closes. Returns 0 or the system error of the first step that
// failed, EIO when the system named none; the stream is gone either way.
int closeStream(std::FILE* stream, StreamBacking* backing);

// Makes the names in the directory of `path` durable. Returns 0 or the system error.
int syncDirectoryOf(const char* path);

}  // namespace platform
