// Repair of a registry that damage keeps from being updated: what can be framed is kept, the
// damaged original set aside.
#pragma once

#include "genreg/core/record_store.h"

namespace genreg {

class Repair {
 public:
  Repair(RecordStore& store, bool dropUnreadable, GenRegRepairReport& report) noexcept
      : store_(store),
        routine_(Function::repairRegistry),
        dropUnreadable_(dropUnreadable),
        report_(report) {}

  Code run() noexcept;

 private:
  bool salvage(bool writes) noexcept;
  bool treat(const Frame& frame, bool writes) noexcept;
  bool isReadable(const Frame& frame) noexcept;
  void leaveOut(std::uint64_t offset, std::uint64_t count) noexcept;
  void finish() noexcept;

  RecordStore& store_;
  Routine routine_;
  bool dropUnreadable_;
  GenRegRepairReport& report_;
  std::uint64_t size_ = 0;
  Slot slot_;
};

}  // namespace genreg
