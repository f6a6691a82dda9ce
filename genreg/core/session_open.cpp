// Opening the files of one operation.
#include <cerrno>

#include "genreg/core/registry_handle.h"
#include "sysservices/file_system.h"

using genreg::Function;
using genreg::Routine;
using genreg::text;

namespace {

bool isUpdate(std::uint64_t kind) {
  return kind == GENREG_OP_CHANGE || kind == GENREG_OP_ADD || kind == GENREG_OP_DELETE;
}

// Files of an earlier session that only the commit itself may still need.
unsigned int deleteIfThere(const char* path) {
  const unsigned int code = ossFileDelete(path);
  return code == OSS_RC_FILE_NOT_FOUND ? OSS_RC_OK : code;
}

}  // namespace

unsigned int RegistryHandle::openRegFile(GenRegFile& handle, std::uint64_t kind) {
  Routine routine(Function::openRegFile);
  if ((handle.status & GENREG_STATUS_SCAN_OPEN) != 0) {
    return routine.exit(routine.fail(GENREG_RC_SCAN_OPEN, 10));
  }
  unsigned int code = openRegistry(handle, routine, kind);
  const bool needsTemporary = kind != GENREG_OP_READ && !appendsInPlace(handle, kind);
  if (code == 0 && needsTemporary && kind != GENREG_OP_VERIFY) {
    code = setLeftoversAside(handle, routine);
  }
  if (code == 0 && needsTemporary) code = openTemporary(handle, routine, kind);
  if (code != 0) {
    (void)closeMain(handle);
    (void)closeSecond(handle);
  }
  return routine.exit(code);
}

// Puts a registry back that a crash between the two renames of a commit left under its backup name,
// or removes a backup that a later crash left beside the registry. It comes before every existence
// check: an update that took the registry for absent would create an empty one and, in its own
// commit, delete the backup with all committed records. For the same reason an answer that is not
// plainly "no such file" fails the update. One rename under the update lock, so being killed here,
// too, is repaired by the next update. The backup is removed only once the registry's name is on
// stable storage; otherwise a power cut could leave neither.
unsigned int RegistryHandle::recover(GenRegFile& handle, Routine& routine) noexcept {
  const OSSFileInfoRequest request{OSS_PARAM_LEVEL, handle.backupPath};
  OSSFileInfo info{};
  const unsigned int asked = ossFileGetInfoV9(&request, &info);
  if (asked == OSS_RC_FILE_NOT_FOUND) return GENREG_RC_OK;
  if (asked != 0) {
    return routine.failFrom(genreg::probeFileGetInfo, asked, GENREG_RC_BACKUP_RENAME_FAILED, 19);
  }
  // What somebody planted under the backup's name is no content of this registry.
  if (!info.isFile || info.isSymbolicLink) {
    return routine.fail(GENREG_RC_BACKUP_RENAME_FAILED, 20, text(handle.backupPath),
                        text("not a plain file"));
  }
  const unsigned int renamed = ossFileRename(handle.backupPath, handle.registryPath);
  if (renamed != 0 && renamed != OSS_RC_FILE_EXISTS) {
    (void)routine.failFrom(genreg::probeFileRename, renamed, GENREG_RC_BACKUP_RENAME_FAILED, 21);
    return routine.fail(GENREG_RC_BACKUP_RENAME_FAILED, 22, text(handle.backupPath),
                        text(handle.registryPath));
  }
  if (const int error = platform::syncDirectoryOf(handle.registryPath); error != 0) {
    return routine.failSystem(error, GENREG_RC_BACKUP_RENAME_FAILED, 23, handle.registryPath);
  }
  if (renamed == 0) {
    routine.trace(25, text(handle.registryPath));
    return GENREG_RC_OK;
  }
  if (const unsigned int deleted = deleteIfThere(handle.backupPath); deleted != 0) {
    (void)routine.failFrom(genreg::probeFileDelete, deleted, GENREG_RC_BACKUP_RENAME_FAILED, 26);
    return routine.fail(GENREG_RC_BACKUP_RENAME_FAILED, 27, text(handle.backupPath));
  }
  return GENREG_RC_OK;
}

