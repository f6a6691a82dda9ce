#include "genreg/core/file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "sysservices/memory.h"
#include "sysservices/return_codes.h"

namespace genreg {
namespace {

constexpr std::size_t smallestBuffer = 4096;
constexpr std::size_t largestBuffer = std::size_t{256} * 1024;  // grows only for a longer record
const char* const sourceFile = "file";

std::size_t bufferFor(std::uint64_t bytes) noexcept {
  return static_cast<std::size_t>(std::clamp<std::uint64_t>(bytes, smallestBuffer, largestBuffer));
}

}  // namespace

int File::fail(int error) noexcept {
  error_ = error != 0 ? error : EIO;
  return error_;
}

int File::write(const void* bytes, std::size_t count, std::uint64_t offset) noexcept {
  if (handle_.writeAt(bytes, count, offset) == OSS_RC_OK) return 0;
  writeFailed_ = true;
  return fail(handle_.lastError());
}

void File::start(bool appends) noexcept {
  begin_ = end_ = pending_ = 0;
  offset_ = 0;
  error_ = firstError_ = 0;
  writeFailed_ = isWhole_ = false;
  open_ = true;
  appends_ = appends;
}

int File::beginReading(unsigned int* unsuitable) noexcept {
  start(false);
  *unsuitable = OSS_RC_OK;
  buffer_ = own_;
  capacity_ = ownSize_;
  size_ = unknownSize;
  const bool failed = ownSize_ != 0 && handle_.readSome(own_, ownSize_, 0, &end_) != OSS_RC_OK;
  if (end_ > 0 && end_ < ownSize_) return 0;
  // Whoever needs what that read was for fails by it, unless the file is none to be read.
  firstError_ = failed ? handle_.lastError() : 0;
  *unsuitable = handle_.getInfo(&info_);
  if (*unsuitable == OSS_RC_OK && !info_.isFile) *unsuitable = OSS_RC_NOT_A_FILE;
  size_ = info_.size;
  if (size_ < end_) end_ = 0;  // it has been cut off, within a record perhaps
  int error = 0;
  if (*unsuitable == OSS_RC_OK && !reserve(bufferFor(size_))) error = error_;
  if (*unsuitable != OSS_RC_OK || error != 0) (void)close();
  return error;
}

int File::begin(bool appends, std::uint64_t expectedSize) noexcept {
  start(appends);
  int error = handle_.getInfo(&info_) == OSS_RC_OK ? 0 : fail(handle_.lastError());
  size_ = base_ = info_.size;
  if (error == 0 && !reserve(bufferFor(std::max(expectedSize, size_)))) error = error_;
  if (error != 0) {
    (void)close();
    error_ = error;
  }
  return error;
}

bool File::reserve(std::size_t capacity) noexcept {
  if (capacity <= capacity_) return true;
  void* larger = nullptr;
  if (_ossMemAlloc(&larger, 0, capacity, 1, sourceFile, __LINE__) != OSS_RC_OK) {
    (void)fail(ENOMEM);
    return false;
  }
  void* old = buffer_ == own_ ? nullptr : buffer_;
  if (buffer_ != nullptr) std::memcpy(larger, buffer_, std::max(end_, pending_));
  (void)_ossMemFree(&old, 0, 0, sourceFile, __LINE__);
  buffer_ = static_cast<char*>(larger);
  capacity_ = capacity;
  return true;
}

bool File::readOn(std::size_t wanted) noexcept {
  if (pending_ != 0 && flush() != 0) return false;
  if (const int error = std::exchange(firstError_, 0); error != 0) {
    (void)fail(error);
    return false;
  }
  if (!learnSize()) return false;
  const std::uint64_t left = size_ > offset_ ? size_ - offset_ : 0;
  const auto reachable = static_cast<std::size_t>(std::min<std::uint64_t>(left, wanted));
  if (windowSize() >= reachable) return true;
  if (begin_ != 0) {
    std::memmove(buffer_, window(), windowSize());
    end_ -= begin_;
    begin_ = 0;
  }
  if (!reserve(reachable)) return false;
  const std::uint64_t behind = left - windowSize();
  const auto room = static_cast<std::size_t>(std::min<std::uint64_t>(capacity_ - end_, behind));
  std::size_t done = 0;
  const unsigned int code = handle_.readAt(buffer_ + end_, room, offset_ + end_, &done);
  if (code != OSS_RC_OK) {
    // What came before the error is read again: whether it is whole is not known.
    (void)fail(handle_.lastError());
    return false;
  }
  end_ += done;
  if (done < room) size_ = offset_ + end_;  // somebody cut the file off
  return true;
}

// What was read is there whatever the system says of the size.
bool File::askSize() noexcept {
  if (handle_.getInfo(&info_) != OSS_RC_OK) {
    (void)fail(handle_.lastError());
    return false;
  }
  size_ = std::max<std::uint64_t>(info_.size, offset_ + windowSize());
  return true;
}

void File::seek(std::uint64_t offset) noexcept {
  if (isWhole_) {
    begin_ = static_cast<std::size_t>(std::min<std::uint64_t>(offset, end_));
    offset_ = offset;
    return;
  }
  // What was skipped is there until more is read.
  const std::uint64_t first = offset_ - begin_;
  if (offset >= first && offset - first <= end_) {
    begin_ = static_cast<std::size_t>(offset - first);
    offset_ = offset;
    return;
  }
  begin_ = end_ = 0;
  offset_ = offset;
}

bool File::append(const void* bytes, std::size_t count) noexcept {
  if (writeFailed_) return false;
  if (count == 0) return true;
  begin_ = end_ = 0;
  if (count > capacity_ - pending_ && flush() != 0) return false;
  if (count >= capacity_) {
    if (write(bytes, count, size_) != 0) return false;
  } else {
    std::memcpy(buffer_ + pending_, bytes, count);
    pending_ += count;
  }
  size_ += count;
  return true;
}

int File::flush() noexcept {
  const std::size_t count = pending_;
  pending_ = 0;
  if (count == 0) return writeFailed_ ? error_ : 0;
  return write(buffer_, count, size_ - count);
}

int File::appendInPlace(const void* bytes, std::size_t count, const void* mark,
                        std::size_t markCount) noexcept {
  if (const int error = flush(); error != 0) return error;
  const std::uint64_t start = size_;
  begin_ = end_ = 0;
  if (!reserve(count)) return error_;
  if (OSSFileInfo now{}; handle_.getInfo(&now) != OSS_RC_OK || now.size != start) {
    writeFailed_ = true;
    return fail(EBUSY);
  }
  // One write: killed in it, a process leaves all of it or nothing.
  std::memcpy(buffer_, bytes, count);
  std::memcpy(buffer_, mark, markCount);
  size_ += count;
  if (const int error = write(buffer_, count, start); error != 0) return error;
  if (handle_.sync() != OSS_RC_OK) return fail(handle_.lastError());
  return write(bytes, markCount, start);
}

int File::makeDurable() noexcept {
  if (const int error = flushAll(); error != 0) return error;
  return handle_.sync() == OSS_RC_OK ? 0 : fail(handle_.lastError());
}

int File::takeBack() noexcept {
  pending_ = 0;
  OSSFileInfo now{};
  if (handle_.getInfo(&now) != OSS_RC_OK) return fail(handle_.lastError());
  return now.size > size_ || now.size <= base_ ? 0 : cutTo(base_);
}

int File::cutTo(std::uint64_t size) noexcept {
  pending_ = 0;
  begin_ = end_ = 0;
  error_ = 0;
  writeFailed_ = false;
  offset_ = std::min(offset_, size);
  size_ = base_ = size;
  return handle_.truncate(size) == OSS_RC_OK ? 0 : fail(handle_.lastError());
}

// What a caller has written to the stream comes first.
int File::flushAll() noexcept {
  const int error = appends_ ? face_.flush() : 0;
  return error != 0 ? fail(error) : flush();
}

int File::close() noexcept {
  if (!open_ && !handle_.isOpen()) return 0;
  int error = flushAll();
  face_.close();
  void* block = buffer_ == own_ ? nullptr : buffer_;
  if (_ossMemFree(&block, 0, 0, sourceFile, __LINE__) != OSS_RC_OK && error == 0) error = EIO;
  forgetBuffer();
  if (const unsigned int code = handle_.close(); code != OSS_RC_OK && error == 0) {
    error = handle_.lastError();
  }
  open_ = writeFailed_ = false;
  error_ = 0;
  return error;
}

std::FILE* File::stream() noexcept {
  if (face_.stream() == nullptr) (void)face_.open(*this, handle_.getFileHandle(), appends_);
  return face_.stream();
}

std::ptrdiff_t File::streamRead(char* bytes, std::size_t count) noexcept {
  if (!more(1)) {
    errno = error_;
    return -1;
  }
  count = std::min(count, windowSize());
  std::memcpy(bytes, window(), count);
  skip(count);
  return static_cast<std::ptrdiff_t>(count);
}

std::ptrdiff_t File::streamWrite(const char* bytes, std::size_t count) noexcept {
  if (append(bytes, count)) {
    offset_ = size_;
    return static_cast<std::ptrdiff_t>(count);
  }
  errno = error_;
  return -1;
}

std::int64_t File::streamSeek(std::int64_t offset, bool fromEnd) noexcept {
  if (fromEnd && !learnSize()) {
    errno = error_;
    return -1;
  }
  const std::int64_t place = offset + (fromEnd ? static_cast<std::int64_t>(size_) : 0);
  if (place < 0) {
    errno = EINVAL;
    return -1;
  }
  seek(static_cast<std::uint64_t>(place));
  return place;
}

}  // namespace genreg
