// The registry handle: record hooks, features, status, file names, scanning, update session.
//
// GenRegBase and GenRegFile are bases of every engine and flavour. Their fields are protected so
// that a class derived from an engine or a flavour can fill, replace or clear a hook by its slot's
// own name (GenRegFile::CompareRecord = nullptr).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <type_traits>

#include "genreg_codes.h"
#include "genreg_export.h"
#include "sysservices/file_handle.h"

// Features, switched with setFeature and unsetFeature.
constexpr std::uint64_t GENREG_VERIFY_UPDATES = 1;          // check a new file against the old one
constexpr std::uint64_t GENREG_ALLOW_DUPLICATES = 2;        // equal records may stand side by side
constexpr std::uint64_t GENREG_PACKED_RECORDS = 4;          // records pass PackRecord, UnpackRecord
constexpr std::uint64_t GENREG_BIG_ENDIAN_LENGTH = 8;       // binary length fields, high byte first
constexpr std::uint64_t GENREG_GET_IN_SCAN = 16;            // Get may run while a scan is open
constexpr std::uint64_t GENREG_NOTIFY_CHANGE = 32;          // call NotifyChange (binary engine)
constexpr std::uint64_t GENREG_POST_UPDATE = 64;            // call PostUpdate
constexpr std::uint64_t GENREG_JOIN_CONTINUED_LINES = 128;  // text engine: join "\" lines
constexpr std::uint64_t GENREG_FEATURE_MAX = 128;           // no larger value is a feature

// Bits of the status word.
constexpr std::uint64_t GENREG_STATUS_IDLE = 0x1;        // the handle is made
constexpr std::uint64_t GENREG_STATUS_LOCKED = 0x10;     // the update lock is held
constexpr std::uint64_t GENREG_STATUS_SCAN_OPEN = 0x40;  // OpenScan succeeded
constexpr std::uint64_t GENREG_STATUS_SCAN_END = 0x80;   // GetNext met the end
constexpr std::uint64_t GENREG_STATUS_READY = 0x100;     // all file names are set

// Operation kinds, as OpenRegFile, CloseRegFile and NotifyChange take them.
constexpr std::uint64_t GENREG_OP_READ = 1;     // Get, GetNext, a scan
constexpr std::uint64_t GENREG_OP_CHANGE = 2;   // Change
constexpr std::uint64_t GENREG_OP_ADD = 4;      // Add
constexpr std::uint64_t GENREG_OP_DELETE = 8;   // Delete
constexpr std::uint64_t GENREG_OP_VERIFY = 16;  // reads old and new file; its close commits

// Bits of a request to LockRegistry.
constexpr std::uint64_t GENREG_LOCK_EXCLUSIVE = 1;    // a writer's: at most one holder
constexpr std::uint64_t GENREG_LOCK_SHARED = 2;       // any number, while there is no writer
constexpr std::uint64_t GENREG_LOCK_WAIT = 4;         // waits, at most as setLockTimeout says
constexpr std::uint64_t GENREG_LOCK_NOWAIT = 8;       // GENREG_RC_BUSY instead of waiting
constexpr std::uint64_t GENREG_LOCK_CREATE_DIR = 16;  // makes the registry's directory when missing

// The mask that asks CompareRecord whether two records are equal in every field.
constexpr std::uint64_t GENREG_ALL_FIELDS = 0xFFFFFFFFFFFFFFFFu;

// Which engine a handle belongs to.
constexpr std::uint64_t GENREG_ENGINE_BINARY = 1;  // GenRegBin
constexpr std::uint64_t GENREG_ENGINE_TEXT = 2;    // GenRegText

constexpr std::size_t GENREG_PATH_SIZE = 260;  // bytes of a file name, terminator included
constexpr std::size_t GENREG_PATH_MAX = 253;   // characters a registry path may have

class GenRegBase;
class GenRegFile;
namespace genreg {
class HandleAccess;
class Session;
struct RecordForm;
}  // namespace genreg

// Record hooks: plain functions of a flavour; a null slot means that the flavour has none. A hook
// runs on the caller's thread, may be called while the update lock is held, and must therefore not
// update the same registry.

