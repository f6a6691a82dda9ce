// A C stream that stands for an open file whose bytes the library reads and writes itself: for
// callers that read on from an open scan, or write to the temporary file of a session they lead.
//
// The stream keeps nothing back: what it has not given out is still to be read by the library, and
// what was written to it has reached the file's owner.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace platform {

// The file behind a stream. Counts are -1, with errno, after a failure.
class StreamTarget {
 public:
  // The next bytes from where the file is being read.
  virtual std::ptrdiff_t streamRead(char* bytes, std::size_t count) noexcept = 0;
  // Appends all of the bytes.
  virtual std::ptrdiff_t streamWrite(const char* bytes, std::size_t count) noexcept = 0;
  // Where the file is being read, and moving there; `fromEnd` counts from the end. The new place.
  virtual std::int64_t streamPlace() const noexcept = 0;
  virtual std::int64_t streamSeek(std::int64_t offset, bool fromEnd) noexcept = 0;

 protected:
  ~StreamTarget() = default;
};

// Whether a stream is of the runtime library that this library calls. Where a process may have
// several, each can only read its own: the others' are laid out otherwise, and number files of
// their own. For a stream that was made by one of them; nothing can be said of a pointer to
// anything else.
bool isOfThisRuntime(std::FILE* stream) noexcept;

class StreamFace {
 public:
  StreamFace() noexcept = default;
  ~StreamFace() { close(); }
  StreamFace(const StreamFace&) = delete;
  StreamFace& operator=(const StreamFace&) = delete;

  // Makes the stream, for reading or, with `appends`, for appending, too. `handle` is the file's
  // system handle; both outlive the stream. False with errno when there can be none.
  bool open(StreamTarget& target, std::intptr_t handle, bool appends) noexcept;
  // Hands over what the stream keeps in a buffer that its user gave it. Returns 0 or the error
  // number.
  int flush() noexcept {
    errno = 0;
    if (stream_ == nullptr || std::fflush(stream_) == 0) return 0;
    return errno != 0 ? errno : EIO;
  }
  // Ends the stream, not the file.
  void close() noexcept {
    if (stream_ != nullptr) (void)std::fclose(stream_);
    stream_ = nullptr;
  }
  // The stream, or null; owned by this object.
  std::FILE* stream() const noexcept { return stream_; }

  // Where a platform's streams move a place of their own, that place is fetched before the library
  // reads on, and set when it has read.
  void fetchPlace(StreamTarget& target) const noexcept;
  void setPlace(const StreamTarget& target) const noexcept;

 private:
  std::FILE* stream_ = nullptr;
};

}  // namespace platform
