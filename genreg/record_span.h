// How much memory stands behind a record that the engine hands to a packing hook.
//
// The hooks of packed records take a pointer alone. The engine says, for the duration of the call
// and on its own thread, where that memory ends, so that a hook of this library reads no byte
// behind a stored record and writes none behind a buffer. Of memory that is not the engine's
// nothing is known.
#pragma once

#include <cstddef>
#include <cstdint>

namespace genreg {

struct RecordSpan {
  const void* memory = nullptr;
  std::size_t stored = 0;    // bytes of the stored form that stands in it; 0 when it is a record
  std::size_t capacity = 0;  // bytes of the memory
};

// Tells the hooks about one or two pieces of memory while it lives.
class RecordSpanScope {
 public:
  explicit RecordSpanScope(RecordSpan first, RecordSpan second = {}) noexcept
      : outer_{current[0], current[1]} {
    current[0] = first;
    current[1] = second;
  }
  ~RecordSpanScope() {
    current[0] = outer_[0];
    current[1] = outer_[1];
  }
  RecordSpanScope(const RecordSpanScope&) = delete;
  RecordSpanScope& operator=(const RecordSpanScope&) = delete;

  // What is known of some memory, or null.
  static const RecordSpan* find(const void* memory) noexcept {
    for (const RecordSpan& span : current) {
      if (memory != nullptr && span.memory == memory) return &span;
    }
    return nullptr;
  }

 private:
  static inline thread_local RecordSpan current[2];

  RecordSpan outer_[2];
};

}  // namespace genreg