// 1 when `record` matches `key` in the fields that `mask` selects, else 0.
using GenRegCompareHook = unsigned int (*)(std::uint64_t mask, void* record, void* key);
// 0 when the key or record is acceptable for `mask`.
using GenRegValidateHook = unsigned int (*)(std::uint64_t mask, void* keyOrRecord);
// Dumps a record to standard output.
using GenRegPrintHook = unsigned int (*)(void* record);
// Called after a successful update; `kind` is a GENREG_OP_... value.
using GenRegNotifyHook = unsigned int (*)(GenRegBase* handle, std::uint64_t kind, void* recordOrKey,
                                          void* newRecord);
// Called after a successful update, behind NotifyChange, with GENREG_POST_UPDATE set; an answer
// other than 0 is logged only.
using GenRegPostUpdateHook = unsigned int (*)();
// Stored length in bytes of an unpacked (GetRecordLength, at most GetRecordSize) or packed
// (GetPackedLength) record; taken as a 32-bit number.
using GenRegLengthHook = unsigned int (*)(const void* record, std::uint64_t* length);
// Bytes of one record in memory, 3 to 0x100000.
using GenRegSizeHook = unsigned int (*)(std::uint64_t* size);

// PackRecord and UnpackRecord have one form per engine; a slot takes a function of either form and
// the engine calls its own.
template <typename BinaryForm, typename TextForm>
class GenRegFormHook {
 public:
  // None, when null.
  GenRegFormHook(std::nullptr_t = nullptr) noexcept : binary(nullptr), text(nullptr) {}
  // A function, or a lambda that captures nothing.
  template <typename Hook, std::enable_if_t<std::is_convertible_v<Hook, BinaryForm>, int> = 0>
  GenRegFormHook(Hook hook) noexcept : binary(hook), text(nullptr) {}
  template <typename Hook, std::enable_if_t<std::is_convertible_v<Hook, TextForm>, int> = 0,
            typename = void>
  GenRegFormHook(Hook hook) noexcept : binary(nullptr), text(hook) {}
  // Whether one of the two forms is filled.
  explicit operator bool() const noexcept { return binary != nullptr || text != nullptr; }
  // Whether neither of the two forms is filled.
  friend bool operator==(const GenRegFormHook& hook, std::nullptr_t) noexcept { return !hook; }
  // Whether one of the two forms is filled.
  friend bool operator!=(const GenRegFormHook& hook, std::nullptr_t) noexcept { return bool{hook}; }
  // Calls the hook in the form that the arguments have; that form must be filled.
  template <typename... Arguments>
  auto operator()(Arguments... arguments) const {
    if constexpr (std::is_invocable_v<BinaryForm, Arguments...>) {
      return binary(arguments...);
    } else {
      return text(arguments...);
    }
  }

  BinaryForm binary;  // null, or what the binary engine calls
  TextForm text;      // null, or what the text engine calls
};

// Binary: the record at *record becomes its stored form in the same buffer, which must hold it (the
// engine's is large enough for twice a record and all that `storedCopy` holds); `storedCopy` is
// null or the stored bytes of the record that it replaces. Text: formats `record` into `text`,
// 2,048 bytes.
using GenRegPackHook = GenRegFormHook<unsigned int (*)(void** record, void* storedCopy),
                                      unsigned int (*)(void* record, char* text)>;
// Binary: the stored form at *record becomes a record in the same buffer. Text: parses `line`.
using GenRegUnpackHook =
    GenRegFormHook<unsigned int (*)(void** record), unsigned int (*)(void* record, char* line)>;

// The features of a handle and the hooks that both engines have.
class GenRegBase {
 public:
  // A handle without hooks, features and files.
  GENREG_API GenRegBase() noexcept;

  // Sets every bit of `feature`. Returns 0, or GENREG_RC_BAD_FEATURE for 0 or a value above 128
  // (nothing is changed then).
  GENREG_API unsigned int setFeature(std::uint64_t feature) noexcept;

  // Clears every bit of `feature`. Returns 0; GENREG_RC_BAD_FEATURE as setFeature;
  // GENREG_RC_FEATURE_NOT_SET when none of the bits is set.
  GENREG_API unsigned int unsetFeature(std::uint64_t feature) noexcept;

  // True when any bit of `feature` is set.
  GENREG_API bool isFeatureSet(std::uint64_t feature) const noexcept;

 protected:
  GenRegCompareHook CompareRecord;  // which records an operation means
  GenRegValidateHook ValidateKey;   // before an operation touches anything
  GenRegPrintHook PrintRecord;      // for the caller's use; the engines do not call it
  GenRegNotifyHook NotifyChange;    // with GENREG_NOTIFY_CHANGE
  GenRegPostUpdateHook PostUpdate;  // with GENREG_POST_UPDATE
  std::uint64_t status;             // GENREG_STATUS_... bits
  std::uint64_t features;           // GENREG_... feature bits
};

