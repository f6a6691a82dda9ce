// Reading and writing single records of a binary registry file. Every byte from disk that says how
// long something is passes readRecord and is checked there before anything is allocated.
#include <cstring>

#include "genreg/binary_store.h"
#include "genreg/core/registry_handle.h"
#include "genreg/record_span.h"

using genreg::Function;
using genreg::Routine;

namespace {

// The length field in the handle's byte order. The reversed order is a routine of its own in the
// trace, since a registry read with the wrong one looks damaged.
std::uint32_t readLength(const unsigned char (&field)[genreg::lengthWidth], bool bigEndian) {
  const auto* bytes = reinterpret_cast<const char*>(field);
  if (!bigEndian) return genreg::decodeLength(bytes, false);
  Routine routine(Function::decodeLength);
  return genreg::decodeLength(bytes, true);
}

void writeLength(std::uint32_t length, bool bigEndian,
                 unsigned char (&field)[genreg::lengthWidth]) {
  if (!bigEndian) return genreg::encodeLength(length, false, field);
  Routine routine(Function::encodeLength);
  genreg::encodeLength(length, true, field);
}

constexpr std::uint64_t afterLength(const RecordCursor& cursor) {
  return cursor.offset + genreg::lengthWidth;
}

// Packing may make a record longer: every field carries a length, and fields that the library does
// not know come from the replaced record.
std::uint64_t packingRoom(std::uint64_t size, const LoadedRecord* replaced) {
  constexpr std::uint64_t headerRoom = 256;
  return 2 * size + headerRoom + (replaced == nullptr ? 0 : replaced->length);
}

}  // namespace

unsigned int BinaryStore::checkHooks() const noexcept {
  const bool packed = has(GENREG_PACKED_RECORDS);
  return Engine::checkHooks(
      Function::binCheckHooks,
      {{canValidate(), GENREG_RC_NO_VALIDATE_HOOK},
       {canSize(), GENREG_RC_NO_SIZE_HOOK},
       {!packed || handle_.GenRegFile::PackRecord.binary != nullptr, GENREG_RC_NO_PACK_HOOK_PACKED},
       {!packed || handle_.GenRegFile::UnpackRecord.binary != nullptr,
        GENREG_RC_NO_UNPACK_HOOK_PACKED}});
}

unsigned int BinaryStore::allocate(const Routine& routine, LoadedRecord& record, std::uint64_t size,
                                   unsigned int failed) const noexcept {
  unsigned int code = record.stored.reserve(size);
  if (code == 0 && has(GENREG_PACKED_RECORDS)) code = record.unpacked.reserve(size);
  return code == 0 ? GENREG_RC_OK : routine.failFrom(genreg::probeMemAlloc, code, failed, 60);
}

RecordCursor BinaryStore::mainCursor() const noexcept {
  const std::int64_t offset = RegistryHandle::mainPosition(handle_);
  return {handle_.mainStream, offset < 0 ? 0 : static_cast<std::uint64_t>(offset),
          RegistryHandle::mainSize(handle_)};
}

RecordCursor BinaryStore::secondCursor() const noexcept {
  return {handle_.secondStream, 0, RegistryHandle::secondSize(handle_)};
}

// A length that cannot be true: outside its limits, or past the end of the file.
bool BinaryStore::isDamaged(const RecordCursor& cursor, std::uint64_t length) const noexcept {
  return length < genreg::smallestRecord || length > genreg::largestRecord ||
         afterLength(cursor) + length > cursor.size;
}

