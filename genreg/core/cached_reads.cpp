#include "genreg/core/cached_reads.h"

#include <cstring>

#include "sysservices/file_system.h"
#include "sysservices/return_codes.h"

namespace genreg {
namespace {

constexpr std::uint64_t largestContent = UINT32_MAX - 1;  // bytes; places have 32 bits

// Nanoseconds behind which a further change of a file shows in its time. Clocks tick every 10 ms or
// faster; some file systems keep whole seconds, or every other one.
std::int64_t stepOf(std::int64_t changed) noexcept {
  constexpr std::int64_t second = 1000000000;
  return changed % second == 0 ? 2 * second + second / 10 : second / 20;
}

}  // namespace

bool CachedReads::isCurrent(const char* path) noexcept {
  if (!isSettled_) return false;
  OSSFileInfo now{};
  const OSSFileInfoRequest request{OSS_PARAM_LEVEL, path};
  return ossFileGetInfoV9(&request, &now) == OSS_RC_OK && now.isUntouched(info_);
}

// A file that claims to be empty may be one of the system's, made when it is read.
bool CachedReads::load(std::int64_t start) noexcept {
  info_ = file_.info();
  const bool loaded = info_.size > 0 && info_.size <= largestContent &&
                      file_.more(static_cast<std::size_t>(info_.size)) &&
                      file_.windowSize() == info_.size && file_.handle().unlock() == OSS_RC_OK;
  isSettled_ = loaded && info_.changed + stepOf(info_.changed) < start;
  loaded ? file_.keepWhole() : drop();
  return loaded;
}

void CachedReads::drop() noexcept {
  (void)file_.close();
  for (RecordIndex& index : indexes_) index.clear();
  isSettled_ = isAsked_ = false;
}

// The first Get of a content only searches: it may be the only one before the next change.
RecordIndex* CachedReads::find(const RecordStore& store, const RecordForm* form, std::uint64_t mask,
                               const void* key) noexcept {
  const bool isWorthIt = isAsked_ && isSettled_;
  isAsked_ = true;
  IdentityHash hash;
  if (!isWorthIt || !form->hash(mask, key, &hash)) return nullptr;
  RecordIndex* index = nullptr;
  for (RecordIndex& each : indexes_) {
    if (each.isFor(form, mask, store.framing())) index = &each;
  }
  if (index == nullptr) {
    index = &indexes_[oldest_];
    oldest_ = (oldest_ + 1) % mostIndexes;
    index->build(store, file_, form, mask);
  }
  return index->begin(hash.value()) ? index : nullptr;
}

// --- one index ---

void RecordIndex::clear() noexcept {
  form_ = nullptr;
  slots_.release();
  odd_.release();
}

// Room for half as many again as there are frames, which makes 12 bytes for each.
void RecordIndex::build(const RecordStore& store, File& file, const RecordForm* form,
                        std::uint64_t mask) noexcept {
  clear();
  form_ = form;
  mask_ = mask;
  framing_ = store.framing();
  file_ = &file;
  file.seek(0);
  const std::size_t size = file.windowSize();
  if (!store.kind.isText && store.wholeFrames(file, size) != size) return;  // damaged
  std::size_t count = 0;
  for (Frame frame; store.next(file, frame) == 0;) ++count;
  const std::size_t slots = count + count / 2 + 8;
  if (!slots_.reserve(slots) || scratch_.reserve(form->recordSize) != 0) return;
  slots_.resize(slots);
  std::memset(slots_.begin(), 0, slots * sizeof(Slot));
  file.seek(0);
  for (Frame frame; count > 0 && store.next(file, frame) == 0 && enter(store, frame);) --count;
  if (count > 0) slots_.release();
  (void)scratch_.release();
}

// False when the index would not be worth its memory or its time.
bool RecordIndex::enter(const RecordStore& store, const Frame& frame) noexcept {
  constexpr std::size_t mostSteps = 1000;  // clusters of good hashes have a few hundred
  constexpr std::size_t oddRoom = std::size_t{16} * 1024;  // bytes
  const std::string_view stored = frame.stored;
  if (!frame.isPlain() || !form_->fill(stored.data(), stored.size(), scratch_.data())) {
    return odd_.size() * sizeof frame < oddRoom && odd_.add(frame);
  }
  IdentityHash hash;
  if (!form_->hash(mask_, scratch_.data(), &hash)) return true;  // matches no such key
  std::size_t slot = firstSlot(hash.value());
  for (std::size_t steps = 0; slots_[slot].place != 0; slot = behind(slot)) {
    if (slots_[slot].hash == hash.value() && repeats(store, slots_[slot])) return true;
    if (++steps == mostSteps) return false;
  }
  slots_[slot] = {hash.value(), static_cast<std::uint32_t>(frame.offset + 1)};
  return true;
}

// Whether an earlier record is found in the place of the one that was filled last.
bool RecordIndex::repeats(const RecordStore& store, const Slot& earlier) noexcept {
  const std::uint64_t place = file_->offset();
  Frame frame;
  frameAt(store, earlier.place, frame);
  file_->seek(place);
  const std::string_view stored = frame.stored;
  return form_->match(mask_, stored.data(), stored.size(), scratch_.data()) == Match::Matches;
}

// All of the file is in memory, and framed as it was.
void RecordIndex::frameAt(const RecordStore& store, std::uint32_t place, Frame& frame) noexcept {
  frame = Frame();
  file_->seek(place - 1);
  (void)store.next(*file_, frame);
}

// Short keys differ in few bits of their hash, which are spread over all of them first.
std::size_t RecordIndex::firstSlot(std::uint32_t hash) const noexcept {
  hash = (hash ^ hash >> 16) * 0x85EBCA6Bu;
  hash = (hash ^ hash >> 13) * 0xC2B2AE35u;
  return static_cast<std::size_t>(std::uint64_t{hash ^ hash >> 16} * slots_.size() >> 32);
}

bool RecordIndex::begin(std::uint32_t hash) noexcept {
  if (slots_.size() == 0) return false;
  hash_ = hash;
  slot_ = firstSlot(hash);
  nextOdd_ = 0;
  findPlace();
  return true;
}

void RecordIndex::findPlace() noexcept {
  place_ = 0;
  for (; place_ == 0 && slots_[slot_].place != 0; slot_ = behind(slot_)) {
    if (slots_[slot_].hash == hash_) place_ = slots_[slot_].place;
  }
}

Code RecordIndex::next(const RecordStore& store, Frame& frame) noexcept {
  const bool hasOdd = nextOdd_ < odd_.size();
  if (!hasOdd && place_ == 0) return GENREG_RC_END;
  if (hasOdd && (place_ == 0 || odd_[nextOdd_].offset < place_)) {
    frame = odd_[nextOdd_++];
    return GENREG_RC_OK;
  }
  frameAt(store, place_, frame);
  findPlace();
  return GENREG_RC_OK;
}

}  // namespace genreg
