// What both engines do alike: they ask a handle's hooks, check what every operation needs, search
// on the handle's own stream or an open scan's, and tell the hooks of an update.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "genreg/core/diagnostics.h"
#include "genreg/core/registry_handle.h"
#include "genreg/stored_form.h"

namespace genreg {

constexpr std::uint64_t smallestRecord = 3;          // bytes, in memory and in the file
constexpr std::uint64_t largestRecord = 0x100000;    // bytes, in memory and in the file
constexpr std::uint64_t smallestReturnedRecord = 8;  // bytes; smaller ones are stored only

// A hook that an operation cannot do without, and the code that says it is missing.
struct NeededHook {
  bool filled;
  unsigned int missing;
};

class Engine {
 public:
  explicit Engine(GenRegFile& handle) noexcept : file_(handle) {}

  GenRegFile& file() const noexcept { return file_; }
  bool has(std::uint64_t feature) const noexcept { return (file_.features & feature) != 0; }
  bool inScan() const noexcept { return (file_.status & GENREG_STATUS_SCAN_OPEN) != 0; }

  // --- checks before an operation ---

  bool canValidate() const noexcept { return file_.ValidateKey != nullptr; }
  bool canSize() const noexcept { return file_.GetRecordSize != nullptr; }
  bool canCompare() const noexcept { return file_.CompareRecord != nullptr; }

  // The first missing hook's code, or 0; a routine of its own in the log.
  unsigned int checkHooks(Function function,
                          std::initializer_list<NeededHook> needed) const noexcept;
  // ValidateKey is there and accepts.
  unsigned int validate(const Routine& routine, std::uint64_t mask,
                        void* keyOrRecord) const noexcept;
  // The size of a record in memory, within its limits.
  unsigned int recordSize(const Routine& routine, std::uint64_t* size) const noexcept;

  // The flavour's stored form where it tells all about records: nobody but the flavour itself would
  // see a difference, and no trace is being kept of the hooks. Else null.
  const StoredForm* storedForm(const void* key) const noexcept;

  bool matches(std::uint64_t mask, void* record, void* key) const noexcept {
    return file_.CompareRecord(mask, record, key) == 1;
  }
  // For the verification pass, which takes any answer but 0 for equal.
  bool equals(void* left, void* right) const noexcept {
    return file_.CompareRecord(GENREG_ALL_FIELDS, left, right) != 0;
  }

  // --- the stream of a Get ---

  // Opens the registry file, or borrows the scan's stream when a scan is open and
  // GENREG_GET_IN_SCAN says so; the stream then stands before the first record. Returns 0,
  // `missingFile` when there is no registry file, or GENREG_RC_OPEN_FOR_OPERATION.
  unsigned int beginSearch(const Routine& routine, unsigned int missingFile,
                           unsigned int severity) noexcept;
  // Closes the file, or puts the scan back where it was. Returns 0,
  // GENREG_RC_CLOSE_AFTER_OPERATION or GENREG_RC_SETPOS_FAILED.
  unsigned int endSearch(const Routine& routine) noexcept;

  // --- after an operation ---

  // NotifyChange (only with `notifies`) and PostUpdate after an update that succeeded.
  unsigned int tellHooks(const Routine& routine, bool notifies, std::uint64_t kind,
                         void* recordOrKey, void* newRecord) const noexcept;

 protected:
  ~Engine() = default;

 private:
  GenRegFile& file_;
  bool borrowsScan_ = false;
  std::int64_t scanPosition_ = 0;
};

}  // namespace genreg
