// Memory of what stands behind the opaque handles, from the runtime library's calloc and free, and
// the fixed fields of the records.
#pragma once

#include <cstdlib>
#include <type_traits>

#include "genreg/core/diagnostics.h"
#include "platform/machine_registry.h"
#include "sysservices/fault_hook.h"
#include "sysservices/return_codes.h"

namespace install {

// A zeroed object, or null when there is no memory.
template <typename Object>
Object* allocateZeroed() noexcept {
  static_assert(std::is_trivial_v<Object>);
  if (ossFaultPoint("calloc", nullptr) > 0) return nullptr;
  return static_cast<Object*>(std::calloc(1, sizeof(Object)));
}

// Returns 0, or the code of a fault hook; the memory is gone either way.
inline unsigned int release(void* object) noexcept {
  const int fault = ossFaultPoint("free", nullptr);
  std::free(object);
  return fault == 0 ? OSS_RC_OK : OSS_RC_SYSTEM_ERROR;
}

// A list that is being opened, with its machine; `closeList` releases it unless it is handed out.
template <typename List, unsigned int (*closeList)(List*) noexcept>
class NewList {
 public:
  NewList() noexcept : list_(allocateZeroed<List>()) {
    genreg::handOverNames();  // the platform may have something to log
    if (list_ != nullptr) list_->machine = platform::openMachine();
  }
  ~NewList() {
    if (list_ != nullptr) (void)closeList(list_);
  }
  NewList(const NewList&) = delete;
  NewList& operator=(const NewList&) = delete;

  // False when there was no memory.
  bool made() const noexcept { return list_ != nullptr && list_->machine != nullptr; }
  List* operator->() const noexcept { return list_; }
  List& operator*() const noexcept { return *list_; }
  List* handOut() noexcept {
    List* const list = list_;
    list_ = nullptr;
    return list;
  }

 private:
  List* list_;
};

// Copies text that is known to fit, terminator included, into a record's field.
template <std::size_t Size>
void copyText(char (&field)[Size], const char* text) noexcept {
  static_assert(Size > 0);
  std::size_t length = 0;
  for (; length < Size - 1 && text[length] != '\0'; ++length) field[length] = text[length];
  field[length] = '\0';
}

}  // namespace install