unsigned int RegistryHandle::openRegistry(GenRegFile& handle, Routine& routine,
                                          std::uint64_t kind) noexcept {
  const char* path = handle.registryPath;
  if (isUpdate(kind)) {
    if (const unsigned int code = recover(handle, routine); code != 0) return code;
  }

  OSSFileOpenParam param{OSS_PARAM_LEVEL,
                         path,
                         OSS_ACCESS_READ_WRITE,
                         OSS_OPEN_EXISTING,
                         0,
                         permissions(handle.registryPermissions),
                         0};
  std::uint32_t lockType = g_bIsPlatformID_Win32On95 ? OSS_LOCK_EXCLUSIVE : OSS_LOCK_SHARED;
  platform::StreamUse use = platform::StreamUse::Read;
  bool created = false;
  if (kind == GENREG_OP_ADD) {
    if (const unsigned int code = createDirectory(handle, routine, 1, 30); code != 0) return code;
    created = !ossPathExists(path);
    if (created || appendsInPlace(handle, kind)) {
      param.openMode = OSS_OPEN_APPEND;
      lockType = OSS_LOCK_EXCLUSIVE;
      use = platform::StreamUse::Append;
    }
  } else if (kind != GENREG_OP_READ && !ossIsFile(path)) {
    return GENREG_RC_NO_FILE;
  }

  OSSHFile file;
  const unsigned int opened =
      kind == GENREG_OP_READ ? openReadable(handle, file) : file.open(&param);
  if (opened != 0) {
    const bool missing = opened == OSS_RC_FILE_NOT_FOUND || opened == OSS_RC_NOT_A_FILE;
    if (kind == GENREG_OP_READ && missing) return GENREG_RC_NO_FILE;
    (void)routine.failFrom(genreg::probeFileOpen, opened, GENREG_RC_OPEN_FAILED, 40);
    return routine.fail(GENREG_RC_OPEN_FAILED, 41, text(path));
  }
  if (const unsigned int code = lockFileOf(file, lockType); code != 0) {
    (void)routine.failFrom(genreg::probeFileLock, code, GENREG_RC_FILE_LOCK, 50);
    return routine.fail(GENREG_RC_FILE_LOCK, 51, text(path));
  }
  if (const int error = adoptMainStream(handle, file, use); error != 0) {
    return routine.failSystem(error, GENREG_RC_OPEN_FAILED, 60, path);
  }
  handle.appending = appendsInPlace(handle, kind);
  // A registry file that this very update created has a name that no power cut may take back.
  if (created) {
    if (const int error = platform::syncDirectoryOf(path); error != 0) {
      return routine.failSystem(error, GENREG_RC_OPEN_FAILED, 65, path);
    }
  }
  return GENREG_RC_OK;
}

// The temporary file of an update that did not finish becomes the corrupt file, for people to look
// at; the corrupt file before it goes.
unsigned int RegistryHandle::setLeftoversAside(GenRegFile& handle, Routine& routine) noexcept {
  if (const unsigned int code = deleteIfThere(handle.corruptPath); code != 0) {
    (void)routine.failFrom(genreg::probeFileDelete, code, GENREG_RC_CORRUPT_DELETE, 70);
    return routine.fail(GENREG_RC_CORRUPT_DELETE, 71, text(handle.corruptPath));
  }
  const unsigned int code = ossFileRename(handle.temporaryPath, handle.corruptPath);
  if (code != 0 && code != OSS_RC_FILE_NOT_FOUND) {
    (void)routine.failFrom(genreg::probeFileRename, code, GENREG_RC_CORRUPT_RENAME, 80);
    return routine.fail(GENREG_RC_CORRUPT_RENAME, 81, text(handle.temporaryPath),
                        text(handle.corruptPath));
  }
  // It may be older than a change of the registry's permissions. Best effort: it may be another
  // user's, or no file at all.
  if (code == 0) (void)ossFileSetPermissions(handle.corruptPath, permissions(0));
  return GENREG_RC_OK;
}

unsigned int RegistryHandle::registryFileSize(const GenRegFile& handle,
                                              std::uint64_t* size) noexcept {
  const OSSFileInfoRequest request{OSS_PARAM_LEVEL, handle.registryPath};
  OSSFileInfo info{};
  const unsigned int code = ossFileGetInfoV9(&request, &info);
  *size = info.size;
  return code;
}

unsigned int RegistryHandle::openTemporary(GenRegFile& handle, Routine& routine,
                                           std::uint64_t kind) noexcept {
  const OSSFileInfoRequest request{OSS_PARAM_LEVEL, handle.registryPath};
  OSSFileInfo info;
  if (const unsigned int code = ossFileGetInfoV9(&request, &info); code != 0) {
    (void)routine.failFrom(genreg::probeFileGetInfo, code, GENREG_RC_FILE_INFO_OPEN, 90);
    return routine.fail(GENREG_RC_FILE_INFO_OPEN, 91, text(handle.registryPath));
  }
  // Renaming a new file into place would part the link from its target, or one name of the file
  // from its others, and both would go on as registries of their own.
  if (info.isSymbolicLink || info.links > 1) {
    return routine.fail(GENREG_RC_OPEN_FAILED, 95, text(handle.registryPath),
                        genreg::wide(info.links),
                        text("a link: update it under its one real name"));
  }

  (void)closeSecond(handle);  // of an earlier open that nobody closed
  handle.temporaryDurable = false;
  platform::PrivateFileStep step = platform::PrivateFileStep::Create;
  errno = 0;
  if (kind == GENREG_OP_VERIFY) {
    handle.secondStream = platform::openForReading(handle.temporaryPath, &handle.secondBacking);
  } else {
    const platform::FileAttributes attributes{info.permissions, info.owner, info.group,
                                              handle.registryPath};
    handle.secondStream = platform::createPrivateFile(handle.temporaryPath, attributes, info.size,
                                                      &handle.secondBacking, &step);
  }
  if (handle.secondStream != nullptr) return GENREG_RC_OK;
  const bool created = step == platform::PrivateFileStep::SetAttributes;
  return routine.failSystem(errno,
                            created ? GENREG_RC_TEMP_PERMISSIONS : GENREG_RC_OPEN_TEMP_FAILED,
                            created ? 110 : 100, handle.temporaryPath);
}