unsigned int BinaryStore::readRecord(RecordCursor& cursor, LoadedRecord& record,
                                     std::uint64_t size) const noexcept {
  Routine routine(Function::binReadRecord);
  unsigned char field[genreg::lengthWidth] = {};
  record.frame = nullptr;
  std::size_t buffered = 0;
  const char* bytes = platform::peekStream(cursor.stream, &buffered);
  std::size_t got = 0;
  if (buffered >= sizeof field) {
    std::memcpy(field, bytes, sizeof field);
    got = sizeof field;
  } else {
    if (buffered > 0) got = platform::readStream(cursor.stream, field, sizeof field);
    bytes = nullptr;
  }
  const std::uint32_t length = readLength(field, has(GENREG_BIG_ENDIAN_LENGTH));
  record.length = length;
  if (got < sizeof field) {
    if (const std::int32_t error = std::ferror(cursor.stream); error != 0) {
      return routine.exit(routine.fail(GENREG_RC_READ_LENGTH_FAILED, 10, genreg::number(error)));
    }
    if (got == 0) return routine.exit(GENREG_RC_END);
  }
  if (got < sizeof field || isDamaged(cursor, length)) {
    return routine.exit(routine.fail(GENREG_RC_RECORD_PAST_EOF, 20, genreg::wide(cursor.offset),
                                     genreg::number(length), genreg::wide(cursor.size)));
  }
  if (const unsigned int code = record.stored.reserve(length > size ? length : size); code != 0) {
    const bool freeing = record.stored.freeFailed();
    return routine.exit(routine.failFrom(freeing ? genreg::probeMemFree : genreg::probeMemAlloc,
                                         code, freeing ? GENREG_RC_WORK_FREE : GENREG_RC_WORK_ALLOC,
                                         freeing ? 40 : 30));
  }
  if (bytes != nullptr && buffered - sizeof field >= length) {
    // The whole frame stands in the stream's buffer, from where a kept record is written again.
    record.frame = bytes;
    std::memcpy(record.stored.bytes(), bytes + sizeof field, length);
    platform::skipStream(cursor.stream, sizeof field + length);
  } else {
    if (bytes != nullptr) platform::skipStream(cursor.stream, sizeof field);
    if (platform::readStream(cursor.stream, record.stored.bytes(), length) != length) {
      const std::int32_t error = std::ferror(cursor.stream);
      return routine.exit(routine.fail(GENREG_RC_READ_RECORD_FAILED, 50, genreg::number(error)));
    }
  }
  // A record shorter than nominal must not show what an earlier, longer one left in the buffer.
  // A packed one is unpacked elsewhere.
  if (length < size && !has(GENREG_PACKED_RECORDS)) {
    std::memset(record.stored.bytes() + length, 0, size - length);
  }
  cursor.offset = afterLength(cursor) + length;
  return routine.exit(GENREG_RC_OK);
}

unsigned int BinaryStore::unpack(const Routine& routine, LoadedRecord& record, std::uint64_t size,
                                 unsigned int point) const noexcept {
  if (!has(GENREG_PACKED_RECORDS)) return GENREG_RC_OK;
  if (handle_.GenRegFile::UnpackRecord.binary == nullptr) {
    return routine.fail(GENREG_RC_NO_UNPACK_HOOK_PACKED, point);
  }
  if (const unsigned int code =
          record.unpacked.reserve(record.length > size ? record.length : size);
      code != 0) {
    return routine.failFrom(genreg::probeMemAlloc, code, GENREG_RC_BUFFER_ALLOC, point + 1);
  }
  // Behind the stored form the hook must not find what an earlier record left there.
  std::memcpy(record.unpacked.bytes(), record.stored.bytes(), record.length);
  if (record.length < size) {
    std::memset(record.unpacked.bytes() + record.length, 0, size - record.length);
  }
  void* buffer = record.unpacked.data();
  const genreg::RecordSpanScope scope({buffer, record.length, record.unpacked.capacity()});
  if (const unsigned int code = handle_.GenRegFile::UnpackRecord.binary(&buffer); code != 0) {
    return routine.fail(GENREG_RC_UNPACK_FAILED, point + 2, genreg::number(code));
  }
  return GENREG_RC_OK;
}

unsigned int BinaryStore::read(const Routine& routine, RecordCursor& cursor, LoadedRecord& record,
                               std::uint64_t size, unsigned int readFailed,
                               unsigned int point) const noexcept {
  const unsigned int code = readRecord(cursor, record, size);
  if (code == 0 || code == GENREG_RC_END) return code;
  return routine.failFrom(Function::binReadRecord, code, readFailed, point);
}

