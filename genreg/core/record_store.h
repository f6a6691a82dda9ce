// What an engine is to the operations: the framing of records in a file, and their way between
// stored bytes and memory. Everything else about Add, Change, Delete, Get, GetNext and verification
// is the same for all engines and stands in update, search and verification.
#pragma once

#include <cstdint>
#include <string_view>

#include "genreg/core/diagnostics.h"
#include "genreg/core/handle.h"
#include "genreg/core/record_buffer.h"

namespace genreg {

constexpr std::uint64_t smallestRecord = 3;          // bytes, in memory and in the file
constexpr std::uint64_t largestRecord = 0x100000;    // bytes, in memory and in the file
constexpr std::uint64_t smallestReturnedRecord = 8;  // bytes; smaller ones are stored only

// What else the operations of an engine are: how the log calls them, and the rules of its kind.
struct StoreKind {
  Function add, change, remove, get, getNext, checkHooks, readRecord, verifyUpdate;
  // Lines: one that does not parse is kept, and found if what could be read of it matches; any line
  // can be asked for; a missing file is only a file that cannot be opened; no NotifyChange.
  bool isText;
};

// A record as it stands in a file's window; valid until that file reads on.
struct Frame {
  std::string_view bytes;    // all that an update writes back: with the length field, or a raw line
  std::string_view stored;   // the record itself
  std::uint64_t offset = 0;  // of `bytes` in the file
  // Text: the last line, without a newline; a piece of a line that is longer than the buffer; and
  // whether that line goes on behind this piece, in the middle of a continuation perhaps.
  bool unended = false;
  bool isPiece = false;
  bool goesOn = false;
  bool goesOnInBackslash = false;

  // The record stands for itself: `stored` is all there is to know of it.
  bool isPlain() const noexcept { return !unended && !isPiece && !isJoined; }
  bool isJoined = false;  // text: more than one physical line, or one that could have been
};

// One record in memory, with room for the stored bytes that it comes from or becomes.
struct Slot {
  // First failure of giving both blocks back.
  Code release() noexcept {
    const Code first = record.release();
    const Code second = packed.release();
    return first != 0 ? first : second;
  }

  RecordBuffer record;
  RecordBuffer packed;
  bool parsed = true;  // text: the line is a record
};

class RecordStore {
 public:
  RecordStore(GenRegFile& handle, const StoreKind& kindOfStore) noexcept
      : kind(kindOfStore), handle_(handle) {}
  RecordStore(const RecordStore&) = delete;
  RecordStore& operator=(const RecordStore&) = delete;

  const StoreKind& kind;

  const HandleAccess& handle() const noexcept { return handle_; }
  Session& session() const noexcept { return *handle_.session(); }
  bool has(std::uint64_t feature) const noexcept { return handle_.has(feature); }
  // The features that say where a record ends and what stands in it.
  std::uint64_t framing() const noexcept {
    return handle_.features() &
           (GENREG_PACKED_RECORDS | GENREG_BIG_ENDIAN_LENGTH | GENREG_JOIN_CONTINUED_LINES);
  }
  Pending* pending() const noexcept {
    return handle_.session() == nullptr ? nullptr : handle_.session()->pending();
  }

  // --- checks before an operation ---

  // ValidateKey is there and accepts; a GetNext for any record asks only whether it is there.
  bool validate(Routine& routine, std::uint64_t mask, void* keyOrRecord,
                bool asks = true) const noexcept;
  // The size of a record in memory, within its limits.
  bool recordSize(Routine& routine, std::uint64_t* size) const noexcept;
  // The hooks that Add and the verification pass need: 0 or the first missing one's code.
  virtual Code checkHooks() const noexcept = 0;
  // What the flavour knows of stored records of that size, or null.
  const RecordForm* form(const void* key, std::uint64_t size) const noexcept {
    const RecordForm* form = key == nullptr ? nullptr : handle_.form();
    return form != nullptr && size == form->recordSize && suits(*form) ? form : nullptr;
  }
  // Whether records are stored as that form knows them.
  bool suits(const RecordForm& form) const noexcept {
    return kind.isText || has(GENREG_PACKED_RECORDS) == (form.unpackRecord.binary != nullptr);
  }

  // --- steps of the session; false after a failure, which is logged and the routine's ---

  bool lock(Routine& routine, std::uint64_t request) const noexcept;
  bool open(Routine& routine, std::uint64_t operation, unsigned int point) const noexcept;
  bool close(Routine& routine, std::uint64_t operation, unsigned int point) const noexcept;
  // A failure counts only when nothing else failed. The lock is gone afterwards, whatever happens.
  void unlock(Routine& routine) const noexcept;

