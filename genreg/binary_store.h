// The binary engine's inside: records read from and written to streams, and what the operations
// share. The handle's hooks tell everything about a record's contents.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "genreg/core/engine.h"
#include "genreg/core/record_buffer.h"
#include "genreg/record_framing.h"
#include "genreg_binary.h"

// Where the next record of a stream starts, counted so that no record costs a system call.
struct RecordCursor {
  std::FILE* stream;
  std::uint64_t offset;
  std::uint64_t size;  // bytes of the file
};

// One stored record as the engine holds it: its bytes as read and, with packed records, the record
// they unpack to. Without packing both are the same memory.
class LoadedRecord {
 public:
  explicit LoadedRecord(unsigned int line) noexcept
      : stored("GenRegBin", line), unpacked("GenRegBin", line) {}

  // First failure of giving both blocks back.
  unsigned int release() noexcept {
    const unsigned int first = stored.release();
    const unsigned int second = unpacked.release();
    return first != 0 ? first : second;
  }

  genreg::RecordBuffer stored;
  genreg::RecordBuffer unpacked;
  std::uint64_t length = 0;  // stored bytes
  const char* frame =
      nullptr;  // length field and bytes in the stream's buffer, if they stand there
};

class BinaryStore final : public genreg::Engine {
 public:
  explicit BinaryStore(GenRegBin& handle) noexcept : Engine(handle), handle_(handle) {}

  // The hooks that Add and the verification pass need.
  unsigned int checkHooks() const noexcept;
  // Room for one record of `size` bytes; `failed` is the operation's code when there is none.
  unsigned int allocate(const genreg::Routine& routine, LoadedRecord& record, std::uint64_t size,
                        unsigned int failed) const noexcept;

  // --- records ---

  RecordCursor mainCursor() const noexcept;
  RecordCursor secondCursor() const noexcept;

  // Reads the next record's bytes. GENREG_RC_END at the end of the file; GENREG_RC_RECORD_PAST_EOF
  // for any damage: a length outside its limits or past the end, a torn length.
  unsigned int readRecord(RecordCursor& cursor, LoadedRecord& record,
                          std::uint64_t size) const noexcept;
  // readRecord for an operation: 0, GENREG_RC_END, or `readFailed`.
  unsigned int read(const genreg::Routine& routine, RecordCursor& cursor, LoadedRecord& record,
                    std::uint64_t size, unsigned int readFailed, unsigned int point) const noexcept;
  // read, then UnpackRecord into a buffer of its own: GENREG_RC_READ_FAILED,
  // GENREG_RC_NO_UNPACK_HOOK_PACKED, GENREG_RC_UNPACK_FAILED.
  unsigned int load(const genreg::Routine& routine, RecordCursor& cursor, LoadedRecord& record,
                    std::uint64_t size, unsigned int point) const noexcept;
  unsigned int unpack(const genreg::Routine& routine, LoadedRecord& record, std::uint64_t size,
                      unsigned int point) const noexcept;
  // load, and whether the record matches the key; also GENREG_RC_NO_COMPARE_HOOK. A record that
  // does not match may be left packed.
  unsigned int loadAndMatch(const genreg::Routine& routine, RecordCursor& cursor,
                            LoadedRecord& record, std::uint64_t size, std::uint64_t mask, void* key,
                            bool* matching) const noexcept;
  // Passes over the records that stand in the stream's buffer as a whole, as long as `pass` is true
  // of one: it gets a record's bytes. Returns the passed frames, valid until the next read.
  template <typename Pass>
  std::string_view passOver(RecordCursor& cursor, Pass pass) const noexcept;
  // The flavour's stored form, for records of `size` bytes and a handle set up as the flavour's.
  const genreg::StoredForm* storedForm(const void* key, std::uint64_t size) const noexcept;
  // The record as the hooks take it.
  void* record(const LoadedRecord& loaded) const noexcept {
    return has(GENREG_PACKED_RECORDS) ? loaded.unpacked.data() : loaded.stored.data();
  }

  // Writes a caller's record, packed in `written` when records are packed; the caller's memory is
  // only read. `replaced` is the stored record it takes the place of, or null.
  // Returns `writeFailed`, GENREG_RC_NO_PACK_HOOK_PACKED or GENREG_RC_PACK_FAILED.
  unsigned int writeNew(const genreg::Routine& routine, std::FILE* stream, const void* record,
                        const LoadedRecord* replaced, LoadedRecord& written, std::uint64_t size,
                        unsigned int writeFailed) const noexcept;
  // Writes a stored record that the update keeps, byte for byte.
  unsigned int writeKept(const genreg::Routine& routine, std::FILE* stream,
                         const LoadedRecord& record) const noexcept;
  // The same for the frames of several; only with the hooks that writing one takes.
  bool canWriteKept() const noexcept;
  unsigned int writeKept(const genreg::Routine& routine, std::FILE* stream,
                         std::string_view frames) const noexcept;

  // Copies a found record out, or says why it may not be.
  unsigned int copyOut(const genreg::Routine& routine, const LoadedRecord& found,
                       std::uint64_t size, void* record) const noexcept;

  // Compares the old and the new file and commits when they differ by exactly the operation.
  unsigned int verifyUpdate(std::uint64_t kind, std::uint64_t mask, void* record,
                            void* key) noexcept;

  // The bodies of the operations.
  unsigned int get(genreg::Routine& routine, std::uint64_t mask, void* key, void* record) noexcept;
  unsigned int getNext(genreg::Routine& routine, std::uint64_t mask, void* key,
                       void* record) noexcept;

 private:
  bool takeStored(const genreg::StoredForm& form, RecordCursor& cursor, std::uint64_t mask,
                  const void* key, void* out) const noexcept;
  bool isDamaged(const RecordCursor& cursor, std::uint64_t length) const noexcept;
  unsigned int search(genreg::Routine& routine, RecordCursor& cursor, std::uint64_t mask, void* key,
                      LoadedRecord& loaded, std::uint64_t size, void* out,
                      bool* taken) const noexcept;
  unsigned int lengthHook() const noexcept;
  unsigned int writeFrame(std::FILE* stream, const void* bytes, std::uint64_t length,
                          std::uint64_t available) const noexcept;

  GenRegBin& handle_;
};

template <typename Pass>
std::string_view BinaryStore::passOver(RecordCursor& cursor, Pass pass) const noexcept {
  const bool bigEndian = has(GENREG_BIG_ENDIAN_LENGTH);
  std::size_t count = 0;
  const char* const bytes = platform::peekStream(cursor.stream, &count);
  const std::uint64_t left = cursor.size - std::min(cursor.offset, cursor.size);
  count = static_cast<std::size_t>(std::min<std::uint64_t>(count, left));
  std::size_t at = 0;
  while (count - at > genreg::lengthWidth) {
    const std::size_t length = genreg::decodeLength(bytes + at, bigEndian);
    if (length < genreg::smallestRecord || length > count - at - genreg::lengthWidth) break;
    if (!pass(bytes + at + genreg::lengthWidth, length)) break;
    at += genreg::lengthWidth + length;
  }
  platform::skipStream(cursor.stream, at);
  cursor.offset += at;
  return {bytes, at};
}
