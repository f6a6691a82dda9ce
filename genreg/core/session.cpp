// The protocol: lock, recovery, close, commit, unlock. The files are opened in session_files.cpp
// and read in session_reads.cpp.
#include "genreg/core/session.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "genreg/core/session_calls.h"
#include "genreg_codes.h"
#include "sysservices/file_system.h"
#include "sysservices/memory.h"
#include "sysservices/return_codes.h"

namespace genreg {
namespace {

bool endsWith(const char* text, const char* suffix) {
  const std::size_t length = std::strlen(text);
  const std::size_t count = std::strlen(suffix);
  return length > count && std::strcmp(text + length - count, suffix) == 0;
}

// Whether an update of another registry in the directory would take this one for its own companion
// file: it would set it aside, and later delete it.
bool isCompanionName(const char* path) {
  char base[OSS_PATH_SIZE];
  if (ossBaseName(path, base, sizeof base) != OSS_RC_OK) return false;
  return endsWith(base, ".tmp") || endsWith(base, ".cor") ||
         (base[0] == '.' && (endsWith(base, ".bkp") || endsWith(base, ".lock")));
}

// What a commit is about to put in place, as it stands in the lock file.
struct Announcement {
  std::uint64_t device;  // of the new file
  std::uint64_t file;
  std::uint64_t oldSize;  // of the one that becomes the backup
  std::int64_t oldModified;

