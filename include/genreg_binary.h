// The engine of binary registries: length-prefixed records in a file.
//
// A program uses it through a flavour (GenRegBinVarVal, GlobalReg): construct one, look at its
// code, call the operations in any order. A flavour of one's own derives from GenRegBin and fills
// the hooks. What depends on the old record is read and written under one lock:
//
//   unsigned int raise(GenRegBin& registry, std::uint64_t mask, BinVarValRecord& key) {
//     unsigned int code = registry.BeginUpdate();
//     if (code != 0) return code;
//     BinVarValRecord record{};
//     code = registry.Get(mask, &key, &record);
//     ++record.Value;
//     if (code == 0) code = registry.Change(mask, &key, &record);
//     if (code == 0) return registry.CommitUpdate();
//     (void)registry.AbandonUpdate();
//     return code;
//   }
#pragma once

#include "genreg_handle.h"

// The binary engine's operations on records.
//
// A record buffer is GetRecordSize bytes and belongs to the caller throughout; keys and records
// must stay valid during the call only. `mask` goes unchanged to ValidateKey and CompareRecord; its
// bits are the flavour's.
//
// Every operation first checks the hooks it needs and returns, before any file is touched:
// GENREG_RC_NO_VALIDATE_HOOK, GENREG_RC_NO_SIZE_HOOK (Add: GENREG_RC_HOOK_MISSING for either),
// GENREG_RC_KEY_REJECTED, GENREG_RC_RECORD_TOO_SMALL, GENREG_RC_RECORD_TOO_LARGE,
// GENREG_RC_BUFFER_ALLOC. While records are read: GENREG_RC_READ_FAILED,
// GENREG_RC_NO_UNPACK_HOOK_PACKED, GENREG_RC_UNPACK_FAILED, GENREG_RC_NO_COMPARE_HOOK. At the end,
// when nothing failed before: GENREG_RC_CLOSE_AFTER_OPERATION, GENREG_RC_BUFFER_FREE.
//
// The updates add: GENREG_RC_LOCK_FAILED, GENREG_RC_OPEN_FOR_OPERATION, GENREG_RC_COPY_FAILED,
// GENREG_RC_PACK_FAILED, GENREG_RC_NO_PACK_HOOK_PACKED, GENREG_RC_VERIFY_FAILED. A failed update
// leaves the registry file byte for byte as it was (a first Add may leave an empty one), with these
// exceptions, in which only the clean-up behind the commit failed: GENREG_RC_UNLOCK_FAILED,
// GENREG_RC_BUFFER_FREE, GENREG_RC_NO_POST_UPDATE_HOOK, and a GENREG_RC_VERIFY_FAILED or
// GENREG_RC_CLOSE_AFTER_OPERATION whose log tells GENREG_RC_BACKUP_DELETE_FAILED or the release of
// a verification buffer.
class GenRegBin : public GenRegFile {
 public:
  // A handle without hooks and file names; a flavour's constructor fills them.
  GENREG_API GenRegBin() noexcept;
  // For a flavour of one's own: names the files of the registry at `path` as GenRegBinVarVal does,
  // and stores the same codes at `rc` (may be null); after a failure every operation fails. The
  // class that derives fills the hooks CompareRecord, ValidateKey, GetRecordSize and
  // GetRecordLength, and sets its features, of which GENREG_VERIFY_UPDATES is one to set.
  GENREG_API GenRegBin(const char* path, unsigned int* rc) noexcept;
  // As GenRegFile's.
  GENREG_API ~GenRegBin();

  // Appends `record`. Creates the registry file and its directory when missing. Without
  // GENREG_ALLOW_DUPLICATES a stored record that matches `record` under `mask` gives
  // GENREG_RC_DUPLICATE. With GENREG_ALLOW_DUPLICATES and without GENREG_VERIFY_UPDATES the record
  // is appended in place, under an exclusive lock for which open scans are waited for.
  // Also: GENREG_RC_FILE_INFO, GENREG_RC_SEEK_END_FAILED, GENREG_RC_WRITE_NEW_FAILED.
  // `record` is unchanged after the call, whatever the outcome, save for what ValidateKey does.
  GENREG_API unsigned int Add(std::uint64_t mask, void* record) noexcept;

  // Replaces each record that matches `key` under `mask` by `newRecord`. GENREG_RC_NOT_FOUND when
  // none matches; GENREG_RC_UNCHANGED when a matching one equals `newRecord` already (nothing is
  // changed while GENREG_VERIFY_UPDATES is set); GENREG_RC_AMBIGUOUS when a second one would change
  // without GENREG_ALLOW_DUPLICATES; GENREG_RC_DELETE_TEMP_FAILED in place of any other failure.
  GENREG_API unsigned int Change(std::uint64_t mask, void* key, void* newRecord) noexcept;

  // Removes each record that matches `key` under `mask`. Codes as Change, without
  // GENREG_RC_UNCHANGED.
  GENREG_API unsigned int Delete(std::uint64_t mask, void* key) noexcept;

  // Copies the first record of the file that matches into `record`. GENREG_RC_NOT_FOUND when none
  // does (`record` is zero-filled); GENREG_RC_NO_FILE when there is no registry file (`record` is
  // untouched); GENREG_RC_OPEN_FOR_OPERATION, also while a scan is open on this handle without
  // GENREG_GET_IN_SCAN; GENREG_RC_RECORD_TOO_LARGE for a record size below 8.
  GENREG_API unsigned int Get(std::uint64_t mask, void* key, void* record) noexcept;

  // Copies the scan's next record that matches into `record`. GENREG_RC_END at the end of the file
  // (`record` is zero-filled the first time); GENREG_RC_NO_SCAN.
  GENREG_API unsigned int GetNext(std::uint64_t mask, void* key, void* record) noexcept;
};
