// The text engine: records framed by lines, and turned into memory and back by the handle's hooks.
#pragma once

#include <cstdint>
#include <string_view>

#include "genreg/core/record_store.h"
#include "genreg_text.h"

namespace genreg {

class TextStore final : public RecordStore {
 public:
  explicit TextStore(GenRegFile& handle) noexcept;

  Code checkHooks() const noexcept override;

  Code next(File& file, Frame& frame) const noexcept override;
  bool takePlain(File& file, Frame& frame) const noexcept override;
  std::size_t wholeFrames(const File& file, std::size_t count) const noexcept override;
  std::string_view run(const File& file, const RecordForm* form, std::uint64_t mask,
                       const void* key, bool alsoMatching) const noexcept override;

  // A line that does not parse is logged; an update keeps it.
  bool unpack(Routine& routine, const Frame& frame, Slot& slot, std::uint64_t size,
              unsigned int point) noexcept override;
  void copyOut(const Slot& slot, std::uint64_t size, void* out) noexcept override;
  bool isRecord(const Slot& slot, void* record) const noexcept override {
    return handle().compareHook()(GENREG_ALL_FIELDS, slot.record.data(), record) != 0;
  }

  // The line of the record, with its newline; the hook may read the replaced line as a template.
  std::string_view pack(Routine& routine, const void* record, const Frame* replaced, Slot& slot,
                        std::uint64_t size, Code failed) noexcept override;
  std::string_view storedOf(std::string_view frame) const noexcept override {
    return frame.substr(0, frame.empty() || frame.back() != '\n' ? frame.size() : frame.size() - 1);
  }
  std::string_view unfinishedMark(std::string_view) noexcept override { return {"\0", 1}; }
  bool write(Routine& routine, File& to, std::string_view frames, Code failed,
             unsigned int point) const noexcept override;
  bool mayKeep(Routine& routine, const Frame& frame, std::uint64_t operation,
               std::string_view* gained) const noexcept override;
  void describeLast(Frame& frame) const noexcept override;
  bool canKeepRuns() const noexcept override { return true; }
  bool isKept(const Frame& before, const Frame& after) const noexcept override;
  bool mayTouch(Routine& routine, const Frame& frame) const noexcept override;
  bool gapBehind(Routine& routine, std::string_view last,
                 std::string_view* gap) const noexcept override;
  bool findEnd(Routine& routine, File& file, std::string_view* before) noexcept override;

  bool isSound(const Frame& frame) const noexcept override;

 private:
  bool endsInReturn(const Frame* replaced) const noexcept;
  bool joins() const noexcept { return has(GENREG_JOIN_CONTINUED_LINES); }

  char text_[GENREG_LINE_SIZE];    // of the line that was unpacked last
  char packed_[GENREG_LINE_SIZE];  // of the record that was packed last
};

}  // namespace genreg
