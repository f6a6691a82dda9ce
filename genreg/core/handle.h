// The library's own face of a registry handle: what its private part is to engines and flavours.
#pragma once

#include <cstdint>

#include "genreg/core/session.h"
#include "genreg/record_form.h"
#include "genreg_handle.h"

namespace genreg {

// The hooks that a flavour brings; null where it has none.
struct FlavourHooks {
  GenRegCompareHook compareRecord;
  GenRegValidateHook validateKey;
  GenRegPrintHook printRecord;
  GenRegNotifyHook notifyChange;
  GenRegUnpackHook unpackRecord;
  GenRegPackHook packRecord;
  GenRegSizeHook getRecordSize;
  GenRegLengthHook getRecordLength;
  GenRegLengthHook getPackedLength;
  const RecordForm* form;
};

class HandleAccess {
 public:
  explicit HandleAccess(GenRegFile& handle) noexcept : handle_(handle) {}

  // --- flavours ---

  // What the constructor of a flavour named by a path does: checks the path, installs the hooks,
  // names the files. Returns, and stores at `rc` unless that is null, 0 or the constructor's code;
  // without a usable path no hook is installed.
  static Code setUp(GenRegFile& handle, Routine& routine, const char* path,
                    const FlavourHooks& hooks, unsigned int* rc) noexcept;
  static void install(GenRegFile& handle, const FlavourHooks& hooks) noexcept;
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

  bool has(std::uint64_t feature) const noexcept { return (handle_.features & feature) != 0; }
  bool hasStatus(std::uint64_t bits) const noexcept { return (handle_.status & bits) != 0; }
  void setStatus(std::uint64_t bits) const noexcept { handle_.status |= bits; }
  void beginUpdate() const noexcept { handle_.committed = false; }
  bool isBinary() const noexcept { return handle_.engineKind == GENREG_ENGINE_BINARY; }

  GenRegCompareHook compareHook() const noexcept { return handle_.CompareRecord; }
  GenRegValidateHook validateHook() const noexcept { return handle_.ValidateKey; }
  GenRegSizeHook sizeHook() const noexcept { return handle_.GetRecordSize; }
  GenRegLengthHook lengthHook() const noexcept { return handle_.GetRecordLength; }
  GenRegLengthHook packedLengthHook() const noexcept { return handle_.GetPackedLength; }
  GenRegNotifyHook notifyHook() const noexcept { return handle_.NotifyChange; }
  GenRegPostUpdateHook postUpdateHook() const noexcept { return handle_.PostUpdate; }
  const GenRegPackHook& packHook() const noexcept { return handle_.PackRecord; }
  const GenRegUnpackHook& unpackHook() const noexcept { return handle_.UnpackRecord; }

  // What the flavour knows of stored records, where nobody but the flavour itself would see a
  // difference and no trace is being kept of the hooks. Else null.
  const RecordForm* form() const noexcept {
    const RecordForm* form = handle_.form;
    if (form == nullptr || tracingOn()) return nullptr;
    const bool own = handle_.CompareRecord == form->compare &&
                     handle_.UnpackRecord.binary == form->unpack.binary &&
                     handle_.UnpackRecord.text == form->unpack.text;
    return own ? form : nullptr;
  }

  static const GenRegSessionRoutines sessionRoutines;

 private:
  GenRegFile& handle_;
};

}  // namespace genreg
