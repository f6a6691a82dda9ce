// The binary engine: records framed by their length. The handle's hooks know everything about a
// record's contents.
#pragma once

#include <cstdint>
#include <string_view>

#include "genreg/core/record_store.h"
#include "genreg/framing.h"

namespace genreg {

class BinaryStore final : public RecordStore {
 public:
  explicit BinaryStore(GenRegFile& handle) noexcept;

  Code checkHooks() const noexcept override;

  // Every byte from disk that says how long something is passes one of the next two and is checked
  // there: GENREG_RC_RECORD_PAST_EOF for any damage, a length outside its limits or past the end,
  // or a torn length.
  Code next(File& file, Frame& frame) const noexcept override;
  bool takePlain(File& file, Frame& frame) const noexcept override;
  std::size_t wholeFrames(const File& file, std::size_t count) const noexcept override;
  std::string_view run(const File& file, const RecordForm* form, std::uint64_t mask,
                       const void* key, bool alsoMatching) const noexcept override;

  bool unpack(Routine& routine, const Frame& frame, Slot& slot, std::uint64_t size,
              unsigned int point) noexcept override;
  void copyOut(const Slot& slot, std::uint64_t size, void* out) noexcept override;
  bool isRecord(const Slot& slot, void* record) const noexcept override {
    return matches(GENREG_ALL_FIELDS, slot, record);
  }

  std::string_view pack(Routine& routine, const void* record, const Frame* replaced, Slot& slot,
                        std::uint64_t size, Code failed) noexcept override;
  std::string_view storedOf(std::string_view frame) const noexcept override {
    return frame.substr(lengthWidth);
  }
  std::string_view unfinishedMark(std::string_view frame) noexcept override;
  bool write(Routine& routine, File& to, std::string_view frames, Code failed,
             unsigned int point) const noexcept override;
  bool mayKeep(Routine& routine, const Frame& frame, std::uint64_t operation,
               std::string_view* gained) const noexcept override;
  bool canKeepRuns() const noexcept override;
  bool isKept(const Frame& before, const Frame& after) const noexcept override {
    return before.bytes == after.bytes;
  }
  bool findEnd(Routine& routine, File& file, std::string_view* before) noexcept override;

  bool skipDamage(File& file, const RecordForm* form) const noexcept override;

 private:
  bool isBigEndian() const noexcept { return has(GENREG_BIG_ENDIAN_LENGTH); }
  bool isPacked() const noexcept { return has(GENREG_PACKED_RECORDS); }
  std::uint32_t readLength(const char* field) const noexcept;
  Code readNext(File& file, Frame& frame) const noexcept;
  static void take(File& file, std::size_t length, Frame& frame) noexcept;
  template <typename Pass>
  std::size_t walk(const char* bytes, std::size_t count, Pass pass) const noexcept;
  Code lengthHookMissing() const noexcept;
  bool writeFrames(Routine& writing, File& to, std::string_view frames) const noexcept;
  bool packInto(Routine& routine, const void* record, const Frame* replaced, Slot& slot,
                std::uint64_t size) noexcept;

  char mark_[lengthWidth];
};

}  // namespace genreg