// What RepairRegistry found and did.
struct GenRegRepairReport {
  std::uint64_t kept;          // records in the registry now
  std::uint64_t dropped;       // records or lines left out because they cannot be unpacked
  std::uint64_t bytesLeftOut;  // bytes of the old file that are in no kept record
  std::uint64_t firstDamage;   // offset of the first byte left out, when there is one
};

// The session routines of a handle. They are reached through this table so that a derived class can
// call them although the library exports none of their names.
struct GenRegSessionRoutines {
  // LockRegistry.
  unsigned int (*lockRegistry)(GenRegFile& handle, std::uint64_t request);
  // UnlockRegistry.
  unsigned int (*unlockRegistry)(GenRegFile& handle);
  // OpenRegFile.
  unsigned int (*openRegFile)(GenRegFile& handle, std::uint64_t kind);
  // CloseRegFile.
  unsigned int (*closeRegFile)(GenRegFile& handle, std::uint64_t kind);
  // Copies one of the five names: 0 registry, 1 temporary, 2 corrupt, 3 lock, 4 backup file.
  unsigned int (*getPath)(const GenRegFile& handle, unsigned int which, char* buffer,
                          std::uint64_t size);
};

// A registry file and its companions. The engines add the operations on records.
//
// The order of calls: construct a flavour with a path and look at its code; then any number of Add,
// Change, Delete and Get; a scan is OpenScan, GetNext until GENREG_RC_END, CloseScan. For example:
//
//   unsigned int code = 0;
//   GenRegBinVarVal registry("settings.reg", &code);
//   BinVarValRecord record{"Timeout", 30, ""};
//   if (code == 0) code = registry.Add(BINVARVAL_VARIABLE, &record);
//
// A relative path is resolved when the handle is made. A handle is used by one thread at a time, on
// one side of a fork; handles, threads and processes take turns by the locks on the files. A thread
// must not be cancelled inside an operation, which would end the process.
//
// What the operations return, 0 being success. Before anything is touched:
//   GENREG_RC_NO_..._HOOK, GENREG_RC_HOOK_MISSING  a hook that the operation needs is missing
//   GENREG_RC_KEY_REJECTED        ValidateKey refused the key or record; the log has its code
//   OSS_RC_NULL_ARGUMENT          a record or the place for one is null
//   GENREG_RC_RECORD_TOO_SMALL, GENREG_RC_RECORD_TOO_LARGE  GetRecordSize is outside its limits
//   GENREG_RC_BUFFER_ALLOC        no memory for a record
// Finding and reading:
//   GENREG_RC_NOT_FOUND           no record matches
//   GENREG_RC_END                 GetNext: no further record
//   GENREG_RC_NO_SCAN             GetNext: no scan is open
//   GENREG_RC_NO_FILE             Get of the binary engine: there is no registry file
//   GENREG_RC_OPEN_FOR_OPERATION  the registry file cannot be opened, or a scan is open
//   GENREG_RC_READ_FAILED         a read error, or damage; no record was cut short. A scan stands
//                                 again before the record that could not be read
//   GENREG_RC_UNPACK_FAILED       a packed record is malformed, or of a type this library lacks
// Changing, with the registry as it was:
//   GENREG_RC_DUPLICATE           Add: a record that matches is there already
//   GENREG_RC_UNCHANGED           Change: a matching record equals the new one already
//   GENREG_RC_AMBIGUOUS           more than one record matches, and duplicates are not allowed
//   OSS_RC_BUFFER_TOO_SMALL       text: a line longer than the buffer is in the way: Add finds one
//                                 in the file, or the line to be changed or deleted is one, or
//                                 holds more behind a NUL byte
//   GENREG_RC_LOCK_FAILED, GENREG_RC_FILE_INFO, GENREG_RC_COPY_FAILED, GENREG_RC_WRITE_NEW_FAILED,
//   GENREG_RC_PACK_FAILED, GENREG_RC_PACK_LINE_FAILED, GENREG_RC_DELETE_TEMP_FAILED
// After a failure of one of these the update may be committed; isUpdateCommitted() knows:
//   GENREG_RC_VERIFY_FAILED       refused, or committed but the old file could not be deleted
//   GENREG_RC_CLOSE_AFTER_OPERATION  a file could not be closed; committed by a Change or Delete
//                                 whose new file was accepted all the same, by an Add in place that
//                                 is on the disk, and when the names could neither be made durable
//                                 nor be put back
//   GENREG_RC_UNLOCK_FAILED       the update lock, or its file, could not be given back
//   GENREG_RC_BUFFER_FREE         memory could not be given back
//   GENREG_RC_NO_POST_UPDATE_HOOK GENREG_POST_UPDATE is set, but there is no hook
class GenRegFile : public GenRegBase {
 public:
  // A handle without file names: a flavour's constructor sets them, and without them every
  // operation fails.
  GENREG_API GenRegFile() noexcept;
  // Closes what is still open. The update lock, if held, ends with its handle; the lock file stays
  // behind, which is harmless. Failures are logged.
  GENREG_API ~GenRegFile();
  // A handle owns its locks and streams and is not copied.
  GenRegFile(const GenRegFile&) = delete;
  // As above.
  GenRegFile& operator=(const GenRegFile&) = delete;

