#include "genreg/binary_store.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "genreg/record_span.h"

namespace genreg {
namespace {

constexpr StoreKind binaryKind{
    Function::binAdd,        Function::binChange,       Function::binDelete,
    Function::binGet,        Function::binGetNext,      Function::binCheckHooks,
    Function::binReadRecord, Function::binVerifyUpdate, false};

constexpr bool isLength(std::uint64_t length) {
  return length >= smallestRecord && length <= largestRecord;
}

// A packed record stands here in its memory: behind room for its length field, aligned as a record.
constexpr std::size_t recordPlace = 16;

// Packing may make a record longer: every field carries a length, and fields that the library does
// not know come from the replaced record.
std::uint64_t packingRoom(std::uint64_t size, const Frame* replaced) {
  constexpr std::uint64_t headerRoom = 256;
  const std::uint64_t room =
      2 * size + headerRoom + (replaced == nullptr ? 0 : replaced->stored.size());
  return (room + recordPlace - 1) / recordPlace * recordPlace;  // aligned, too, for what follows
}

}  // namespace

BinaryStore::BinaryStore(GenRegFile& handle) noexcept : RecordStore(handle, binaryKind) {}

Code BinaryStore::checkHooks() const noexcept {
  const HandleAccess& hooks = handle();
  return requireHooks(
      {{hooks.validateHook() != nullptr, GENREG_RC_NO_VALIDATE_HOOK},
       {hooks.sizeHook() != nullptr, GENREG_RC_NO_SIZE_HOOK},
       {!isPacked() || hooks.packHook().binary != nullptr, GENREG_RC_NO_PACK_HOOK_PACKED},
       {!isPacked() || hooks.unpackHook().binary != nullptr, GENREG_RC_NO_UNPACK_HOOK_PACKED}});
}

// The length field in the handle's byte order. The reversed order is a routine of its own in the
// trace, since a registry read with the wrong one looks damaged.
std::uint32_t BinaryStore::readLength(const char* field) const noexcept {
  if (!isBigEndian()) return decodeLength(field, false);
  const Routine routine(Function::decodeLength);
  return decodeLength(field, true);
}

// A whole frame in the window is all there is to most reads.
Code BinaryStore::next(File& file, Frame& frame) const noexcept {
  return takePlain(file, frame) ? GENREG_RC_OK : readNext(file, frame);
}

bool BinaryStore::takePlain(File& file, Frame& frame) const noexcept {
  if (file.windowSize() <= lengthWidth || tracingOn()) return false;
  const std::size_t length = decodeLength(file.window(), isBigEndian());
  if (!isLength(length) || length > file.windowSize() - lengthWidth) return false;
  take(file, length, frame);
  return true;
}

void BinaryStore::take(File& file, std::size_t length, Frame& frame) noexcept {
  frame.bytes = {file.window(), lengthWidth + length};
  frame.stored = {file.window() + lengthWidth, length};
  frame.offset = file.offset();
  file.skip(lengthWidth + length);
}

Code BinaryStore::readNext(File& file, Frame& frame) const noexcept {
  Routine routine(Function::binReadRecord);
  const std::uint64_t start = file.offset();
  if (!file.learnSize() || !file.more(lengthWidth)) {
    const std::int32_t error = file.error();
    return routine.refuse(GENREG_RC_READ_LENGTH_FAILED, 10, text(session().registryPath()),
                          number(error));
  }
  if (file.windowSize() == 0) {
    (void)routine.end(GENREG_RC_END);
    return GENREG_RC_END;
  }
  const std::uint64_t left = file.size() - std::min(file.size(), start + lengthWidth);
  const bool torn = file.windowSize() < lengthWidth;
  const std::uint32_t length = torn ? 0 : readLength(file.window());
  if (!torn && marksUnfinished(length, left, smallestRecord, largestRecord)) {
    (void)routine.end(GENREG_RC_END);
    return GENREG_RC_END;
  }
  if (torn || !isLength(length) || length > left) {
    const std::uint64_t behindLength = start + lengthWidth;
    const std::uint64_t size = file.size();
    return routine.refuse(GENREG_RC_RECORD_PAST_EOF, 20, number(behindLength), number(length),
                          number(size), text(session().registryPath()));
  }
  const std::size_t whole = lengthWidth + length;
  if (!file.more(whole) || file.windowSize() < whole) {
    const std::int32_t error = file.error();
    return routine.refuse(error == ENOMEM ? GENREG_RC_WORK_ALLOC : GENREG_RC_READ_RECORD_FAILED, 30,
                          text(session().registryPath()), number(error));
  }
  take(file, length, frame);
  return GENREG_RC_OK;
}

// Walks whole frames in memory as long as `pass` is true of a record; returns the bytes passed.
template <typename Pass>
std::size_t BinaryStore::walk(const char* bytes, std::size_t count, Pass pass) const noexcept {
  const bool bigEndian = isBigEndian();
  std::size_t at = 0;
  while (count - at > lengthWidth) {
    const std::size_t length = decodeLength(bytes + at, bigEndian);
    if (length < smallestRecord || length > count - at - lengthWidth) break;
    if (!pass(bytes + at + lengthWidth, length)) break;
    at += lengthWidth + length;
  }
  return at;
}

std::size_t BinaryStore::wholeFrames(const File& file, std::size_t count) const noexcept {
  return walk(file.window(), count, [](const char*, std::size_t) { return true; });
}

std::string_view BinaryStore::run(const File& file, const RecordForm* form, std::uint64_t mask,
                                  const void* key, bool alsoMatching) const noexcept {
  const auto stays = [&](const char* stored, std::size_t length) {
    const Match match = form->match(mask, stored, length, key);
    return match == Match::Differs || (match == Match::Matches && alsoMatching);
  };
  if (form == nullptr) return std::string_view();
  return {file.window(), walk(file.window(), file.windowSize(), stays)};
}

// The hook works in a copy that is large enough, in which it does not find what an earlier record
// left. A record shorter than nominal is filled up with zeros, a longer one is whole.
bool BinaryStore::unpack(Routine& routine, const Frame& frame, Slot& slot, std::uint64_t size,
                         unsigned int point) noexcept {
  if (isPacked() && handle().unpackHook().binary == nullptr) {
    return routine.fail(GENREG_RC_NO_UNPACK_HOOK_PACKED, point);
  }
  const std::uint64_t length = frame.stored.size();
  if (const Code code = slot.record.reserve(std::max(length, size)); code != 0) {
    return routine.failFrom(probeMemAlloc, code, GENREG_RC_BUFFER_ALLOC, point + 1);
  }
  std::memcpy(slot.record.bytes(), frame.stored.data(), length);
  if (length < size) std::memset(slot.record.bytes() + length, 0, size - length);
  if (!isPacked()) return true;
  void* buffer = slot.record.data();
  const RecordSpanScope scope({buffer, length, slot.record.capacity()});
  const Code code = handle().unpackHook().binary(&buffer);
  return code == 0 || routine.fail(GENREG_RC_UNPACK_FAILED, point + 2, number(code),
                                   number(frame.offset), text(session().registryPath()));
}

void BinaryStore::copyOut(const Slot& slot, std::uint64_t size, void* out) noexcept {
  std::memcpy(out, slot.record.data(), size);
}

Code BinaryStore::lengthHookMissing() const noexcept {
  if (isPacked()) {
    return handle().packedLengthHook() == nullptr ? GENREG_RC_NO_PACKED_LENGTH_HOOK : GENREG_RC_OK;
  }
  return handle().lengthHook() == nullptr ? GENREG_RC_NO_LENGTH_HOOK : GENREG_RC_OK;
}

// Packing works in a copy that is large enough: the hook replaces what it packs, and the caller's
// record must still be one when the verification pass compares it, and afterwards. The record
// stands behind room for its length field.
bool BinaryStore::packInto(Routine& routine, const void* record, const Frame* replaced, Slot& slot,
                           std::uint64_t size) noexcept {
  if (isPacked() && handle().packHook().binary == nullptr) {
    return routine.fail(GENREG_RC_NO_PACK_HOOK_PACKED, 90);
  }
  const std::uint64_t room = isPacked() ? packingRoom(size, replaced) : size;
  const std::uint64_t previousSize = replaced == nullptr ? 0 : replaced->stored.size();
  if (const Code code = slot.packed.reserve(recordPlace + room + previousSize); code != 0) {
    return routine.failFrom(probeMemAlloc, code, GENREG_RC_BUFFER_ALLOC, 91);
  }
  unsigned char* const bytes = slot.packed.bytes() + recordPlace;
  std::memcpy(bytes, record, size);
  if (!isPacked()) return true;
  std::memset(bytes + size, 0, room - size);
  void* buffer = bytes;
  void* previous = nullptr;
  if (replaced != nullptr) {
    previous = bytes + room;
    std::memcpy(previous, replaced->stored.data(), previousSize);
  }
  const RecordSpanScope scope({buffer, 0, room}, {previous, previousSize, previousSize});
  const Code code = handle().packHook().binary(&buffer, previous);
  return code == 0 || routine.fail(GENREG_RC_PACK_FAILED, 92, number(code));
}

std::string_view BinaryStore::pack(Routine& routine, const void* record, const Frame* replaced,
                                   Slot& slot, std::uint64_t size, Code failed) noexcept {
  if (!packInto(routine, record, replaced, slot, size)) return {};
  auto* const bytes = reinterpret_cast<char*>(slot.packed.bytes()) + recordPlace - lengthWidth;
  const std::uint64_t available = isPacked() ? packingRoom(size, replaced) : size;
  const GenRegLengthHook lengthOf =
      isPacked() ? handle().packedLengthHook() : handle().lengthHook();
  std::uint64_t length = 0;
  if (lengthOf != nullptr) (void)lengthOf(bytes + lengthWidth, &length);
  length = static_cast<std::uint32_t>(length);

  Routine writing(Function::binWriteRecord);
  if (const Code missing = lengthHookMissing(); missing != 0) {
    (void)writing.fail(missing, 10);
  } else if (length < smallestRecord) {
    (void)writing.fail(GENREG_RC_RECORD_TOO_SMALL, 20, number(length));
  } else if (length > largestRecord || length > available) {
    // A flavour's length must not reach past what there is to write, either.
    (void)writing.fail(GENREG_RC_RECORD_TOO_LARGE, 30, number(length));
  }
  if (!writing.ok()) {
    (void)routine.failFrom(Function::binWriteRecord, writing.code(), failed, 95);
    return {};
  }
  encodeLength(static_cast<std::uint32_t>(length), isBigEndian(), bytes);
  if (isBigEndian()) const Routine encoding(Function::encodeLength);
  return {bytes, lengthWidth + static_cast<std::size_t>(length)};
}

std::string_view BinaryStore::unfinishedMark(std::string_view frame) noexcept {
  encodeLength(unfinishedBase + decodeLength(frame.data(), isBigEndian()), isBigEndian(), mark_);
  return {mark_, lengthWidth};
}

bool BinaryStore::write(Routine& routine, File& to, std::string_view frames, Code failed,
                        unsigned int point) const noexcept {
  Routine writing(Function::binWriteRecord);
  return writeFrames(writing, to, frames) ||
         routine.failFrom(Function::binWriteRecord, writing.code(), failed, point);
}

// The first length field alone, so that a failure says which part of a record it was for.
bool BinaryStore::writeFrames(Routine& writing, File& to, std::string_view frames) const noexcept {
  const bool length = to.append(frames.data(), lengthWidth);
  if (length && to.append(frames.data() + lengthWidth, frames.size() - lengthWidth)) return true;
  const std::int32_t error = to.error();
  return length ? writing.fail(GENREG_RC_WRITE_RECORD_FAILED, 50, number(error))
                : writing.fail(GENREG_RC_WRITE_LENGTH_FAILED, 40, number(error));
}

bool BinaryStore::canKeepRuns() const noexcept {
  return lengthHookMissing() == GENREG_RC_OK &&
         !(isPacked() && handle().packHook().binary == nullptr);
}

bool BinaryStore::mayKeep(Routine& routine, const Frame&, std::uint64_t,
                          std::string_view*) const noexcept {
  if (isPacked() && handle().packHook().binary == nullptr) {
    return routine.fail(GENREG_RC_NO_PACK_HOOK_PACKED, 106);
  }
  const Code missing = lengthHookMissing();
  if (missing == 0) return true;
  const Code code = Routine(Function::binWriteRecord).refuse(missing, 10);
  return routine.failFrom(Function::binWriteRecord, code, GENREG_RC_COPY_FAILED, 108);
}

// A record behind damage would never be found again, so a file that does not end in a whole record
// is not appended to. Cutting the tail off instead could drop committed records when a length in
// the middle is what is damaged; only what an append left unfinished is known to be none.
bool BinaryStore::findEnd(Routine& routine, File& file, std::string_view*) noexcept {
  Frame frame;
  Code code = 0;
  while (code == 0) {
    file.skip(wholeFrames(file, file.windowSize()));
    code = next(file, frame);
  }
  if (code != GENREG_RC_END) {
    return routine.failFrom(kind.readRecord, code, GENREG_RC_READ_FAILED, 96);
  }
  if (file.offset() == file.size()) return true;
  const int error = file.cutTo(file.offset());
  return error == 0 ||
         routine.failSystem(error, GENREG_RC_WRITE_NEW_FAILED, 97, session().registryPath());
}

// Records are found again where two that the flavour can make stand in a row, or one ends the file.
bool BinaryStore::skipDamage(File& file, const RecordForm* form) const noexcept {
  const auto left = static_cast<std::size_t>(file.size() - std::min(file.size(), file.offset()));
  if (file.error() != 0 || !file.more(left)) return false;
  const char* const bytes = file.window();
  const std::size_t count = file.windowSize();
  RecordBuffer scratch;
  const bool canTell = form != nullptr && scratch.reserve(form->recordSize) == 0;
  for (std::size_t at = 1; canTell && at < count; ++at) {
    unsigned int found = 0;
    const std::size_t passed =
        walk(bytes + at, count - at, [&](const char* stored, std::size_t length) {
          return found < 2 && form->fill(stored, length, scratch.data()) && ++found > 0;
        });
    if (found == 2 || (found == 1 && at + passed == count)) {
      file.skip(at);
      return true;
    }
  }
  file.skip(count);
  return true;
}

}  // namespace genreg
