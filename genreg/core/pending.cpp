#include "genreg/core/pending.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>

namespace genreg {
namespace {

constexpr const char* sourceFile = "pending";
constexpr std::size_t smallestBlock = 4096;
constexpr std::size_t largestBlock = std::size_t{1} << 20;
constexpr std::size_t lengthWidth = sizeof(std::uint32_t);  // in front of a binary record

}  // namespace

// The longest is a record of 1 MB with its length.
Pending::Record::Record(const char* start, std::size_t count) noexcept
    : bytes(start),
      length(count & 0xFFFFFFu),
      gone(0),
      indexed(0),
      unended(0),
      isPiece(0),
      isJoined(0) {}

Pending::~Pending() {
  void* content = content_;
  (void)_ossMemFree(&content, 0, 0, sourceFile, __LINE__);
  while (blocks_ != nullptr) {
    void* block = blocks_;
    blocks_ = blocks_->before;
    (void)_ossMemFree(&block, 0, 0, sourceFile, __LINE__);
  }
}

Code Pending::load(const RecordStore& store, File* file) noexcept {
  binary_ = !store.kind.isText;
  if (file == nullptr) return 0;
  hasFile_ = true;
  original_ = {file->window(), file->windowSize()};
  // Counted first: an array that grows would take twice its room for a moment.
  std::size_t count = 0;
  Frame frame;
  while ((end_ = store.next(*file, frame)) == 0) ++count;
  if (!records_.reserve(count + 1)) return OSS_RC_NO_MEMORY;
  file->seek(0);
  frame = Frame();
  for (; count > 0; --count) {
    (void)store.next(*file, frame);
    Record record(frame.bytes.data(), frame.bytes.size());
    record.unended = frame.unended;
    record.isPiece = frame.isPiece;
    record.isJoined = frame.isJoined;
    (void)records_.add(record);
  }
  content_ = file->takeBuffer();
  return 0;
}

bool Pending::isChanged() const noexcept {
  if (!accepted_) return false;
  std::string_view left = original_;
  const bool same = forEachRun([&](std::string_view run) {
    if (left.substr(0, run.size()) != run) return false;
    left.remove_prefix(run.size());
    return true;
  });
  return !same || !left.empty() || (!hasFile_ && records_.size() != 0);
}

// --- looking at records ---

void Pending::beginAt(std::uint64_t place) noexcept {
  drop();
  onlyCandidates_ = false;
  next_ = place;
}

void Pending::beginAtLast() noexcept {
  const Record* each = records_.end();
  while (each != records_.begin() && (--each)->gone != 0) continue;
  beginAt(static_cast<std::uint64_t>(each - records_.begin()));
}

std::string_view Pending::last() const noexcept {
  std::string_view run;
  int left = 2;
  for (const Record* each = records_.end(); each != records_.begin() && left != 0;) {
    const Record& record = *--each;
    if (record.gone != 0) continue;
    if (!run.empty() && record.bytes + record.length != run.data()) break;
    run = {record.bytes, record.length + run.size()};
    --left;
  }
  return run;
}

void Pending::begin(const RecordForm* form, std::uint64_t mask, const void* key) noexcept {
  beginAt(0);
  onlyCandidates_ = form != nullptr && key != nullptr && findCandidates(form, mask, key);
}

void Pending::beginOdd(const RecordForm* form) noexcept {
  beginAt(0);
  onlyCandidates_ = form != nullptr && findOdd(form);
  if (onlyCandidates_) sortCandidates();
}

Code Pending::next(Frame& frame) noexcept {
  for (;; ++next_) {
    const std::size_t count = onlyCandidates_ ? candidates_.size() : records_.size();
    if (next_ >= count) return end_;
    current_ = onlyCandidates_ ? candidates_[next_] : static_cast<std::uint32_t>(next_);
    if (records_[current_].gone == 0) break;
  }
  ++next_;
  const Record& record = records_[current_];
  frame.bytes = record.view();
  frame.stored = storedOf(record);
  const bool isOriginal =
      record.bytes >= original_.data() && record.bytes < original_.data() + original_.size();
  frame.offset = isOriginal ? static_cast<std::uint64_t>(record.bytes - original_.data()) : 0;
  frame.unended = record.unended != 0;
  frame.isPiece = record.isPiece != 0;
  frame.isJoined = record.isJoined != 0;
  return 0;
}

// The record behind its length, or a line without its newline.
std::string_view Pending::storedOf(const Record& record) const noexcept {
  std::string_view bytes = record.view();
  if (binary_) return bytes.substr(lengthWidth);
  if (!bytes.empty() && bytes.back() == '\n') bytes.remove_suffix(1);
  return bytes;
}

// Records of the key's hash, and those of which nothing is known, in the order of the file.
bool Pending::findCandidates(const RecordForm* form, std::uint64_t mask, const void* key) noexcept {
  IdentityHash hash;
  const std::uint64_t identity = form->identity(key);
  const bool isNamed = identity != 0 && (mask & identity) == identity;
  if (!isNamed || !form->hash(identity, key, &hash) || !findOdd(form)) return false;
  for (std::size_t at = hash.value() % slots_.size(); slots_[at] != 0;) {
    const std::uint32_t number = slots_[at] - 1;
    const Record& record = records_[number];
    const bool fits = record.indexed != 0 && record.hash == hash.value() && record.gone == 0;
    if (fits && !candidates_.add(number)) return false;
    if (++at == slots_.size()) at = 0;
  }
  sortCandidates();
  return true;
}

bool Pending::findOdd(const RecordForm* form) noexcept {
  if (indexForm_ != form && !buildIndex(form)) return false;
  candidates_.resize(0);
  if (!candidates_.reserve(always_.size() + 8)) return false;
  for (const std::uint32_t number : always_) (void)candidates_.add(number);
  return true;
}

// A record that was changed may be there twice.
void Pending::sortCandidates() noexcept {
  std::sort(candidates_.begin(), candidates_.end());
  const std::uint32_t* end = std::unique(candidates_.begin(), candidates_.end());
  candidates_.resize(static_cast<std::size_t>(end - candidates_.begin()));
}

bool Pending::buildIndex(const RecordForm* form) noexcept {
  indexForm_ = nullptr;
  always_.resize(0);
  const std::size_t slots = 2 * records_.size() + 64;
  if (scratch_.reserve(form->recordSize) != 0) return false;
  slots_.release();
  if (!slots_.reserve(slots)) return false;
  slots_.resize(slots_.capacity());
  std::fill(slots_.begin(), slots_.end(), 0);
  used_ = 0;
  indexForm_ = form;
  for (std::uint32_t number = 0; number != records_.size() && indexForm_ != nullptr; ++number) {
    if (records_[number].gone == 0) enter(number);
  }
  return indexForm_ != nullptr;
}

// Puts a record into the index; an index that is too full or lacks memory goes, and is built anew
// by the next operation that wants it.
void Pending::enter(std::uint32_t number) noexcept {
  Record& record = records_[number];
  const RecordForm* form = indexForm_;
  const std::string_view stored = storedOf(record);
  const bool isPlain = record.unended == 0 && record.isPiece == 0 && record.isJoined == 0;
  record.indexed = 0;
  if (!isPlain || !form->fill(stored.data(), stored.size(), scratch_.data())) {
    if (!always_.add(number)) indexForm_ = nullptr;
    return;
  }
  IdentityHash hash;
  const std::uint64_t identity = form->identity(scratch_.data());
  if (!form->hash(identity, scratch_.data(), &hash)) return;  // matches no such key
  if (++used_ > slots_.size() / 4 * 3) {
    indexForm_ = nullptr;
    return;
  }
  record.indexed = 1;
  record.hash = hash.value();
  std::size_t at = record.hash % slots_.size();
  while (slots_[at] != 0) {
    if (++at == slots_.size()) at = 0;
  }
  slots_[at] = number + 1;
}

// --- what an operation does ---

bool Pending::replace(std::string_view bytes) noexcept {
  return stage(current_, Record(bytes.data(), bytes.size()));
}

bool Pending::add(std::string_view bytes) noexcept {
  return stage(behindAll, Record(bytes.data(), bytes.size()));
}

bool Pending::followsRemoved() const noexcept {
  const Record* each = records_.begin() + current_;
  do {
    if (each == records_.begin()) return false;
  } while ((--each)->gone != 0);
  const Edit* last = edits_.size() == 0 ? nullptr : edits_.end() - 1;
  return last != nullptr && last->record.bytes == nullptr &&
         last->number == static_cast<std::uint32_t>(each - records_.begin());
}

bool Pending::end(std::string_view added, const RecordStore& store) noexcept {
  Record record = records_[current_];
  char* const bytes = keepBytes(record.length + added.size(), 1);
  if (bytes == nullptr) return false;
  std::memcpy(bytes, record.bytes, record.length);
  std::memcpy(bytes + record.length, added.data(), added.size());
  record.bytes = bytes;
  record.length = (record.length + added.size()) & 0xFFFFFFu;
  Frame frame;
  frame.bytes = record.view();
  store.describeLast(frame);
  record.unended = frame.unended;
  record.isJoined = frame.isJoined;
  return edits_.add({current_, record});
}

// With room for all that accept() does.
bool Pending::stage(std::uint32_t number, const Record& record) noexcept {
  char* const kept = keepBytes(record.length, 1);
  if (kept == nullptr || !records_.reserve(records_.size() + edits_.size() + 1)) return false;
  std::memcpy(kept, record.bytes, record.length);
  return edits_.add({number, Record(kept, record.length)});
}

void Pending::accept(const RecordForm* form) noexcept {
  accepted_ = true;
  if (indexForm_ != form) indexForm_ = nullptr;
  for (const Edit& edit : edits_) {
    const bool isNew = edit.number == behindAll;
    const auto number = isNew ? static_cast<std::uint32_t>(records_.size()) : edit.number;
    if (edit.record.bytes == nullptr) {
      records_[number].gone = 1;
      continue;
    }
    if (isNew) {
      (void)records_.add(edit.record);  // there is room
    } else {
      records_[number] = edit.record;
    }
    if (indexForm_ != nullptr) enter(number);
  }
  drop();
}

char* Pending::keepBytes(std::size_t count, std::size_t alignment) noexcept {
  if (char* const bytes = takeBytes(count, alignment); bytes != nullptr) return bytes;
  const std::size_t grown =
      blocks_ == nullptr ? smallestBlock : std::min(2 * blocks_->size, largestBlock);
  const std::size_t size = std::max(count + alignment, grown);
  void* memory = nullptr;
  if (_ossMemAlloc(&memory, 0, sizeof(Block) + size, 1, sourceFile, __LINE__) != 0) return nullptr;
  blocks_ = new (memory) Block{blocks_, 0, size};
  return takeBytes(count, alignment);
}

// Of the last block; null when there is not so much left.
char* Pending::takeBytes(std::size_t count, std::size_t alignment) noexcept {
  if (blocks_ == nullptr) return nullptr;
  std::size_t left = blocks_->size - blocks_->used;
  void* place = reinterpret_cast<char*>(blocks_ + 1) + blocks_->used;
  if (std::align(alignment, count, place, left) == nullptr) return nullptr;
  blocks_->used = blocks_->size - left + count;
  return static_cast<char*>(place);
}

void* Pending::keepCopy(const void* bytes, std::size_t size) noexcept {
  char* const copy = keepBytes(size, alignof(std::max_align_t));
  if (copy != nullptr) std::memcpy(copy, bytes, size);
  return copy;
}

}  // namespace genreg