  // Opens a scan of all records under a shared lock, waiting for it. The scan sees the registry as
  // it is now: an update that commits meanwhile replaces the file, not what the scan reads. Call it
  // only while no scan is open. A registry that a crash left under its backup name is read there.
  // Returns 0; GENREG_RC_OPEN_FAILED (missing file included); GENREG_RC_FILE_LOCK. After a failure
  // no scan is open.
  GENREG_API unsigned int OpenScan() noexcept;

  // Ends the scan and its lock. Returns 0, also when none is open; GENREG_RC_CLOSE_FAILED (the scan
  // is closed all the same).
  GENREG_API unsigned int CloseScan() noexcept;

  // Puts the scan back before the first record. Returns 0; GENREG_RC_NO_SCAN;
  // GENREG_RC_REWIND_FAILED.
  GENREG_API unsigned int Rewind() noexcept;

  // Stores the scan's position, valid for this scan only. Returns 0; GENREG_RC_NO_SCAN;
  // OSS_RC_NULL_ARGUMENT; GENREG_RC_GETPOS_FAILED.
  GENREG_API unsigned int getRegFilePosition(std::int64_t* position) noexcept;

  // Puts the scan back to a stored position; a scan at its end stays at its end until Rewind.
  // Returns 0; GENREG_RC_NO_SCAN; OSS_RC_NULL_ARGUMENT; GENREG_RC_SETPOS_FAILED.
  GENREG_API unsigned int setRegFilePosition(std::int64_t* position) noexcept;

  // Under the update lock, keeps every record that can be framed and, with `dropUnreadable`, of
  // those only what can be unpacked; the damaged original becomes the corrupt file (NAME.cor),
  // where it stays until the next update. Behind damage, records of a binary registry are found
  // again where they are whole to the end of the file. Nothing is written when nothing is left out.
  // `report` may be null. Returns 0, or what an Add would; the registry is as it was then.
  GENREG_API unsigned int RepairRegistry(bool dropUnreadable = false,
                                         GenRegRepairReport* report = nullptr) noexcept;

  // --- many changes, one commit ---

