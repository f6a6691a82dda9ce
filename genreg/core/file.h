// One open file of a registry: a window to read records from, and appends that are written in large
// pieces.
//
// What is read stands in one window of memory, so that a record is looked at where it was read, and
// a kept one is written from there. A read that fails leaves the window before the record that it
// was for: nothing that an error cut short is ever taken for a record.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "platform/stream_face.h"
#include "sysservices/file_handle.h"

namespace genreg {

class File final : private platform::StreamTarget {
 public:
  File() noexcept = default;
  // With `size` bytes of memory for small files that are only read, which outlives this object.
  File(char* memory, std::size_t size) noexcept : own_(memory), ownSize_(size) {}
  ~File() { (void)close(); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  // The system's handle, to be opened and locked before begin().
  OSSHFile& handle() noexcept { return handle_; }
  bool isOpen() const noexcept { return open_; }

  // Starts at the beginning of what the open handle holds now; with `appends` for writing at its
  // end, too. `expectedSize`: about how many bytes will be read or written, for the buffer. Returns
  // 0 or the error number; nothing is open then.
  int begin(bool appends, std::uint64_t expectedSize) noexcept;

  // Starts at the beginning of a file that is only read, and was opened with OSS_OPEN_CHECK_LATER:
  // a small one is read at once, and asked for its size only if somebody wants more than that read
  // gave. Returns as begin(); `unsuitable`: OSS_RC_NOT_A_FILE or the code of asking, and nothing is
  // open then.
  int beginReading(unsigned int* unsuitable) noexcept;

  // What the file was when it was begun; after beginReading(), once its size is known.
  const OSSFileInfo& info() const noexcept { return info_; }
  // Bytes of the file; appends count.
  std::uint64_t size() const noexcept { return size_; }
  // Before size(), after beginReading(). False, with error(), when it cannot be asked for.
  bool learnSize() noexcept { return size_ != unknownSize || askSize(); }

  // --- reading ---

  // The bytes that were read but not skipped yet. Valid until the next more(), seek() or close().
  const char* window() const noexcept { return buffer_ + begin_; }
  std::size_t windowSize() const noexcept { return end_ - begin_; }
  // Where in the file the window starts.
  std::uint64_t offset() const noexcept { return offset_; }
  // Reads on until the window holds `wanted` bytes or all that is left of the file. False when that
  // fails: error() is the error number, and the window is what it was.
  bool more(std::size_t wanted) noexcept { return windowSize() >= wanted || readOn(wanted); }
  void skip(std::size_t count) noexcept {
    begin_ += count;
    offset_ += count;
  }
  bool atEnd() noexcept { return windowSize() == 0 && learnSize() && offset_ >= size_; }
  // The end of what was read, in front of the window and in it, as far as it is in memory and the
  // file ends there; empty else.
  std::string_view lastRead() const noexcept {
    return offset_ + windowSize() == size_ ? std::string_view(buffer_, end_) : std::string_view();
  }
  // Moves the window's start; no bytes are read again that are still in memory.
  void seek(std::uint64_t offset) noexcept;
  // Says that the window holds all of the file, which is not read any more from now on.
  void keepWhole() noexcept { isWhole_ = true; }

  // Gives the memory of the window away, to be freed by the caller. The window is empty then. Not
  // after beginReading().
  char* takeBuffer() noexcept {
    char* const buffer = buffer_;
    forgetBuffer();
    return buffer;
  }

  // --- writing ---

  // Appends `count` bytes. False when that fails; error() is the error number, and the file takes
  // no more.
  bool append(const void* bytes, std::size_t count) noexcept;
  // Writes out what was appended. Returns 0 or the error number.
  int flush() noexcept;
  // Appends to a file that readers look at whether or not this gets to its end: the first
  // `markCount` bytes, which make the rest a record, go to the disk after all others; `mark` stands
  // in their place until then. Returns 0 or the error number; EBUSY when another program has
  // written to the file since it was begun.
  int appendInPlace(const void* bytes, std::size_t count, const void* mark,
                    std::size_t markCount) noexcept;
  // Writes out what was appended and waits until it is on stable storage. Returns 0 or the error
  // number.
  int makeDurable() noexcept;
  // Cuts off what was appended since begin() or cutTo(), unless another program has appended behind
  // it: that stays. Returns 0 or the error number.
  int takeBack() noexcept;
  // Cuts the file off at `size`. Returns 0 or the error number.
  int cutTo(std::uint64_t size) noexcept;

  // Writes out what was appended, ends the lock and closes. Returns 0 or the first error number.
  int close() noexcept;

  // The error number of the last transfer that failed.
  int error() const noexcept { return error_; }

  // A stream of the C library that stands for this file; null with errno when there can be none.
  // Owned by this object, ends with close().
  std::FILE* stream() noexcept;
  // Ends that stream; the file stays open.
  void endStream() noexcept { face_.close(); }
  // To be called before and after the library reads on for a caller who may read from the stream.
  void fetchPlace() noexcept { face_.fetchPlace(*this); }
  void setPlace() const noexcept { face_.setPlace(*this); }

 private:
  static constexpr std::uint64_t unknownSize = UINT64_MAX;

  void start(bool appends) noexcept;
  void forgetBuffer() noexcept {
    buffer_ = nullptr;
    capacity_ = begin_ = end_ = 0;
  }
  int flushAll() noexcept;
  bool readOn(std::size_t wanted) noexcept;
  bool askSize() noexcept;
  bool reserve(std::size_t capacity) noexcept;
  int fail(int error) noexcept;
  int write(const void* bytes, std::size_t count, std::uint64_t offset) noexcept;

  std::ptrdiff_t streamRead(char* bytes, std::size_t count) noexcept override;
  std::ptrdiff_t streamWrite(const char* bytes, std::size_t count) noexcept override;
  std::int64_t streamPlace() const noexcept override { return static_cast<std::int64_t>(offset_); }
  std::int64_t streamSeek(std::int64_t offset, bool fromEnd) noexcept override;

  OSSHFile handle_;
  OSSFileInfo info_{};
  platform::StreamFace face_;
  char* const own_ = nullptr;
  const std::size_t ownSize_ = 0;
  char* buffer_ = nullptr;
  std::size_t capacity_ = 0;
  std::size_t begin_ = 0;     // of the window in the buffer
  std::size_t end_ = 0;       // behind it
  std::size_t pending_ = 0;   // bytes at the buffer's start that are appended but not written
  std::uint64_t offset_ = 0;  // in the file, of the window
  std::uint64_t size_ = 0;
  std::uint64_t base_ = 0;  // what takeBack() goes back to
  int error_ = 0;
  int firstError_ = 0;  // of the read that a file began with
  bool writeFailed_ = false;
  bool open_ = false;
  bool isWhole_ = false;
  bool appends_ = false;
};

}  // namespace genreg
