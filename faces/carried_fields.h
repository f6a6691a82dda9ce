// Between the engine and the fields of global records that this version does not know: in memory a
// record says only that it has them. What they hold is in stored forms, of which the hooks below
// keep that of the record that was unpacked last, and give one to a record that is added.
#pragma once

#include <atomic>
#include <string>

#include "genreg/flavours/global_codec.h"
#include "genreg/record_span.h"

namespace faces {

struct CarriedFields;

// What the hooks do on a thread.
struct CarriedFieldsTask {
  CarriedFields* fields = nullptr;     // where they keep what they read
  const std::string* given = nullptr;  // the stored form that a new record takes them from
  std::size_t size = 0;                // bytes of that record in memory, which leave room
};

struct CarriedFields {
  std::string stored;   // of the record unpacked last, when it has such fields
  bool isLost = false;  // there was no memory for it

  // While it lives, the hooks on this thread work for one handle.
  class Scope {
   public:
    explicit Scope(CarriedFields& fields, const std::string* given = nullptr,
                   std::size_t size = 0) noexcept
        : outer_(current) {
      fields.isLost = false;
      current = {&fields, given, size};
    }
    ~Scope() { current = outer_; }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    friend CarriedFields;
    static inline thread_local CarriedFieldsTask current;
    CarriedFieldsTask outer_;
  };

  static unsigned int unpack(void** record) noexcept {
    if (CarriedFields* const fields = Scope::current.fields; fields != nullptr) {
      fields->keep(*record);
    }
    return flavourUnpacks.load(std::memory_order_relaxed)(record);
  }
  static unsigned int pack(void** record, void* previous) noexcept {
    const auto flavours = flavourPacks.load(std::memory_order_relaxed);
    const std::string* const given = Scope::current.given;
    const genreg::RecordSpan* const room = genreg::RecordSpanScope::find(*record);
    if (previous != nullptr || given == nullptr || given->empty() || room == nullptr) {
      return flavours(record, previous);
    }
    void* const form = const_cast<char*>(given->data());
    const genreg::RecordSpanScope scope(*room, {form, given->size(), given->size()});
    return flavours(record, form);
  }
  static unsigned int size(std::uint64_t* size) noexcept {
    *size = Scope::current.size;
    return 0;
  }

  // The flavour's own, the same for every handle.
  static inline std::atomic<unsigned int (*)(void**)> flavourUnpacks{nullptr};
  static inline std::atomic<unsigned int (*)(void**, void*)> flavourPacks{nullptr};

 private:
  void keep(const void* memory) noexcept {
    stored.clear();
    isLost = false;
    const genreg::RecordSpan* const span = genreg::RecordSpanScope::find(memory);
    if (span == nullptr) return;
    const genreg::GlobalStoredReader reader(memory, span->stored);
    const GlobalRegType* const type = globalRegFindType(reader.type());
    if (type == nullptr || (reader.fieldMask() & ~type->knownMask) == 0) return;
    try {
      stored.assign(static_cast<const char*>(memory), span->stored);
    } catch (...) {
      isLost = true;
    }
  }
};

}  // namespace faces