  // Takes the update lock and keeps it. Until CommitUpdate or AbandonUpdate this handle's Add,
  // Change, Delete, Get, OpenScan and GetNext work on the pending content, which nobody else sees;
  // they return what they would outside, and one that fails leaves the pending content as it was.
  // `request`: GENREG_LOCK_WAIT or GENREG_LOCK_NOWAIT, and GENREG_LOCK_CREATE_DIR. It takes memory
  // for the file's content, for the changes, and about 24 bytes a record. A scan has no stream, the
  // session routines and RepairRegistry are refused (GENREG_RC_UPDATE_OPEN), and features that say
  // how records are framed must not change. Returns 0; GENREG_RC_UPDATE_OPEN, also while the lock
  // is held by hand; GENREG_RC_UPDATE_IN_SCAN; GENREG_RC_BUSY; GENREG_RC_LOCK_FAILED;
  // GENREG_RC_OPEN_FOR_OPERATION; GENREG_RC_READ_FAILED; GENREG_RC_BUFFER_ALLOC. Damage in the file
  // is met by the first operation that gets there.
  //
  //   if ((code = registry.BeginUpdate()) == 0) {
  //     for (BinVarValRecord& record : records) {
  //       if (code == 0) code = registry.Add(BINVARVAL_VARIABLE, &record);
  //     }
  //     code = code == 0 ? registry.CommitUpdate() : registry.AbandonUpdate();
  //   }
  GENREG_API unsigned int BeginUpdate(std::uint64_t request = GENREG_LOCK_WAIT |
                                                              GENREG_LOCK_CREATE_DIR) noexcept;
  // Commits everything that the operations since BeginUpdate have done, or nothing, and ends the
  // update either way: one new file, also where an Add would append in place, one sync of it, with
  // GENREG_VERIFY_UPDATES one comparison, one commit. Nothing is written when nothing changed.
  // NotifyChange is called for each change, in order, then PostUpdate once, unless NotifyChange
  // answered a Change or Delete with something else than 0. What a NotifyChange record points to
  // must last until then. Returns 0; GENREG_RC_NO_UPDATE; and as a Change:
  // GENREG_RC_OPEN_FOR_OPERATION, GENREG_RC_WRITE_NEW_FAILED, GENREG_RC_VERIFY_FAILED,
  // GENREG_RC_CLOSE_AFTER_OPERATION, GENREG_RC_UNLOCK_FAILED, GENREG_RC_NO_POST_UPDATE_HOOK.
  GENREG_API unsigned int CommitUpdate() noexcept;
  // Ends the update; the registry is as it was. The destructor does that, too. Returns 0;
  // GENREG_RC_NO_UPDATE; GENREG_RC_UNLOCK_FAILED.
  GENREG_API unsigned int AbandonUpdate() noexcept;

  // --- how it waits and reads, and how it went ---

  // How long a wait for the update lock may last, in milliseconds; 0, as made: for ever. Whoever
  // has waited so long returns GENREG_RC_BUSY; the log says for which file, how long, and who has
  // it. Returns 0.
  GENREG_API unsigned int setLockTimeout(std::uint64_t milliseconds) noexcept;

  // Whether this handle keeps the registry's content and an index of what is asked for between its
  // Gets and scans; off as made. Answers and codes are the same: before each of them the system is
  // asked, by one call, whether the file at the registry's name is still the one that was read,
  // unchanged in size and times, and if not it is read again. A Get that begins after an update has
  // returned sees it, whoever made it; of what a program writes into the file past this library,
  // only that may be missed which leaves size and times as they are: into a mapped file, or by one
  // write of the same size that takes longer than a step of the clock. For local file systems.
  // Rights are asked for when the file is read: a process that gives some up makes new handles.
  // Until a change of the file is older than a step of its clock (0.05 s; 2.1 s where times are
  // whole seconds) each Get reads it anew. It takes memory for the content and at most 24 bytes a
  // record; with hooks that are not the flavour's own, or while tracing is on, nothing is kept. A
  // scan of kept content holds no lock. Content that cannot be kept is read as without.
  GENREG_API void setCachedReads(bool on) noexcept;

  // The cause of the last failure on this handle in words, with the file's name: what happened
  // first, and why. Empty when there was none. Valid until the handle's next operation.
  GENREG_API const char* getLastCause() const noexcept;

  // Whether the last update of this handle, an operation or CommitUpdate, is committed: the answer
  // that a failure code alone cannot give when only something behind the commit failed.
  GENREG_API bool isUpdateCommitted() const noexcept;

 protected:
  // Takes the update lock. `request` combines GENREG_LOCK_... bits. A wait of more than two seconds
  // is logged with the file and, where the system knows it, its holder. Returns 0;
  // GENREG_RC_BAD_ARGUMENT (neither lock type or neither wait; or an exclusive lock for a registry
  // whose name is that of another's companion file: *.tmp, *.cor, .*.lock, .*.bkp);
  // GENREG_RC_NOT_READY; GENREG_RC_ALREADY_LOCKED; GENREG_RC_CREATE_DIRECTORY;
  // GENREG_RC_OPEN_LOCK_FAILED; GENREG_RC_BUSY; or the lock's own code. After a failure the lock
  // file is closed.
  unsigned int LockRegistry(std::uint64_t request) noexcept {
    return routines->lockRegistry(*this, request);
  }

  // Releases the update lock and removes the lock file unless another holder has it by then.
  // Returns 0; GENREG_RC_UNLOCK_FILE_FAILED (the lock is still held); GENREG_RC_CLOSE_LOCK_FAILED;
  // GENREG_RC_LOCK_DELETE_FAILED. The last two do not undo an update.
  unsigned int UnlockRegistry() noexcept { return routines->unlockRegistry(*this); }

