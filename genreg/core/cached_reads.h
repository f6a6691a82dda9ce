// What a handle that reads often keeps between its reads: the content of the registry file, and
// indexes of the fields that are asked for.
//
// Before each read the system is asked once whether the registry's name still shows this very file,
// unchanged. The file stays open, so that its number cannot be given to another one meanwhile. The
// times of a file move in steps of the system's clock: what was read within such a step of its last
// change could be changed once more and look the same, so it serves one read and is read again.
#pragma once

#include <cstdint>

#include "genreg/core/file.h"
#include "genreg/core/growing_array.h"
#include "genreg/core/record_store.h"

namespace genreg {

// The records of a content by the fields of one mask: of those that are equal in them, the first.
class RecordIndex {
 public:
  bool isFor(const RecordForm* form, std::uint64_t mask, std::uint64_t framing) const noexcept {
    return form_ == form && mask_ == mask && framing_ == framing;
  }
  // Of all of the content that the file holds in its window. There may be none to be had: without
  // memory, behind damage, of too much that the form cannot fill. Nothing is logged.
  void build(const RecordStore& store, File& file, const RecordForm* form,
             std::uint64_t mask) noexcept;
  void clear() noexcept;

  // The records that a key of that hash may match, in the order of the file: those of the hash, and
  // all that the form cannot fill. False when there is no index.
  bool begin(std::uint32_t hash) noexcept;
  Code next(const RecordStore& store, Frame& frame) noexcept;

 private:
  struct Slot {
    std::uint32_t hash;
    std::uint32_t place;  // offset of the frame plus 1; 0 is free
  };

  bool enter(const RecordStore& store, const Frame& frame) noexcept;
  bool repeats(const RecordStore& store, const Slot& earlier) noexcept;
  void frameAt(const RecordStore& store, std::uint32_t place, Frame& frame) noexcept;
  std::size_t firstSlot(std::uint32_t hash) const noexcept;
  std::size_t behind(std::size_t slot) const noexcept {
    return slot + 1 < slots_.size() ? slot + 1 : 0;
  }
  void findPlace() noexcept;

  const RecordForm* form_ = nullptr;
  std::uint64_t mask_ = 0;
  std::uint64_t framing_ = 0;  // the features that say where records end
  File* file_ = nullptr;
  GrowingArray<Slot> slots_;
  GrowingArray<Frame> odd_;
  RecordBuffer scratch_;
  std::uint32_t hash_ = 0;   // looked for
  std::size_t slot_ = 0;     // next one to be looked at
  std::uint32_t place_ = 0;  // of the next record of that hash; 0: none is left
  std::size_t nextOdd_ = 0;
};

class CachedReads {
 public:
  // The file that holds all of the content in its window.
  File& file() noexcept { return file_; }

  // Whether the content is what stands at that name now.
  bool isCurrent(const char* path) noexcept;
  // Takes all of the file, which has been opened and begun since `start` on the clock of files, and
  // gives its lock back. False when it cannot be kept; nothing is, then.
  bool load(std::int64_t start) noexcept;
  void drop() noexcept;

  // An index for a Get under that mask, set to the key's records; null while none is worth its
  // making, or none can be made.
  RecordIndex* find(const RecordStore& store, const RecordForm* form, std::uint64_t mask,
                    const void* key) noexcept;

 private:
  static constexpr std::size_t mostIndexes = 2;

  File file_;
  OSSFileInfo info_{};
  bool isSettled_ = false;  // a change from now on shows in size or time
  bool isAsked_ = false;    // a Get has looked at this content before
  RecordIndex indexes_[mostIndexes];
  std::size_t oldest_ = 0;
};

}  // namespace genreg