unsigned int BinaryStore::load(const Routine& routine, RecordCursor& cursor, LoadedRecord& record,
                               std::uint64_t size, unsigned int point) const noexcept {
  const unsigned int code = read(routine, cursor, record, size, GENREG_RC_READ_FAILED, point);
  return code != 0 ? code : unpack(routine, record, size, point + 1);
}

const genreg::StoredForm* BinaryStore::storedForm(const void* key,
                                                  std::uint64_t size) const noexcept {
  const genreg::StoredForm* form = Engine::storedForm(key);
  if (form == nullptr || size != form->recordSize) return nullptr;
  return has(GENREG_PACKED_RECORDS) == (form->unpack.binary != nullptr) ? form : nullptr;
}

// The first record that matches, of those that stand in the stream's buffer and are plain, straight
// into the caller's memory. False when there is none: the stream then stands before the first
// record that takes more to be told.
bool BinaryStore::takeStored(const genreg::StoredForm& form, RecordCursor& cursor,
                             std::uint64_t mask, const void* key, void* out) const noexcept {
  bool taken = false;
  (void)passOver(cursor, [&](const char* stored, std::size_t length) {
    if (taken) return false;
    const genreg::Likeness likeness = form.liken(mask, stored, length, key);
    taken = likeness == genreg::Likeness::Matches;
    if (taken) form.take(stored, length, out);
    return likeness != genreg::Likeness::Unclear;
  });
  return taken;
}

unsigned int BinaryStore::loadAndMatch(const Routine& routine, RecordCursor& cursor,
                                       LoadedRecord& record, std::uint64_t size, std::uint64_t mask,
                                       void* key, bool* matching) const noexcept {
  constexpr unsigned int point = 70;
  if (const unsigned int code = read(routine, cursor, record, size, GENREG_RC_READ_FAILED, point);
      code != 0) {
    return code;
  }
  genreg::Likeness likeness = genreg::Likeness::Unclear;
  if (const genreg::StoredForm* form = storedForm(key, size); form != nullptr) {
    likeness = form->liken(mask, reinterpret_cast<const char*>(record.stored.bytes()),
                           static_cast<std::size_t>(record.length), key);
  }
  *matching = likeness == genreg::Likeness::Matches;
  if (likeness == genreg::Likeness::Differs) return GENREG_RC_OK;
  if (const unsigned int code = unpack(routine, record, size, point + 1); code != 0) return code;
  if (!canCompare()) return routine.fail(GENREG_RC_NO_COMPARE_HOOK, point + 10);
  if (!*matching) *matching = matches(mask, this->record(record), key);
  return GENREG_RC_OK;
}

unsigned int BinaryStore::lengthHook() const noexcept {
  if (has(GENREG_PACKED_RECORDS)) {
    return handle_.GetPackedLength == nullptr ? GENREG_RC_NO_PACKED_LENGTH_HOOK : GENREG_RC_OK;
  }
  return handle_.GetRecordLength == nullptr ? GENREG_RC_NO_LENGTH_HOOK : GENREG_RC_OK;
}

unsigned int BinaryStore::writeFrame(std::FILE* stream, const void* bytes, std::uint64_t length,
                                     std::uint64_t available) const noexcept {
  Routine routine(Function::binWriteRecord);
  if (const unsigned int missing = lengthHook(); missing != 0) {
    return routine.exit(routine.fail(missing, 10));
  }
  if (length < genreg::smallestRecord) {
    return routine.exit(routine.fail(GENREG_RC_RECORD_TOO_SMALL, 20, genreg::wide(length)));
  }
  // A flavour's length must not reach past what there is to write, either.
  if (length > genreg::largestRecord || length > available) {
    return routine.exit(routine.fail(GENREG_RC_RECORD_TOO_LARGE, 30, genreg::wide(length)));
  }
  unsigned char field[genreg::lengthWidth];
  writeLength(static_cast<std::uint32_t>(length), has(GENREG_BIG_ENDIAN_LENGTH), field);
  if (platform::writeStream(stream, field, sizeof field) != sizeof field) {
    const std::int32_t error = std::ferror(stream);
    return routine.exit(routine.fail(GENREG_RC_WRITE_LENGTH_FAILED, 40, genreg::number(error)));
  }
  if (platform::writeStream(stream, bytes, length) != length) {
    const std::int32_t error = std::ferror(stream);
    return routine.exit(routine.fail(GENREG_RC_WRITE_RECORD_FAILED, 50, genreg::number(error)));
  }
  return routine.exit(GENREG_RC_OK);
}