  // Opens the streams of one operation; see GENREG_OP_... Call it for an update only under the
  // exclusive update lock. Returns 0; GENREG_RC_SCAN_OPEN; GENREG_RC_NO_FILE;
  // GENREG_RC_OPEN_FAILED; GENREG_RC_FILE_LOCK; GENREG_RC_CREATE_DIRECTORY;
  // GENREG_RC_CORRUPT_DELETE; GENREG_RC_CORRUPT_RENAME; GENREG_RC_FILE_INFO_OPEN;
  // GENREG_RC_OPEN_TEMP_FAILED; GENREG_RC_TEMP_PERMISSIONS; GENREG_RC_BACKUP_RENAME_FAILED when a
  // registry that a crash left under its backup name cannot be put back. After a failure nothing
  // that the call opened is left open.
  unsigned int OpenRegFile(std::uint64_t kind) noexcept {
    return routines->openRegFile(*this, kind);
  }

  // Closes the streams and, when kind and features say so, commits the temporary file. Returns 0;
  // GENREG_RC_SCAN_OPEN; GENREG_RC_CLOSE_FAILED; GENREG_RC_CLOSE_TEMP_FAILED;
  // GENREG_RC_BACKUP_RENAME_FAILED; GENREG_RC_COMMIT_RENAME_FAILED (the old content stands again);
  // GENREG_RC_BACKUP_DELETE_FAILED (the update is committed).
  unsigned int CloseRegFile(std::uint64_t kind) noexcept {
    return routines->closeRegFile(*this, kind);
  }

  // Copy a file name with its terminator into `buffer` of `size` bytes. Return 0;
  // OSS_RC_BUFFER_TOO_SMALL (the buffer holds the empty text then); OSS_RC_NULL_ARGUMENT.
  unsigned int getRegFilePath(char* buffer, std::uint64_t size) const noexcept {
    return routines->getPath(*this, 0, buffer, size);
  }
  unsigned int getTempFilePath(char* buffer, std::uint64_t size) const noexcept {
    return routines->getPath(*this, 1, buffer, size);
  }
  unsigned int getCorruptFilePath(char* buffer, std::uint64_t size) const noexcept {
    return routines->getPath(*this, 2, buffer, size);
  }
  unsigned int getLockFilePath(char* buffer, std::uint64_t size) const noexcept {
    return routines->getPath(*this, 3, buffer, size);
  }
  unsigned int getBackupFilePath(char* buffer, std::uint64_t size) const noexcept {
    return routines->getPath(*this, 4, buffer, size);
  }

  std::uint64_t engineKind;              // GENREG_ENGINE_...
  GenRegLengthHook GetRecordLength;      // stored length of a record that is not packed
  GenRegSizeHook GetRecordSize;          // bytes of a record in memory
  char registryPath[GENREG_PATH_SIZE];   // the registry file, NAME
  char backupPath[GENREG_PATH_SIZE];     // .NAME.bkp
  char temporaryPath[GENREG_PATH_SIZE];  // NAME.tmp
  char corruptPath[GENREG_PATH_SIZE];    // NAME.cor
  char lockPath[GENREG_PATH_SIZE];       // .NAME.lock
  OSSHFile lockFile;                     // open while the update lock is held
  OSSFileOpenParam lockFileOpenParam;    // how LockRegistry has opened it
  // Streams of the registry file and the temporary file, while a scan is open or between
  // OpenRegFile and CloseRegFile; the handle's own. What is read from mainStream is gone for
  // GetNext.
  std::FILE* mainStream;
  std::FILE* secondStream;
  std::uint64_t registryPermissions;  // 0 means octal 0600
  std::uint64_t lockPermissions;      // 0 means octal 0600
  GenRegPackHook PackRecord;          // binary: with GENREG_PACKED_RECORDS
  GenRegUnpackHook UnpackRecord;      // binary: with GENREG_PACKED_RECORDS
  GenRegLengthHook GetPackedLength;   // stored length of a packed record

 private:
  friend class genreg::HandleAccess;
  friend class genreg::Session;
  unsigned int openScan() noexcept;

  const GenRegSessionRoutines* routines;
  genreg::Session* session;        // null when there was no memory: no operation works then
  const genreg::RecordForm* form;  // what the flavour knows of stored records, or null
  bool committed;                  // the last update is
};