  static constexpr std::size_t textSize = 128;
  std::size_t write(char (&text)[textSize]) const {
    return static_cast<std::size_t>(
        std::snprintf(text, sizeof text,
                      "commit of file %016" PRIx64 ":%016" PRIx64 " replaces %016" PRIx64
                      " bytes of %016" PRIx64 "\n",
                      device, file, oldSize, static_cast<std::uint64_t>(oldModified)));
  }
};

}  // namespace

Session::~Session() {
  endMany();
  dropCache();
  void* block = fullNames_;
  (void)_ossMemFree(&block, 0, 0, "session", __LINE__);
}

Code Session::resolveNames() noexcept {
  const char* const names[] = {handle_.registryPath, handle_.backupPath, handle_.temporaryPath,
                               handle_.corruptPath, handle_.lockPath};
  char full[OSS_FULL_PATH_SIZE];
  // Without a name for the current directory the names stay what they are.
  if (ossAbsolutePath(names[0], full, sizeof full - OSS_PATH_SIZE) != OSS_RC_OK) return OSS_RC_OK;
  if (std::strcmp(full, names[0]) == 0) return OSS_RC_OK;
  fullNameSize_ = std::strlen(full) + OSS_PATH_SIZE;
  void* block = nullptr;
  const Code code =
      _ossMemAlloc(&block, 0, fullNameSize_ * std::size(names), 1, "session", __LINE__);
  if (code != 0) return code;
  fullNames_ = static_cast<char*>(block);
  for (std::size_t i = 0; i < std::size(names); ++i) {
    (void)ossAbsolutePath(names[i], fullNames_ + i * fullNameSize_, fullNameSize_);
  }
  return OSS_RC_OK;
}

const char* Session::name(unsigned int which) const noexcept {
  if (fullNames_ != nullptr) return fullNames_ + which * fullNameSize_;
  const char* const names[] = {handle_.registryPath, handle_.backupPath, handle_.temporaryPath,
                               handle_.corruptPath, handle_.lockPath};
  return names[which];
}

bool Session::hasStatus(std::uint64_t bits) const noexcept { return (handle_.status & bits) != 0; }

bool Session::hasFeature(std::uint64_t feature) const noexcept {
  return (handle_.features & feature) != 0;
}

bool Session::appendsInPlace(std::uint64_t kind) const noexcept {
  return pending_ == nullptr && kind == GENREG_OP_ADD && hasFeature(GENREG_ALLOW_DUPLICATES) &&
         !hasFeature(GENREG_VERIFY_UPDATES);
}

bool Session::commits(std::uint64_t kind) const noexcept {
  if (hasFeature(GENREG_VERIFY_UPDATES)) return kind == GENREG_OP_VERIFY;
  return isUpdate(kind) && !appendsInPlace(kind);
}

// --- lock ---

Code Session::lock(std::uint64_t request) noexcept {
  Routine routine(Function::lockRegistry);
  const bool exclusive = (request & GENREG_LOCK_EXCLUSIVE) != 0;
  const bool wait = (request & GENREG_LOCK_NOWAIT) == 0;
  if (!exclusive && (request & GENREG_LOCK_SHARED) == 0) {
    return routine.refuse(GENREG_RC_BAD_ARGUMENT, 10, number(request));
  }
  if (wait && (request & GENREG_LOCK_WAIT) == 0) {
    return routine.refuse(GENREG_RC_BAD_ARGUMENT, 20, number(request));
  }
  if (!hasStatus(GENREG_STATUS_READY)) return routine.refuse(GENREG_RC_NOT_READY, 30);
  if (hasStatus(GENREG_STATUS_LOCKED)) return routine.refuse(GENREG_RC_ALREADY_LOCKED, 40);
  if (exclusive && isCompanionName(handle_.registryPath)) {
    return routine.refuse(GENREG_RC_BAD_ARGUMENT, 45, text(handle_.registryPath),
                          text("the name of another registry's companion file"));
  }
  if ((request & GENREG_LOCK_CREATE_DIR) != 0 && !createDirectory(routine, 2, 50)) {
    return routine.code();
  }

  OSSFileOpenParam& param = handle_.lockFileOpenParam;
  param = openParam(lockPath(), exclusive ? OSS_OPEN_LOCK_FILE : OSS_OPEN_EXISTING,
                    handle_.lockPermissions);
  if (!exclusive) param.options = OSS_OPEN_AS_LOCK_FILE;
  if (const Code code = handle_.lockFile.open(&param); code != 0) {
    (void)routine.failFrom(probeFileOpen, code, GENREG_RC_OPEN_LOCK_FAILED, 60);
    OSSFileInfo info{};
    if (infoOf(lockPath(), &info) != 0) {
      return routine.refuse(GENREG_RC_OPEN_LOCK_FAILED, 61, text(lockPath()));
    }
    return routine.refuse(GENREG_RC_OPEN_LOCK_FAILED, 61, text(lockPath()), text("owned by user"),
                          number(info.owner));
  }
  const OSSFileLockParam lockParam{OSS_PARAM_LEVEL,
                                   exclusive ? OSS_LOCK_EXCLUSIVE : OSS_LOCK_SHARED,
                                   wait ? OSS_LOCK_WAIT : OSS_LOCK_NOWAIT, lockLimit_};
  const Code code = handle_.lockFile.lock(&lockParam);
  if (code == 0) {
    handle_.status |= GENREG_STATUS_LOCKED;
    isImpatient_ = !wait;
    keepsOldAsCorrupt_ = false;
    handle_.committed = false;
    return GENREG_RC_OK;
  }
  (void)handle_.lockFile.close();
  const bool busy = code == OSS_RC_LOCK_BUSY;
  (void)routine.failFrom(probeFileLock, code, busy ? GENREG_RC_BUSY : code, busy ? 70 : 80);
  return routine.code();
}

// Unlock, close, delete: a waiter may be granted the lock before the name goes. That is why the
// delete takes the lock itself and leaves the name to whoever has it by then, and why a granted
// lock is checked to be on the file that stands at the name (I1).
Code Session::unlock() noexcept {
  Routine routine(Function::unlockRegistry);
  (void)claim_.close();
  if (const Code code = handle_.lockFile.unlock(); code != 0) {
    (void)routine.failFrom(probeFileUnlock, code, GENREG_RC_UNLOCK_FILE_FAILED, 10);
    return routine.code();
  }
  handle_.status &= ~GENREG_STATUS_LOCKED;
  if (const Code code = handle_.lockFile.close(); code != 0) {
    (void)routine.failFrom(probeFileClose, code, GENREG_RC_CLOSE_LOCK_FAILED, 20);
    return routine.code();
  }
  const Code code = ossLockFileDelete(lockPath());
  if (code == OSS_RC_FILE_NOT_FOUND) {
    routine.note(GENREG_RC_LOCK_FILE_GONE, 30, failureSeverity, text(lockPath()));
  } else if (code != 0) {
    (void)routine.failAbout(probeFileDelete, code, GENREG_RC_LOCK_DELETE_FAILED, 40,
                            text(lockPath()));
  }
  return routine.code();
}

void Session::dropLock() noexcept {
  if (!hasStatus(GENREG_STATUS_LOCKED)) return;
  (void)handle_.lockFile.close();
  handle_.status &= ~GENREG_STATUS_LOCKED;
  (void)ossLockFileDelete(lockPath());
}

// --- recovery ---

// Puts a registry back that a crash left only under its backup name, or ends a backup that a crash
// left beside the registry. An update that took the registry for absent would create an empty one
// and, in its own commit, delete the backup with all committed records (I2). For the same reason an
// answer that is not plainly "no such file" fails the update.
bool Session::recover(Routine& routine) noexcept {
  OSSFileInfo backup{};
  const Code asked = infoOf(backupPath(), &backup);
  if (asked == OSS_RC_FILE_NOT_FOUND) return true;
  if (asked != 0) {
    return routine.failFrom(probeFileGetInfo, asked, GENREG_RC_BACKUP_RENAME_FAILED, 11);
  }
  // What somebody planted under the backup's name is no content of this registry.
  if (!backup.isFile || backup.isSymbolicLink) {
    return routine.fail(GENREG_RC_BACKUP_RENAME_FAILED, 12, text(backupPath()),
                        text("not a plain file"));
  }
  const Code renamed = ossFileRename(backupPath(), registryPath());
  if (renamed != 0 && renamed != OSS_RC_FILE_EXISTS) {
    return routine.failAbout(probeFileRename, renamed, GENREG_RC_BACKUP_RENAME_FAILED, 13,
                             text(backupPath()), text(registryPath()));
  }
  // The registry's name is durable before the backup goes; a power cut could leave neither (I3).
  if (ossDirectorySync(registryPath()) != 0) {
    return routine.failSystem(ossFileLastError(), GENREG_RC_BACKUP_RENAME_FAILED, 15,
                              registryPath());
  }
  if (renamed == 0) {
    routine.trace(16, text(registryPath()));
    return true;
  }
  OSSFileInfo registry{};
  if (const Code code = infoOf(registryPath(), &registry); code != 0) {
    return routine.failFrom(probeFileGetInfo, code, GENREG_RC_BACKUP_RENAME_FAILED, 17);
  }
  // Somebody may have helped himself with a link to the backup.
  if (registry.isSymbolicLink) {
    return routine.fail(GENREG_RC_BACKUP_RENAME_FAILED, 18, text(registryPath()),
                        text("a link: update it under its one real name"));
  }
  if (isOwnBackup(registry, backup)) return dropBackup(routine, backup);
  if (const Code code = setBackupAside(); code != 0) {
    return routine.failFrom(probeFileRename, code, GENREG_RC_BACKUP_RENAME_FAILED, 20);
  }
  routine.note(GENREG_RC_BACKUP_SET_ASIDE, 21, failureSeverity, text(backupPath()));
  return true;
}

// Its second name is where step 3 of a commit leaves it.
bool Session::dropBackup(Routine& routine, const OSSFileInfo& backup) noexcept {
  OSSFileInfo temporary{};
  if (infoOf(temporaryPath(), &temporary) == OSS_RC_OK && temporary.isSameFile(backup)) {
    (void)ossFileDelete(temporaryPath());
  }
  const Code deleted = deleteIfThere(backupPath());
  if (deleted == 0) return true;
  return routine.failAbout(probeFileDelete, deleted, GENREG_RC_BACKUP_RENAME_FAILED, 22,
                           text(backupPath()));
}

// A backup may go when it is the registry itself under a second name, or when the registry is the
// file that a commit announced to put in the backup's place (I5). Everything else, a registry that
// another program put there included, may be all that is left of committed records.
bool Session::isOwnBackup(const OSSFileInfo& registry, const OSSFileInfo& backup) noexcept {
  if (registry.isSameFile(backup)) return true;
  char stored[Announcement::textSize];
  char expected[Announcement::textSize];
  std::size_t count = 0;
  const std::size_t length =
      Announcement{registry.device, registry.file, backup.size, backup.modified}.write(expected);
  return handle_.lockFile.isOpen() &&
         handle_.lockFile.readAt(stored, length, 0, &count) == OSS_RC_OK && count == length &&
         std::memcmp(stored, expected, length) == 0;
}

// Renames the backup to a name that people find, the first that is free. ossFileRename's code.
Code Session::setBackupAside() noexcept {
  constexpr unsigned int mostNames = 100;
  char aside[OSS_FULL_PATH_SIZE + 8];
  Code code = OSS_RC_FILE_EXISTS;
  for (unsigned int i = 0; code == OSS_RC_FILE_EXISTS && i < mostNames; ++i) {
    (void)std::snprintf(aside, sizeof aside, i == 0 ? "%s.old" : "%s.old%u", registryPath(), i);
    code = ossFileRename(backupPath(), aside);
  }
  // Before a commit makes another file of the name it gave up (I3).
  return code != OSS_RC_OK ? code : ossDirectorySync(registryPath());
}

// --- close ---

Code Session::close(std::uint64_t kind) noexcept { return finish(kind, commits(kind)); }

Code Session::replaceDamaged() noexcept {
  keepsOldAsCorrupt_ = true;
  return finish(GENREG_OP_CHANGE, true);
}

bool Session::isCommitted() const noexcept { return handle_.committed; }

Code Session::finish(std::uint64_t kind, bool commits) noexcept {
  Routine routine(Function::closeRegFile);
  if (isScanning()) return routine.refuse(GENREG_RC_SCAN_OPEN, 10);
  hideStreams();
  if (commits) (void)old_.duplicate(main_.handle());
  finishFiles(routine, kind);
  if (routine.ok() && commits) commit(routine);
  (void)old_.close();
  // Until it is in place, verified or deleted, the temporary file stays its writer's.
  const bool isInUse = !commits && hasStatus(GENREG_STATUS_LOCKED);
  if (!isInUse) (void)claim_.close();
  return routine.code();
}

// What an operation wrote is made durable before its file is closed, unless the operation is
// abandoned; a sync that fails is a close that failed, and nothing is committed (I3). An append in
// place that is abandoned or cannot be made durable is taken back, so that no torn record stays. A
// temporary file that the disk had no room for goes at once: it would keep the room from the next.
void Session::finishFiles(Routine& routine, std::uint64_t kind) noexcept {
  const bool keepsWork = isUpdate(kind);

  int error = 0;
  if (main_.isOpen() && appending_) {
    if (keepsWork) error = main_.makeDurable();
    // What was appended to a file that another program has replaced is in nobody's registry (I4).
    if (keepsWork && error == 0 && !main_.handle().isAt(registryPath())) error = EBUSY;
    handle_.committed = keepsWork && error == 0;
    if (!handle_.committed) {
      const int cut = main_.takeBack();
      if (error == 0) error = cut;
    }
  }
  if (const int closed = main_.close(); error == 0) error = closed;
  appending_ = false;
  if (error != 0) {
    (void)routine.failSystem(error, GENREG_RC_CLOSE_FAILED, 20, registryPath(), OSS_SYSCALL_CLOSE);
  }

  error = 0;
  const bool wrote = second_.isOpen() && keepsWork;
  if (wrote) error = second_.makeDurable();
  if (const int closed = second_.close(); error == 0) error = closed;
  temporaryDurable_ = temporaryDurable_ || (wrote && error == 0);
  if (error != 0) {
    (void)routine.failSystem(error, GENREG_RC_CLOSE_TEMP_FAILED, 30, temporaryPath(),
                             OSS_SYSCALL_CLOSE);
  }
  if (error != 0) temporaryDropped_ = deleteTemporary() == OSS_RC_OK;
}

// --- commit ---

void Session::commit(Routine& routine) noexcept {
  bool linked = false;
  OSSFileInfo made{};
  if (!isUntouched(routine, &made)) return;  // I4
  if (!announce(made)) {                     // I5
    (void)routine.failSystem(handle_.lockFile.lastError(), GENREG_RC_BACKUP_RENAME_FAILED, 36,
                             lockPath());
    temporaryDropped_ = deleteTemporary() == OSS_RC_OK;
    return;
  }
  if (!replaceRegistry(routine, &linked)) return;  // I2
  if (!settle(routine, linked)) return;            // I3, I4
  endOld(routine);
}

// Whether registry, temporary file and lock are the files that the session opened, the registry
// with the bytes that it read.
bool Session::isUntouched(Routine& routine, OSSFileInfo* made) noexcept {
  OSSFileInfo now{};
  const char* changed = nullptr;
  if (infoOf(registryPath(), &now) != OSS_RC_OK || !now.isUnchanged(opened_)) {
    changed = registryPath();
  } else if (claim_.getInfo(made) != OSS_RC_OK || infoOf(temporaryPath(), &now) != OSS_RC_OK ||
             !now.isSameFile(*made)) {
    changed = temporaryPath();
  } else if (hasStatus(GENREG_STATUS_LOCKED) && !handle_.lockFile.isAt(lockPath())) {
    changed = lockPath();
  }
  if (changed == nullptr) return true;
  return routine.fail(GENREG_RC_BACKUP_RENAME_FAILED, 35, text(changed),
                      text("changed, replaced or removed by another program since it was opened"));
}

// Writes into the lock file what is about to be put in place of what.
bool Session::announce(const OSSFileInfo& made) noexcept {
  if (!hasStatus(GENREG_STATUS_LOCKED)) return true;
  char line[Announcement::textSize];
  const std::size_t length =
      Announcement{made.device, made.file, opened_.size, opened_.modified}.write(line);
  return handle_.lockFile.writeAt(line, length, 0) == OSS_RC_OK;
}

// Steps 2 and 3. A failed step 2 leaves the registry untouched and the temporary file in place.
bool Session::replaceRegistry(Routine& routine, bool* linked) noexcept {
  const char* registry = registryPath();
  if (!ossFileMayBeReplaced(registry, &opened_)) {
    return routine.fail(GENREG_RC_BACKUP_RENAME_FAILED, 38, text(registry),
                        text("another user's file in a sticky directory"));
  }
  const auto keepOld = [&] {
    const Code code = ossFileLink(registry, backupPath());
    *linked = code != OSS_RC_NOT_SUPPORTED;
    return *linked ? code : ossFileRename(registry, backupPath());
  };
  Code code = keepOld();
  // Somebody put a file at the backup's name since the session began.
  if (code == OSS_RC_FILE_EXISTS && setBackupAside() == OSS_RC_OK) code = keepOld();
  if (code != 0) {
    const std::int32_t error = ossFileLastError();
    return routine.failAbout(probeFileRename, code, GENREG_RC_BACKUP_RENAME_FAILED, 40,
                             number(error), text(registry), text(backupPath()));
  }
  code = *linked ? exchangeRegistry() : ossFileRename(temporaryPath(), registry);
  if (code == 0) return true;
  const std::int32_t error = ossFileLastError();
  (void)routine.failAbout(probeFileRename, code, GENREG_RC_COMMIT_RENAME_FAILED, 50, number(error),
                          text(temporaryPath()), text(registry));
  // At once: without hard links readers have only the backup until then. If this fails too, the
  // next update does it.
  if (*linked) {
    (void)ossFileDelete(backupPath());
  } else if (ossFileRename(backupPath(), registry) == OSS_RC_FILE_EXISTS) {
    (void)setBackupAside();
  }
  return false;
}

// An exchange of the two names shows what was replaced (I4). When it is not the file that was
// opened, another program has renamed its own over it since the last look and gets the name back;
// should that fail, the new content stands, and the other's file is the next update's leftover.
Code Session::exchangeRegistry() noexcept {
  const char* registry = registryPath();
  // The old file must be nobody's leftover for the moment that it has the temporary's name (I1).
  const OSSFileLockParam lockParam{OSS_PARAM_LEVEL, OSS_LOCK_SHARED, OSS_LOCK_NOWAIT};
  Code code = old_.isOpen() ? old_.lock(&lockParam) : OSS_RC_OK;
  if (code == OSS_RC_OK) code = ossFileExchange(temporaryPath(), registry);
  if (code == OSS_RC_NOT_SUPPORTED) return ossFileReplace(temporaryPath(), registry);
  if (code != OSS_RC_OK) return code;
  OSSFileInfo replaced{};
  const Code asked = infoOf(temporaryPath(), &replaced);
  if (asked == OSS_RC_FILE_NOT_FOUND) return OSS_RC_OK;
  if (asked == OSS_RC_OK && replaced.isSameFile(opened_)) {
    (void)ossFileDelete(temporaryPath());
    return OSS_RC_OK;
  }
  handle_.committed = ossFileExchange(temporaryPath(), registry) != OSS_RC_OK;
  return OSS_RC_FILE_EXISTS;
}

// Step 4, and a last look at what was replaced: whoever appended to it in the moment of the commit
// gets the old file back. The new names may not survive a power cut until they are synced, so
// success would be a lie when that fails.
bool Session::settle(Routine& routine, bool linked) noexcept {
  OSSFileInfo old{};
  const Code asked = infoOf(backupPath(), &old);
  const bool same = asked == OSS_RC_FILE_NOT_FOUND || (asked == 0 && old.isUnchanged(opened_));
  if (same && ossDirectorySync(registryPath()) == 0) {
    handle_.committed = true;
    return true;
  }
  if (same) {
    (void)routine.failSystem(ossFileLastError(), GENREG_RC_COMMIT_RENAME_FAILED, 60,
                             registryPath());
  } else {
    (void)routine.fail(GENREG_RC_COMMIT_RENAME_FAILED, 62, text(registryPath()),
                       text("written to by another program in the moment of the commit"));
  }
  handle_.committed = !goBack(linked);
  return false;
}

// Back to the old content, as the failure code says. False when that fails, too: the new content
// stands, and only a power cut may still take it back. A crash in between leaves only the backup,
// or both.
bool Session::goBack(bool linked) noexcept {
  if (linked) return ossFileReplace(backupPath(), registryPath()) == OSS_RC_OK;
  if (ossFileRename(registryPath(), temporaryPath()) != OSS_RC_OK) return false;
  (void)ossFileRename(backupPath(), registryPath());
  return true;
}

// Step 5.
void Session::endOld(Routine& routine) noexcept {
  Code code = OSS_RC_OK;
  if (keepsOldAsCorrupt_) {
    code = deleteIfThere(corruptPath());
    if (code == OSS_RC_OK) code = ossFileRename(backupPath(), corruptPath());
  } else {
    code = deleteIfThere(backupPath());
  }
  if (code == 0) return;
  (void)routine.failAbout(probeFileDelete, code, GENREG_RC_BACKUP_DELETE_FAILED, 70,
                          text(backupPath()));
}

}  // namespace genreg
