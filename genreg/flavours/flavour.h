// The hooks of a flavour, made of functions on its own record type: what each hook does besides,
// the trace and the look at null pointers, stands here once.
//
// Traits of a flavour:
//   using Record = ...;
//   static constexpr FlavourNames names{...};
//   static bool validate(Routine&, mask, Record& keyOrRecord);  // false: refused, logged from 20
//   static bool matches(mask, const Record& record, const Record& key);
// and for lines, beside match, hash and the mask `identity`, which are those of the record's form:
//   static void unpack(Routine&, Record&, const char* line);    // a failure is the routine's
//   static unsigned int write(LineWriter&, const Record&, const char* replaced);
//   static constexpr unsigned int tooLong;                      // the code of a line that does not
//   fit static bool fill(std::string_view line, Record&);
#pragma once

#include <cstdint>
#include <string_view>

#include "genreg/core/diagnostics.h"
#include "genreg/core/handle.h"
#include "genreg/flavours/line_writer.h"

namespace genreg {

// How the hooks are called in the log.
struct FlavourNames {
  Function validateKey, compareRecord, getRecordSize, getRecordLength;
  Function unpackRecord{}, packRecord{};  // of lines
};

template <typename Traits>
struct FlavourHook {
  using Record = typename Traits::Record;

  static unsigned int validateKey(std::uint64_t mask, void* keyOrRecord) {
    Routine routine(Traits::names.validateKey);
    if (keyOrRecord == nullptr) return routine.refuse(GENREG_RC_NO_ARGUMENT, 10);
    (void)Traits::validate(routine, mask, *static_cast<Record*>(keyOrRecord));
    return routine.code();
  }

  static unsigned int compareRecord(std::uint64_t mask, void* record, void* key) {
    Routine routine(Traits::names.compareRecord);
    if (record == nullptr || key == nullptr) {
      (void)routine.fail(GENREG_RC_NO_ARGUMENT, record == nullptr ? 10 : 20);
      return routine.answer(0);
    }
    const bool matches = Traits::matches(mask, *static_cast<const Record*>(record),
                                         *static_cast<const Record*>(key));
    return routine.answer(matches ? 1 : 0);
  }

  static unsigned int getRecordSize(std::uint64_t* size) {
    const Routine routine(Traits::names.getRecordSize);
    *size = sizeof(Record);
    return GENREG_RC_OK;
  }

  static unsigned int getRecordLength(const void*, std::uint64_t* length) {
    const Routine routine(Traits::names.getRecordLength);
    *length = sizeof(Record);
    return GENREG_RC_OK;
  }
};

// The hooks of a flavour of lines.
template <typename Traits>
struct LineFlavourHook : FlavourHook<Traits> {
  using Record = typename Traits::Record;

  static unsigned int unpackRecord(void* record, char* line) {
    Routine routine(Traits::names.unpackRecord);
    if (record == nullptr) return routine.refuse(GENREG_RC_NO_ARGUMENT, 10);
    Traits::unpack(routine, *static_cast<Record*>(record), line);
    return routine.code();
  }

  static unsigned int packRecord(void* record, char* text) {
    Routine routine(Traits::names.packRecord);
    if (record == nullptr) return routine.refuse(GENREG_RC_NO_ARGUMENT, 5);
    LineWriter out;
    const unsigned int code = Traits::write(out, *static_cast<const Record*>(record), text);
    if (code != 0) return routine.refuse(code, 10);
    const unsigned int failed = out.finish(text, Traits::tooLong);
    return failed == 0 ? GENREG_RC_OK : routine.refuse(failed, 20);
  }

  static bool fill(const char* stored, std::size_t length, void* record) noexcept {
    std::string_view line(stored, length);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return Traits::fill(line, *static_cast<Record*>(record));
  }

  static std::uint64_t identityOf(const void*) noexcept { return Traits::identity; }

  static RecordForm form(GenRegPrintHook print) noexcept {
    using Base = FlavourHook<Traits>;
    return {Base::compareRecord,
            Base::validateKey,
            print,
            nullptr,
            unpackRecord,
            packRecord,
            Base::getRecordSize,
            Base::getRecordLength,
            nullptr,
            sizeof(Record),
            Traits::match,
            fill,
            Traits::hash,
            identityOf,
            nullptr,
            Traits::match};
  }
};

}  // namespace genreg
