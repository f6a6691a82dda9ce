// A block of memory from the system-services allocator that is released with its owner.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "sysservices/memory.h"

namespace genreg {

// Clears a record of up to 4 KB. In two parts of a size that is not to be seen at compile time: a
// constant one, or one of 2 KB and more, would be cleared by a string instruction, which takes
// twice as long as the C library's stores.
template <typename Record>
void clearRecord(Record& record) noexcept {
  static const volatile std::size_t half =
      (sizeof(Record) / 2 + 63) / 64 * 64;  // whole cache lines
  auto* const bytes = reinterpret_cast<unsigned char*>(&record);
  const std::size_t first = half;
  std::memset(bytes, 0, first);
  std::memset(bytes + first, 0, sizeof record - first);
}

class RecordBuffer {
 public:
  RecordBuffer() noexcept = default;
  ~RecordBuffer() { (void)release(); }
  RecordBuffer(const RecordBuffer&) = delete;
  RecordBuffer& operator=(const RecordBuffer&) = delete;

  // Makes room for `size` bytes. A buffer that must grow loses its contents. Returns 0 or the
  // allocator's code; there is room, too, when only the release of the smaller block failed.
  unsigned int reserve(std::uint64_t size) noexcept {
    if (size <= capacity_) return 0;
    void* larger = nullptr;
    if (const unsigned int code =
            _ossMemAlloc(&larger, 0, static_cast<std::size_t>(size), 1, "record_buffer", __LINE__);
        code != 0) {
      return code;
    }
    const unsigned int freed = release();
    data_ = larger;
    capacity_ = size;
    return freed;
  }

  // Gives the memory back; returns 0 or the allocator's code. Nothing is held afterwards.
  unsigned int release() noexcept {
    if (data_ == nullptr) return 0;
    capacity_ = 0;
    return _ossMemFree(&data_, 0, 0, "record_buffer", __LINE__);
  }

  unsigned char* bytes() const noexcept { return static_cast<unsigned char*>(data_); }
  void* data() const noexcept { return data_; }
  std::uint64_t capacity() const noexcept { return capacity_; }

 private:
  void* data_ = nullptr;
  std::uint64_t capacity_ = 0;
};

}  // namespace genreg
