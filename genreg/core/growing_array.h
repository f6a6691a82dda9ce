// An array of plain values that grows, in memory of the system services.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <type_traits>

#include "sysservices/memory.h"

namespace genreg {

template <typename Value>
class GrowingArray {
  static_assert(std::is_trivially_copyable_v<Value>);

 public:
  GrowingArray() noexcept = default;
  ~GrowingArray() { release(); }
  GrowingArray(const GrowingArray&) = delete;
  GrowingArray& operator=(const GrowingArray&) = delete;

  // Makes room for `count` values in all. False without memory.
  bool reserve(std::size_t count) noexcept {
    if (count <= capacity_) return true;
    const std::size_t capacity = std::max(count, capacity_ + capacity_ / 4);
    void* larger = nullptr;
    if (_ossMemAlloc(&larger, 0, capacity * sizeof(Value), 1, "growing_array", __LINE__) != 0) {
      return false;
    }
    if (size_ != 0) std::memcpy(larger, values_, size_ * sizeof(Value));
    const std::size_t size = size_;
    release();
    values_ = static_cast<Value*>(larger);
    size_ = size;
    capacity_ = capacity;
    return true;
  }
  bool add(const Value& value) noexcept {
    if (!reserve(size_ + 1)) return false;
    values_[size_++] = value;
    return true;
  }
  // Takes a size for which there is room; new values may be anything.
  void resize(std::size_t size) noexcept { size_ = size; }
  void release() noexcept {
    void* block = values_;
    (void)_ossMemFree(&block, 0, 0, "growing_array", __LINE__);
    values_ = nullptr;
    size_ = capacity_ = 0;
  }

  std::size_t size() const noexcept { return size_; }
  std::size_t capacity() const noexcept { return capacity_; }
  Value& operator[](std::size_t at) noexcept { return values_[at]; }
  const Value& operator[](std::size_t at) const noexcept { return values_[at]; }
  Value* begin() noexcept { return values_; }
  Value* end() noexcept { return values_ + size_; }
  const Value* begin() const noexcept { return values_; }
  const Value* end() const noexcept { return values_ + size_; }

 private:
  Value* values_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace genreg
