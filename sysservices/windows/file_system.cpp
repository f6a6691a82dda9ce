// Files and directories over Win32 calls. Paths are in the system's 8-bit encoding.
#include "sysservices/file_system.h"

#include <fcntl.h>
#include <io.h>

#include <cstdio>

#include "sysservices/file_handle.h"
#include "sysservices/inner/error_codes.h"
#include "sysservices/inner/path_rules.h"
#include "sysservices/return_codes.h"
#include "sysservices/windows/system_call.h"

const char ossPathSeparator = '\\';
const char oss::otherPathSeparator = '/';
const bool oss::pathsHaveDrives = true;

namespace {

thread_local int lastError = 0;

unsigned int fail(int error) {
  lastError = error;
  return oss::codeOfError(error);
}

unsigned int outcome(bool done) { return done ? OSS_RC_OK : fail(errno); }

// The attributes at a path; a link's own unless it leads to a directory.
bool attributesOf(const char* path, DWORD* attributes) {
  return oss::systemCall("stat", path, [&] {
    *attributes = ::GetFileAttributesA(path);
    return *attributes != INVALID_FILE_ATTRIBUTES;
  });
}

// Whether the attribute that forbids writing also forbade a delete, and is off now.
bool clearedReadOnly(const char* path) {
  const DWORD attributes = ::GetFileAttributesA(path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0 &&
         ::SetFileAttributesA(path, attributes & ~DWORD{FILE_ATTRIBUTE_READONLY}) != 0;
}

bool deleteFile(const char* path) {
  return ::DeleteFileA(path) != 0 || (::GetLastError() == ERROR_ACCESS_DENIED &&
                                      clearedReadOnly(path) && ::DeleteFileA(path) != 0);
}

// Deletes as POSIX does: the name is free at once, whoever has the file open. Newer file systems
// can. False when this one cannot, or there is nothing to delete.
bool deleteAtOnce(const char* path) {
  constexpr auto dispositionEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(21);
  // Delete; free the name at once; whatever the read-only attribute says.
  DWORD disposition = 0x1 | 0x2 | 0x10;
  const HANDLE handle =
      ::CreateFileA(path, DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return false;
  const bool done =
      ::SetFileInformationByHandle(handle, dispositionEx, &disposition, sizeof disposition) != 0;
  ::CloseHandle(handle);
  return done;
}

// Deletes a file that has given up its name. One that somebody holds for longer than a moment is
// left for a later delete to sweep.
void dispose(const char* aside) {
  for (unsigned int attempt = 1; !deleteFile(aside); ++attempt) {
    if (!oss::waitAndRetry(::GetLastError(), attempt)) return;
  }
}

// Elsewhere the name of a deleted file stays taken until the last reader has closed it, and the
// next commit could not rename onto it: the file is renamed away first. A name that is taken was
// left by a process that died before its delete, or by such a reader; one more delete decides.
bool deleteAside(const char* path) {
  constexpr unsigned int mostNames = 64;
  char aside[OSS_FULL_PATH_SIZE + 16];
  for (unsigned int i = 0; i < mostNames; ++i) {
    (void)std::snprintf(aside, sizeof aside, "%s.del%u", path, i);
    if (::MoveFileExA(path, aside, 0) != 0) {
      dispose(aside);
      return true;
    }
    if (::GetLastError() != ERROR_ALREADY_EXISTS && ::GetLastError() != ERROR_FILE_EXISTS) break;
    (void)deleteFile(aside);
  }
  // No name beside it: it is too long, or the directory takes no new one.
  const DWORD error = ::GetLastError();
  if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return false;
  return deleteFile(path);
}

// Whether what cannot be deleted is a directory, which could be renamed aside, and would stay so.
// That then is the error; else it stays what it was.
bool isDirectory(const char* path) {
  const DWORD error = ::GetLastError();
  const DWORD attributes = ::GetFileAttributesA(path);
  const bool directory =
      attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  ::SetLastError(directory ? ERROR_DIRECTORY : error);
  return directory;
}

unsigned int removeName(const char* path) {
  return outcome(oss::patientCall("unlink", path, [&] {
    return deleteAtOnce(path) || (!isDirectory(path) && deleteAside(path));
  }));
}

// A lock file that anybody has open is left to whoever that is: the system refuses to delete it.
// Whoever opens it in the moment of the delete is refused for that moment, and tries again.
unsigned int removeLockFile(const char* path) {
  bool inUse = false;
  const bool done = oss::patientCall("unlink", path, [&] {
    if (deleteFile(path)) return true;
    inUse = !isDirectory(path) && ::GetLastError() == ERROR_SHARING_VIOLATION;
    return inUse;
  });
  return outcome(done);
}

}  // namespace

unsigned int ossDirectoryCreate(const OSSDirectoryCreateParam* param) {
  if (param == nullptr || param->path == nullptr) return OSS_RC_NULL_ARGUMENT;
  if (param->level != OSS_PARAM_LEVEL) return OSS_RC_BAD_PARAMETER;
  const char* path = param->path;
  const bool done =
      oss::systemCall("mkdir", path, [&] { return ::CreateDirectoryA(path, nullptr) != 0; });
  if (!done) return errno == EEXIST && ossIsDirectory(path) ? OSS_RC_OK : fail(errno);
  const int error = oss::syncDirectoryOf(path);
  return error == 0 ? OSS_RC_OK : fail(error);
}

bool ossIsDirectory(const char* path) {
  DWORD attributes = 0;
  return path != nullptr && attributesOf(path, &attributes) &&
         (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool ossIsFile(const char* path) {
  DWORD attributes = 0;
  if (path == nullptr || !attributesOf(path, &attributes)) return false;
  BY_HANDLE_FILE_INFORMATION status;
  return (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0 &&
         (!oss::isLink(attributes) || oss::askFile(path, 0, &status));
}

bool ossPathExists(const char* path) {
  DWORD attributes = 0;
  return path != nullptr && attributesOf(path, &attributes);
}

unsigned int ossFileDelete(const char* path) {
  return path == nullptr ? OSS_RC_NULL_ARGUMENT : removeName(path);
}

unsigned int ossLockFileDelete(const char* path) {
  return path == nullptr ? OSS_RC_NULL_ARGUMENT : removeLockFile(path);
}

// Neither onto an existing file nor by a copy; on stable storage before it returns, which is what
// makes a commit durable.
unsigned int ossFileRename(const char* source, const char* target) {
  if (source == nullptr || target == nullptr) return OSS_RC_NULL_ARGUMENT;
  return outcome(oss::patientCall("rename", source, [&] {
    return ::MoveFileExA(source, target, MOVEFILE_WRITE_THROUGH) != 0;
  }));
}

// Links are of no use to a commit here: with the registry under a second name it would have to
// replace the file at the first one, and the system refuses to replace a file that a reader has
// open. Such a file can be renamed, so a commit does that.
unsigned int ossFileLink(const char* path, const char* second) {
  if (path == nullptr || second == nullptr) return OSS_RC_NULL_ARGUMENT;
  return fail(ENOTSUP);
}

// The system does not distinguish a target that is open from one that may not be replaced.
unsigned int ossFileReplace(const char* source, const char* target) {
  if (source == nullptr || target == nullptr) return OSS_RC_NULL_ARGUMENT;
  const bool done = oss::patientCall("rename", source, [&] {
    constexpr DWORD flags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
    return ::MoveFileExA(source, target, flags) != 0;
  });
  return done ? OSS_RC_OK : fail(errno == EACCES ? ENOTSUP : errno);
}

unsigned int ossFileExchange(const char* one, const char* other) {
  if (one == nullptr || other == nullptr) return OSS_RC_NULL_ARGUMENT;
  return fail(ENOTSUP);
}

// Who may do that is said by access lists, which every call asks by itself.
bool ossFileMayBeReplaced(const char*, const OSSFileInfo*) { return true; }

unsigned int ossDirectorySync(const char* path) {
  if (path == nullptr) return OSS_RC_NULL_ARGUMENT;
  const int error = oss::syncDirectoryOf(path);
  return error == 0 ? OSS_RC_OK : fail(error);
}

unsigned int ossAbsolutePath(const char* path, char* buffer, std::size_t size) {
  if (path == nullptr || buffer == nullptr) return OSS_RC_NULL_ARGUMENT;
  const DWORD length = ::GetFullPathNameA(path, static_cast<DWORD>(size), buffer, nullptr);
  if (length == 0) return fail(oss::errnoOf(::GetLastError()));
  return length < size ? OSS_RC_OK : OSS_RC_BUFFER_TOO_SMALL;
}

unsigned int ossFileSetPermissions(const char* path, std::uint32_t permissions) {
  if (path == nullptr) return OSS_RC_NULL_ARGUMENT;
  DWORD attributes = 0;
  if (!attributesOf(path, &attributes)) return fail(errno);
  if (oss::isLink(attributes)) return fail(ELOOP);
  const DWORD others = attributes & ~DWORD{FILE_ATTRIBUTE_READONLY};
  const DWORD wanted =
      others | ((permissions & oss::ownerWrite) == 0 ? FILE_ATTRIBUTE_READONLY : 0);
  return outcome(
      oss::systemCall("fchmod", path, [&] { return ::SetFileAttributesA(path, wanted) != 0; }));
}

unsigned int ossFileGetInfoV9(const OSSFileInfoRequest* request, OSSFileInfo* info) {
  if (request == nullptr || request->path == nullptr || info == nullptr) {
    return OSS_RC_NULL_ARGUMENT;
  }
  if (request->level != OSS_PARAM_LEVEL) return OSS_RC_BAD_PARAMETER;
  const char* path = request->path;
  BY_HANDLE_FILE_INFORMATION status;
  if (!oss::askFile(path, FILE_FLAG_OPEN_REPARSE_POINT, &status)) return fail(errno);
  const bool isLink = oss::isLink(status.dwFileAttributes);
  if (isLink && !oss::askFile(path, 0, &status)) return fail(errno);
  oss::takeStatus(status, info);
  info->isSymbolicLink = isLink;
  return OSS_RC_OK;
}

std::FILE* ossFileOpenToRead(const char* path) {
  if (path == nullptr) return nullptr;
  const HANDLE handle = oss::openFile(path, {GENERIC_READ, OPEN_EXISTING, true, true}, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return nullptr;
  const int descriptor = ::_open_osfhandle(reinterpret_cast<std::intptr_t>(handle),
                                           _O_RDONLY | _O_BINARY | _O_NOINHERIT);
  if (descriptor < 0) ::CloseHandle(handle);
  std::FILE* const stream = descriptor < 0 ? nullptr : ::_fdopen(descriptor, "rb");
  if (descriptor >= 0 && stream == nullptr) ::_close(descriptor);
  return stream;
}

std::int64_t ossFileClock() {
  FILETIME now{};
  ::GetSystemTimeAsFileTime(&now);
  return oss::nanosecondsOf(now);
}

int ossFileLastError() { return lastError; }