  // --- framing ---

  // The next record of a file: 0, GENREG_RC_END, or what is wrong, logged by the engine's routine
  // for reading a record. The file then stands before it again. `frame` is the record before it, or
  // empty at the start.
  virtual Code next(File& file, Frame& frame) const noexcept = 0;
  // The same, where the window holds it whole and it is plain; else false, and nothing has
  // happened.
  virtual bool takePlain(File& file, Frame& frame) const noexcept = 0;
  // The frames at the start of the file's window, each whole, as long as `form` is sure that they
  // differ from the key or, with `alsoMatching`, match it; without a form, whatever they are. Stops
  // before what takes more to know.
  virtual std::string_view run(const File& file, const RecordForm* form, std::uint64_t mask,
                               const void* key, bool alsoMatching) const noexcept = 0;
  // How many of the first `count` bytes of the file's window are whole frames.
  virtual std::size_t wholeFrames(const File& file, std::size_t count) const noexcept = 0;

  // --- from stored bytes to memory ---

  // Makes the record of a frame. False when the operation cannot go on; a line that does not parse
  // is none, which the slot then says.
  virtual bool unpack(Routine& routine, const Frame& frame, Slot& slot, std::uint64_t size,
                      unsigned int point) noexcept = 0;
  // Hands the record that was unpacked last to the caller.
  virtual void copyOut(const Slot& slot, std::uint64_t size, void* out) noexcept = 0;

  bool canCompare(Routine& routine, unsigned int point) const noexcept;
  bool matches(std::uint64_t mask, const Slot& slot, void* key) const noexcept {
    return handle_.compareHook()(mask, slot.record.data(), key) == 1;
  }
  // For the verification pass: whether a record of the new file is the one that was to be stored.
  virtual bool isRecord(const Slot& slot, void* record) const noexcept = 0;

  // --- from memory to a file ---

  // The frame of a caller's record, in memory of the slot or the store; the caller's is only read.
  // `replaced` is the frame whose place it takes, or null. Null bytes after a failure, which
  // becomes `failed` when it is one of writing a record.
  virtual std::string_view pack(Routine& routine, const void* record, const Frame* replaced,
                                Slot& slot, std::uint64_t size, Code failed) noexcept = 0;
  // The record in a frame.
  virtual std::string_view storedOf(std::string_view frame) const noexcept = 0;
  // What stands in place of the frame's first bytes until all others are on the disk.
  virtual std::string_view unfinishedMark(std::string_view frame) noexcept = 0;
  // Writes frames; `failed` is the operation's code.
  virtual bool write(Routine& routine, File& to, std::string_view frames, Code failed,
                     unsigned int point) const noexcept = 0;
  // Whether an update of that kind can keep a frame, and the bytes that it then gains at its end.
  virtual bool mayKeep(Routine& routine, const Frame& frame, std::uint64_t operation,
                       std::string_view* gained) const noexcept = 0;
  // What a reader will say of a last frame that has gained bytes: it may still have no end.
  virtual void describeLast(Frame&) const noexcept {}
  // Writes a frame that an update of that kind keeps.
  bool keep(Routine& routine, File& to, const Frame& frame, std::uint64_t operation) noexcept;
  // Whether kept frames may be written as a run.
  virtual bool canKeepRuns() const noexcept = 0;
  // Whether the new file's frame is the old one's, untouched.
  virtual bool isKept(const Frame& before, const Frame& after) const noexcept = 0;
  // Whether a matching frame may be changed or deleted.
  virtual bool mayTouch(Routine&, const Frame&) const noexcept { return true; }
  // What has to stand between a file's last bytes and a record that is appended.
  virtual bool gapBehind(Routine&, std::string_view, std::string_view*) const noexcept {
    return true;
  }
  // Before an append in place: cuts off an unfinished one, and sees that what is there ends where a
  // record ends. Bytes to be written in front of the new record are given out.
  virtual bool findEnd(Routine& routine, File& file, std::string_view* before) noexcept = 0;

  // --- repair ---

  // Moves a file that stands before damage to where records are found again, or to its end. False
  // after a read error.
  virtual bool skipDamage(File&, const RecordForm*) const noexcept { return false; }
  // Whether a frame is what the engine itself would write.
  virtual bool isSound(const Frame&) const noexcept { return true; }

 protected:
  struct NeededHook {
    bool filled;
    Code missing;
  };
  Code requireHooks(std::initializer_list<NeededHook> needed) const noexcept;

  ~RecordStore() = default;

 private:
  HandleAccess handle_;
};

}  // namespace genreg
