// How the session opens a registry's files for an operation: the registry file, the directory it
// stands in, and the temporary file, with what an earlier update has left at its name. session.h
// has the invariants.
#include <cerrno>
#include <new>

#include "genreg/core/pending.h"
#include "genreg/core/session.h"
#include "genreg/core/session_calls.h"
#include "sysservices/memory.h"

namespace genreg {

Code Session::open(std::uint64_t kind) noexcept {
  Routine routine(Function::openRegFile);
  if (isScanning()) return routine.refuse(GENREG_RC_SCAN_OPEN, 10);
  hideStreams();
  (void)main_.close();
  (void)second_.close();
  const bool needsTemporary = kind != GENREG_OP_READ && !appendsInPlace(kind);
  const bool makesTemporary = needsTemporary && kind != GENREG_OP_VERIFY;
  const bool opened = openRegistry(routine, kind) &&
                      (!makesTemporary || setLeftoversAside(routine, kind)) &&
                      (!needsTemporary || openTemporary(routine, kind));
  if (!opened) {
    (void)main_.close();
    (void)second_.close();
  }
  return routine.code();
}

Code Session::openContent() noexcept {
  Routine routine(Function::openRegFile);
  hideStreams();
  (void)main_.close();
  (void)second_.close();
  void* memory = nullptr;
  if (_ossMemAlloc(&memory, 0, sizeof(Pending), 1, "session", __LINE__) != 0) {
    return routine.refuse(GENREG_RC_BUFFER_ALLOC, 25);
  }
  pending_ = new (memory) Pending;
  if (!recover(routine) || !ossPathExists(registryPath())) return routine.code();
  if (openRegistry(routine, GENREG_OP_CHANGE) && setLeftoversAside(routine, GENREG_OP_CHANGE) &&
      !main_.more(main_.size())) {
    const bool noMemory = main_.error() == ENOMEM;
    (void)routine.failSystem(main_.error(),
                             noMemory ? GENREG_RC_BUFFER_ALLOC : GENREG_RC_READ_FAILED, 68,
                             registryPath());
  }
  if (!routine.ok()) (void)main_.close();
  return routine.code();
}

// A registry file that came into being since the update began is somebody else's (I4).
Code Session::openForCommit() noexcept {
  if (!main_.isOpen()) {
    const Code code = open(GENREG_OP_ADD);
    if (code != 0 || main_.size() == 0) return code;
    (void)deleteTemporary();
    return Routine(Function::openRegFile).refuse(GENREG_RC_OPEN_FAILED, 96, text(registryPath()));
  }
  Routine routine(Function::openRegFile);
  (void)openTemporary(routine, GENREG_OP_CHANGE);
  return routine.code();
}

void Session::endMany() noexcept {
  if (pending_ == nullptr) return;
  void* memory = pending_;
  pending_->~Pending();
  pending_ = nullptr;
  (void)_ossMemFree(&memory, 0, 0, "session", __LINE__);
  (void)main_.close();
  (void)second_.close();
}

bool Session::openRegistry(Routine& routine, std::uint64_t kind) noexcept {
  const char* path = registryPath();
  if (kind == GENREG_OP_READ) return openReadable(routine, false, 40) == GENREG_RC_OK;
  if (isUpdate(kind) && !recover(routine)) return false;

  bool creates = false;
  appending_ = appendsInPlace(kind);
  if (kind == GENREG_OP_ADD) {
    if (!createDirectory(routine, 1, 30)) return false;
    creates = !ossPathExists(path);
  } else if (!ossIsFile(path)) {
    return routine.end(GENREG_RC_NO_FILE);
  }
  const bool writes = creates || appending_;
  const OSSFileOpenParam param =
      openParam(path, writes ? OSS_OPEN_APPEND : OSS_OPEN_EXISTING, handle_.registryPermissions);
  if (const Code code = main_.handle().open(&param); code != 0) {
    return routine.failAbout(probeFileOpen, code, GENREG_RC_OPEN_FAILED, 40, text(path));
  }
  const bool exclusive = writes || g_bIsPlatformID_Win32On95;
  const OSSFileLockParam lockParam{OSS_PARAM_LEVEL,
                                   exclusive ? OSS_LOCK_EXCLUSIVE : OSS_LOCK_SHARED, OSS_LOCK_WAIT};
  if (const Code code = main_.handle().lock(&lockParam); code != 0) {
    return routine.failAbout(probeFileLock, code, GENREG_RC_FILE_LOCK, 50, text(path));
  }
  if (const int error = main_.begin(writes, 0); error != 0) {
    return routine.failSystem(error, GENREG_RC_OPEN_FAILED, 60, path);
  }
  if (isUpdate(kind)) {
    (void)claim_.close();  // of an update that was not carried on
    temporaryDropped_ = false;
  }
  if (!claim_.isOpen()) opened_ = main_.info();
  if (appending_) handle_.lockFile.shareWithWriters(main_.info());
  // A registry file that this very update created has a name that no power cut may take back (I3).
  if (creates && ossDirectorySync(path) != 0) {
    return routine.failSystem(ossFileLastError(), GENREG_RC_OPEN_FAILED, 65, path);
  }
  return true;
}

bool Session::createDirectory(Routine& routine, std::uint32_t purpose,
                              unsigned int point) noexcept {
  constexpr std::uint32_t ownerOnly = 0700;
  char directory[OSS_FULL_PATH_SIZE];
  if (const Code code = ossDirectoryName(registryPath(), directory, sizeof directory); code != 0) {
    return routine.failFrom(probeDirectoryName, code, code, point);
  }
  if (ossIsDirectory(directory)) return true;
  const OSSDirectoryCreateParam param{OSS_PARAM_LEVEL, directory, ownerOnly, purpose};
  if (const Code code = ossDirectoryCreate(&param); code != 0) {
    return routine.failAbout(probeDirectoryCreate, code, GENREG_RC_CREATE_DIRECTORY, point + 2,
                             text(directory));
  }
  return true;
}

// --- the temporary file ---

bool Session::setLeftoversAside(Routine& routine, std::uint64_t kind) noexcept {
  if (const Code code = deleteIfThere(corruptPath()); code != 0) {
    return routine.failAbout(probeFileDelete, code, GENREG_RC_CORRUPT_DELETE, 70,
                             text(corruptPath()));
  }
  for (bool waited = true; waited;) {
    waited = false;
    if (!setLeftoverAside(routine, &waited)) return false;
    // The other writer has committed, perhaps.
    if (waited && !openRegistry(routine, kind)) return false;
  }
  return true;
}

// The temporary file of an update that did not finish becomes the corrupt file, for people to look
// at. A temporary file that its writer still has locked is no leftover: that writer's lock file was
// removed by a third party, and this one waits for it (I1).
bool Session::setLeftoverAside(Routine& routine, bool* waited) noexcept {
  OSSHFile leftover;
  Code code = lockLeftover(leftover, waited);
  if (code == OSS_RC_OK) code = ossFileRename(temporaryPath(), corruptPath());
  if (code == OSS_RC_FILE_NOT_FOUND) return true;
  if (code != 0) {
    return routine.failAbout(probeFileRename, code, GENREG_RC_CORRUPT_RENAME, 80,
                             text(temporaryPath()), text(corruptPath()));
  }
  // It may be older than a change of the registry's permissions (I6). One that has a second name is
  // somebody else's file, too, and keeps its own.
  OSSFileInfo info{};
  if (leftover.isOpen() && leftover.getInfo(&info) == OSS_RC_OK && info.links == 1) {
    (void)ossFileSetPermissions(corruptPath(), ownerReadWrite);
  }
  return true;
}

// Opens and locks the file at the temporary file's name, so that nobody else sets it aside or makes
// use of it; one that cannot be opened is nobody's. Whoever had the lock may have renamed the file,
// and a third one made another. OSS_RC_FILE_NOT_FOUND when there is none.
Code Session::lockLeftover(OSSHFile& leftover, bool* waited) noexcept {
  constexpr std::uint64_t longestClaim = 10000;  // milliseconds; no writer holds it as long
  OSSFileOpenParam param = openParam(temporaryPath(), OSS_OPEN_EXISTING, 0);
  param.options = OSS_OPEN_NO_LINK;
  for (;;) {
    const Code found = leftover.open(&param);
    if (found != OSS_RC_OK) return found == OSS_RC_FILE_NOT_FOUND ? found : OSS_RC_OK;
    OSSFileInfo opened{};
    OSSFileInfo named{};
    // A second name of the registry itself, left by a commit that could neither delete it nor stay:
    // the registry is not to be refused for it.
    if (leftover.getInfo(&opened) == OSS_RC_OK && infoOf(registryPath(), &named) == OSS_RC_OK &&
        named.isSameFile(opened)) {
      const Code deleted = ossFileDelete(temporaryPath());
      return deleted == OSS_RC_OK ? OSS_RC_FILE_NOT_FOUND : deleted;
    }
    OSSFileLockParam lockParam{OSS_PARAM_LEVEL, OSS_LOCK_EXCLUSIVE, OSS_LOCK_NOWAIT};
    Code code = leftover.lock(&lockParam);
    if (code == OSS_RC_LOCK_BUSY && !isImpatient_) {
      *waited = true;
      (void)main_.close();  // the other writer may be waiting for it
      lockParam.wait = OSS_LOCK_WAIT;
      lockParam.limit = longestClaim;
      code = leftover.lock(&lockParam);
    }
    if (code == OSS_RC_OK) code = leftover.getInfo(&opened);
    if (code == OSS_RC_OK) code = infoOf(temporaryPath(), &named);
    if (code != OSS_RC_OK || named.isSameFile(opened)) return code;
  }
}

bool Session::openTemporary(Routine& routine, std::uint64_t kind) noexcept {
  OSSFileInfo info{};
  if (const Code code = infoOf(registryPath(), &info); code != 0) {
    return routine.failAbout(probeFileGetInfo, code, GENREG_RC_FILE_INFO_OPEN, 90,
                             text(registryPath()));
  }
  // Renaming a new file into place would part the link from its target, or one name of the file
  // from its others, and both would go on as registries of their own.
  if (info.isSymbolicLink || info.links > 1) {
    return routine.fail(GENREG_RC_OPEN_FAILED, 95, text(registryPath()), number(info.links),
                        text("a link: update it under its one real name"));
  }
  return kind == GENREG_OP_VERIFY ? openWritten(routine) : createTemporary(routine, info);
}

bool Session::openWritten(Routine& routine) noexcept {
  OSSFileOpenParam param = openParam(temporaryPath(), OSS_OPEN_EXISTING, 0);
  param.options = OSS_OPEN_NO_LINK;
  int error = 0;
  if (second_.handle().open(&param) != OSS_RC_OK) {
    error = second_.handle().lastError();
  } else if (!claim_.isOpen() && !claimTemporary()) {
    error = EAGAIN;
  } else {
    error = second_.begin(false, 0);
  }
  return error == 0 || routine.failSystem(error, GENREG_RC_OPEN_TEMP_FAILED, 100, temporaryPath());
}

bool Session::createTemporary(Routine& routine, const OSSFileInfo& registry) noexcept {
  OSSHFile& file = second_.handle();
  temporaryDurable_ = false;
  if (file.createPrivate(temporaryPath(), registryPath()) != OSS_RC_OK) {
    return routine.failSystem(file.lastError(), GENREG_RC_OPEN_TEMP_FAILED, 105, temporaryPath());
  }
  if (!claimTemporary()) {
    return routine.failSystem(EAGAIN, GENREG_RC_OPEN_TEMP_FAILED, 107, temporaryPath());
  }
  int error = 0;
  if (file.takeAttributes(registryPath(), registry) != OSS_RC_OK) {
    error = file.lastError();
    (void)routine.failSystem(error, GENREG_RC_TEMP_PERMISSIONS, 110, temporaryPath());
  } else if (error = second_.begin(true, registry.size); error != 0) {
    (void)routine.failSystem(error, GENREG_RC_OPEN_TEMP_FAILED, 115, temporaryPath());
  }
  if (error != 0) (void)deleteTemporary();
  handle_.lockFile.shareWithWriters(registry);
  return error == 0;
}

// Locks the new temporary file, and makes sure that nobody who found it before that has set it
// aside (I1).
bool Session::claimTemporary() noexcept {
  const OSSFileLockParam param{OSS_PARAM_LEVEL, OSS_LOCK_SHARED, OSS_LOCK_NOWAIT};
  if (claim_.duplicate(second_.handle()) == OSS_RC_OK && claim_.lock(&param) == OSS_RC_OK &&
      claim_.isAt(temporaryPath())) {
    return true;
  }
  (void)claim_.close();
  return false;
}

// By now the name may be another writer's, if a third party has removed the lock file (I1).
Code Session::deleteTemporary() noexcept {
  if (temporaryDropped_ || (claim_.isOpen() && !claim_.isAt(temporaryPath()))) return OSS_RC_OK;
  const Code code = ossFileDelete(temporaryPath());
  (void)claim_.close();
  return code;
}

}  // namespace genreg