// Packing works in a copy that is large enough: the hook replaces what it packs, and the caller's
// record must still be one when the verification pass compares it, and afterwards.
unsigned int BinaryStore::writeNew(const Routine& routine, std::FILE* stream, const void* record,
                                   const LoadedRecord* replaced, LoadedRecord& written,
                                   std::uint64_t size, unsigned int writeFailed) const noexcept {
  const void* bytes = record;
  GenRegLengthHook lengthOf = handle_.GetRecordLength;
  if (has(GENREG_PACKED_RECORDS)) {
    if (handle_.GenRegFile::PackRecord.binary == nullptr) {
      return routine.fail(GENREG_RC_NO_PACK_HOOK_PACKED, 100);
    }
    genreg::RecordBuffer& scratch = written.stored;
    const std::uint64_t room = packingRoom(size, replaced);
    if (const unsigned int code = scratch.reserve(room); code != 0) {
      return routine.failFrom(genreg::probeMemAlloc, code, GENREG_RC_BUFFER_ALLOC, 105);
    }
    std::memset(scratch.bytes(), 0, room);
    std::memcpy(scratch.bytes(), record, size);
    void* buffer = scratch.data();
    void* previous = replaced == nullptr ? nullptr : replaced->stored.data();
    const genreg::RecordSpanScope scope(
        {buffer, 0, scratch.capacity()},
        {previous, replaced == nullptr ? 0 : replaced->length, packingRoom(0, replaced)});
    if (const unsigned int code = handle_.GenRegFile::PackRecord.binary(&buffer, previous);
        code != 0) {
      return routine.fail(GENREG_RC_PACK_FAILED, 110, genreg::number(code));
    }
    bytes = scratch.data();
    lengthOf = handle_.GetPackedLength;
  }
  std::uint64_t length = 0;
  if (lengthOf != nullptr) (void)lengthOf(bytes, &length);
  length = static_cast<std::uint32_t>(length);
  const std::uint64_t available = has(GENREG_PACKED_RECORDS) ? written.stored.capacity() : size;
  written.length = length;
  const unsigned int code = writeFrame(stream, bytes, length, available);
  return code == 0 ? GENREG_RC_OK
                   : routine.failFrom(Function::binWriteRecord, code, writeFailed, 120);
}

unsigned int BinaryStore::writeKept(const Routine& routine, std::FILE* stream,
                                    const LoadedRecord& record) const noexcept {
  if (has(GENREG_PACKED_RECORDS) && handle_.GenRegFile::PackRecord.binary == nullptr) {
    return routine.fail(GENREG_RC_NO_PACK_HOOK_PACKED, 130);
  }
  const unsigned int code = writeFrame(stream, record.stored.data(), record.length, record.length);
  return code == 0 ? GENREG_RC_OK
                   : routine.failFrom(Function::binWriteRecord, code, GENREG_RC_COPY_FAILED, 140);
}

bool BinaryStore::canWriteKept() const noexcept {
  return lengthHook() == GENREG_RC_OK &&
         !(has(GENREG_PACKED_RECORDS) && handle_.GenRegFile::PackRecord.binary == nullptr);
}

unsigned int BinaryStore::writeKept(const Routine& routine, std::FILE* stream,
                                    std::string_view frames) const noexcept {
  if (platform::writeStream(stream, frames.data(), frames.size()) == frames.size()) {
    return GENREG_RC_OK;
  }
  const std::int32_t error = std::ferror(stream);
  const unsigned int code = Routine(Function::binWriteRecord)
                                .fail(GENREG_RC_WRITE_RECORD_FAILED, 50, genreg::number(error));
  return routine.failFrom(Function::binWriteRecord, code, GENREG_RC_COPY_FAILED, 140);
}
