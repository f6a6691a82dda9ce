// An update of many changes with one commit: begin, commit, abandon. Between them the operations
// work on the session's pending content.
#pragma once

#include "genreg/core/pending.h"
#include "genreg/core/record_store.h"

namespace genreg {

class ManyChanges {
 public:
  ManyChanges(RecordStore& store, Function name) noexcept : store_(store), routine_(name) {}

  // As the members of GenRegFile.
  Code begin(std::uint64_t request) noexcept;
  Code commit() noexcept;
  Code abandon() noexcept;

 private:
  void replace() noexcept;
  void write() noexcept;
  Code verify() noexcept;
  static bool expectBytes(Routine& routine, File& file, std::string_view bytes,
                          Code unreadable) noexcept;
  void end() noexcept;
  void notifyHooks(const Pending& pending) noexcept;

  RecordStore& store_;
  Routine routine_;
};

}  // namespace genreg
