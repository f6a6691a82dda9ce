// The content of an update of many changes: the records of the registry file as they were read, and
// what has been done to them since. Nobody else sees it until it is committed.
//
// An operation looks at the records one by one, as it would in the file, except that those are left
// out of which the flavour's identity says that they differ from the key. What it does to them is
// staged, and counts once the operation has succeeded as a whole.
#pragma once

#include <cstdint>
#include <string_view>

#include "genreg/core/growing_array.h"
#include "genreg/core/record_store.h"

namespace genreg {

class Pending {
 public:
  Pending() noexcept = default;
  ~Pending();
  Pending(const Pending&) = delete;
  Pending& operator=(const Pending&) = delete;

  // Takes the records of a file that holds all of its content in its window, and the memory of
  // that; null: there is no file. Damage ends the records, and is met by whoever gets there.
  // Returns 0 or OSS_RC_NO_MEMORY.
  Code load(const RecordStore& store, File* file) noexcept;

  // There was no file, and nothing has been added since.
  bool isMissing() const noexcept { return !hasFile_ && records_.size() == 0; }
  // What was accepted comes to something else than what the file holds.
  bool isChanged() const noexcept;
  // An operation was accepted.
  bool wasChanged() const noexcept { return accepted_; }

  // --- looking at records ---

  // Starts an operation or a look at the first record; with a form and a key under `mask`, only
  // those are looked at that may match. Without memory all are.
  void begin(const RecordForm* form, std::uint64_t mask, const void* key) noexcept;
  // The same for whoever compares with no key: only what the form cannot fill is looked at.
  void beginOdd(const RecordForm* form) noexcept;
  // Starts at the last record alone.
  void beginAtLast() noexcept;
  // Starts at a place that place() gave; 0 is the first record.
  void beginAt(std::uint64_t place) noexcept;
  std::uint64_t place() const noexcept { return next_; }
  // Where the handle's scan stands.
  std::uint64_t scanPlace = 0;
  // The last two records, in one piece as they were read or added; the last alone where they are
  // not.
  std::string_view last() const noexcept;
  // The next record: 0, GENREG_RC_END, or the code of the damage.
  Code next(Frame& frame) noexcept;

  // --- what an operation does ---

  // In place of the record that next() gave last, or behind all. False without memory.
  bool replace(std::string_view bytes) noexcept;
  bool add(std::string_view bytes) noexcept;
  bool remove() noexcept { return edits_.add({current_, Record()}); }
  // The record that next() gave last follows one that is to be removed.
  bool followsRemoved() const noexcept;
  // The record that next() gave last gains bytes at its end; `store` says what it is then.
  bool end(std::string_view added, const RecordStore& store) noexcept;
  // Makes what was staged part of the content, or drops it.
  void accept(const RecordForm* form) noexcept;
  void drop() noexcept { edits_.resize(0); }

  // What the hook is to hear of an accepted change: the operation, its record or key, and the new
  // record of a Change.
  struct Note {
    std::uint64_t operation;
    void* first;
    void* second;
  };
  bool add(const Note& note) noexcept { return notes_.add(note); }
  const GrowingArray<Note>& notes() const noexcept { return notes_; }
  // Keeps a copy of `size` bytes for as long as this lives; null without memory.
  void* keepCopy(const void* bytes, std::size_t size) noexcept;

  // --- for the commit ---

  // Gives the memory of the index back; nothing is looked up any more.
  void dropIndex() noexcept {
    indexForm_ = nullptr;
    slots_.release();
    always_.release();
    candidates_.release();
  }

  // Hands the bytes of the content to `visit`(bytes, count) in as few pieces as there are; stops
  // and gives false when it does.
  template <typename Visit>
  bool forEachRun(Visit visit) const noexcept {
    std::string_view run;
    for (const Record& record : records_) {
      if (record.gone) continue;
      if (!run.empty() && run.data() + run.size() == record.bytes) {
        run = {run.data(), run.size() + record.length};
        continue;
      }
      if (!run.empty() && !visit(run)) return false;
      run = record.view();
    }
    return run.empty() || visit(run);
  }
  // The file as it was read.
  std::string_view original() const noexcept { return original_; }

 private:
  static constexpr std::uint32_t behindAll = UINT32_MAX;

  struct Record {
    const char* bytes = nullptr;  // all that is written
    std::uint32_t hash = 0;
    std::uint32_t length : 24;
    std::uint32_t gone : 1;
    std::uint32_t indexed : 1;  // `hash` is that of its identity
    std::uint32_t unended : 1;  // as in Frame
    std::uint32_t isPiece : 1;
    std::uint32_t isJoined : 1;

    Record(const char* start, std::size_t count) noexcept;
    Record() noexcept : Record(nullptr, 0) {}
    std::string_view view() const noexcept { return {bytes, length}; }
  };
  static_assert(sizeof(Record) == 16);
  struct Edit {
    std::uint32_t number;
    Record record;  // without bytes: the record goes
  };
  struct Block {
    Block* before;
    std::size_t used;
    std::size_t size;  // of the bytes behind this
  };

  std::string_view storedOf(const Record& record) const noexcept;
  bool stage(std::uint32_t number, const Record& record) noexcept;
  char* keepBytes(std::size_t count, std::size_t alignment) noexcept;
  char* takeBytes(std::size_t count, std::size_t alignment) noexcept;
  bool buildIndex(const RecordForm* form) noexcept;
  void enter(std::uint32_t number) noexcept;
  bool findOdd(const RecordForm* form) noexcept;
  void sortCandidates() noexcept;
  bool findCandidates(const RecordForm* form, std::uint64_t mask, const void* key) noexcept;

  GrowingArray<Record> records_;
  std::string_view original_;
  char* content_ = nullptr;  // the memory of it
  bool hasFile_ = false;
  Code end_ = GENREG_RC_END;  // what stands behind the last record
  bool binary_ = false;
  bool accepted_ = false;

  // The records by the hash of their identity, and those that every operation looks at.
  const RecordForm* indexForm_ = nullptr;  // null: there is no index
  GrowingArray<std::uint32_t> slots_;      // numbers of records plus 1; 0 is free
  std::size_t used_ = 0;
  GrowingArray<std::uint32_t> always_;
  RecordBuffer scratch_;

  GrowingArray<std::uint32_t> candidates_;
  bool onlyCandidates_ = false;
  std::uint64_t next_ = 0;  // in the candidates or the records
  std::uint32_t current_ = 0;
  GrowingArray<Edit> edits_;
  GrowingArray<Note> notes_;
  Block* blocks_ = nullptr;
};

}  // namespace genreg
