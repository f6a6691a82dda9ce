// The library's own face of a registry handle: what its private part is to engines and flavours.
#pragma once

#include <cstdint>

#include "genreg/core/session.h"
#include "genreg/record_form.h"
#include "genreg_handle.h"

namespace genreg {

class HandleAccess {
 public:
  explicit HandleAccess(GenRegFile& handle) noexcept : handle_(handle) {}

  // --- flavours ---

  // What the constructor of a flavour named by a path does: checks the path, installs the flavour
  // unless it is null, names the files. Returns, and stores at `rc` unless that is null, 0 or the
  // constructor's code; without a usable path nothing is installed.
  static Code setUp(GenRegFile& handle, Routine& routine, const char* path, const RecordForm* form,
                    unsigned int* rc) noexcept;
  static void install(GenRegFile& handle, const RecordForm& form) noexcept;
  // The form whose hooks are taken for the flavour's own; a caller may exchange both.
  const RecordForm* installed() const noexcept { return handle_.form; }
  void exchange(const RecordForm& form) const noexcept { handle_.form = &form; }
  // Checks a path and names the files: 0, GENREG_RC_NO_ARGUMENT for null or empty,
  // GENREG_RC_PATH_TOO_LONG, OSS_RC_NO_MEMORY, GENREG_RC_BASE_NAME or GENREG_RC_DIRECTORY_NAME (no
  // name is set then).
  static Code nameFiles(GenRegFile& handle, Routine& routine, const char* path) noexcept;
  static Code checkPath(const char* path) noexcept;

  // --- engines ---

  // The handle's session; null when there was no memory for it.
  Session* session() const noexcept { return handle_.session; }
  GenRegFile& handle() const noexcept { return handle_; }
  // Session::open, also without a session.
  Code open(std::uint64_t kind) const noexcept {
    return handle_.session == nullptr ? GENREG_RC_OPEN_FAILED : handle_.session->open(kind);
  }
  Code lock(std::uint64_t request) const noexcept {
    return handle_.session == nullptr ? GENREG_RC_NOT_READY : handle_.session->lock(request);
  }

  std::uint64_t features() const noexcept { return handle_.features; }
  bool has(std::uint64_t feature) const noexcept { return (handle_.features & feature) != 0; }
  bool hasStatus(std::uint64_t bits) const noexcept { return (handle_.status & bits) != 0; }
  // Of those bits, the ones that are set are these.
  bool isExactly(std::uint64_t bits, std::uint64_t set) const noexcept {
    return (handle_.status & bits) == set;
  }
  void setStatus(std::uint64_t bits) const noexcept { handle_.status |= bits; }
  void endScan() const noexcept {
    handle_.status &= ~(GENREG_STATUS_SCAN_OPEN | GENREG_STATUS_SCAN_END);
  }
  void beginUpdate() const noexcept { handle_.committed = false; }
  bool isBinary() const noexcept { return handle_.engineKind == GENREG_ENGINE_BINARY; }

  GenRegCompareHook compareHook() const noexcept { return handle_.CompareRecord; }
  GenRegValidateHook validateHook() const noexcept { return handle_.ValidateKey; }
  GenRegSizeHook sizeHook() const noexcept { return handle_.GetRecordSize; }
  GenRegLengthHook lengthHook() const noexcept { return handle_.GetRecordLength; }
  GenRegLengthHook packedLengthHook() const noexcept { return handle_.GetPackedLength; }
  // Null, too, for the flavour's own one that does nothing.
  GenRegNotifyHook notifyHook() const noexcept {
    const bool idle = handle_.form != nullptr && handle_.NotifyChange == handle_.form->notifyChange;
    return idle ? nullptr : handle_.NotifyChange;
  }
  GenRegPostUpdateHook postUpdateHook() const noexcept { return handle_.PostUpdate; }
  const GenRegPackHook& packHook() const noexcept { return handle_.PackRecord; }
  const GenRegUnpackHook& unpackHook() const noexcept { return handle_.UnpackRecord; }

  // What the flavour knows of stored records, where nobody but the flavour itself would see a
  // difference and no trace is being kept of the hooks. Else null.
  const RecordForm* form() const noexcept {
    const RecordForm* form = handle_.form;
    if (form == nullptr || tracingOn()) return nullptr;
    const bool own = handle_.CompareRecord == form->compareRecord &&
                     handle_.UnpackRecord.binary == form->unpackRecord.binary &&
                     handle_.UnpackRecord.text == form->unpackRecord.text;
    return own ? form : nullptr;
  }

  static const GenRegSessionRoutines sessionRoutines;

 private:
  GenRegFile& handle_;
};

// While it lives, an operation runs whose failure the handle will be able to explain. One operation
// within another, as of a hook, leaves the outer one without.
class Operation {
 public:
  explicit Operation(GenRegFile& handle) noexcept {
    Session* const session = HandleAccess(handle).session();
    Cause::active = cause_ = session == nullptr ? nullptr : &session->cause();
    if (cause_ != nullptr) cause_->clear();
  }
  ~Operation() { Cause::active = nullptr; }
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  // The operation's result, which is given back.
  Code end(Code code) const noexcept {
    if (code != 0 && code != GENREG_RC_END && cause_ != nullptr) cause_->explain(code);
    return code;
  }

 private:
  Cause* cause_;
};

}  // namespace genreg
