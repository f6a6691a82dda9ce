// Files and directories over Win32 calls.
#include "sysservices/file_system.h"

#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <cwchar>
#include <string_view>

#include "sysservices/file_handle.h"
#include "sysservices/inner/error_codes.h"
#include "sysservices/inner/path_rules.h"
#include "sysservices/return_codes.h"
#include "sysservices/windows/system_call.h"

const char ossPathSeparator = '\\';
const char oss::otherPathSeparator = '/';
const bool oss::pathsHaveDrives = true;

bool oss::isInsideCharacter(const char* path, std::size_t at) noexcept {
  const bool mayBe = at > 0 && static_cast<unsigned char>(path[at - 1]) >= 0x80;
  return mayBe && wholeCharacters(path, at, Spelled::Path) != at;
}

namespace {

thread_local int lastError = 0;

unsigned int fail(int error) {
  lastError = error;
  return oss::codeOfError(error);
}

unsigned int outcome(bool done) { return done ? OSS_RC_OK : fail(errno); }

// Makes one call, with the path as the system takes it. False with errno.
template <typename Call>
bool pathCall(const char* operation, const char* path, Call&& call) {
  const oss::WidePath wide(path);
  return oss::systemCall(operation, path, [&] { return wide && call(wide.get()); });
}
template <typename Call>
bool patientPathCall(const char* operation, const char* path, Call&& call) {
  const oss::WidePath wide(path);
  return oss::patientCall(operation, path, [&] { return wide && call(wide.get()); });
}

// The attributes at a path; a link's own unless it leads to a directory.
bool attributesOf(const char* path, DWORD* attributes) {
  return pathCall("stat", path, [&](const wchar_t* name) {
    *attributes = ::GetFileAttributesW(name);
    return *attributes != INVALID_FILE_ATTRIBUTES;
  });
}

bool moveFile(const char* source, const char* target, DWORD flags) {
  const oss::WidePath wideTarget(target);
  return patientPathCall("rename", source, [&](const wchar_t* name) {
    return wideTarget && ::MoveFileExW(name, wideTarget.get(), flags) != 0;
  });
}

// Deletes as POSIX does: the name is free at once, whoever has the file open. Newer file systems
// can. False with GetLastError when this one cannot, or there is nothing to delete.
bool deleteAtOnce(const wchar_t* path) {
  constexpr auto dispositionEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(21);
  // Delete; free the name at once; whatever the read-only attribute says.
  DWORD disposition = 0x1 | 0x2 | 0x10;
  const HANDLE handle =
      ::CreateFileW(path, DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return false;
  const bool done =
      ::SetFileInformationByHandle(handle, dispositionEx, &disposition, sizeof disposition) != 0;
  ::CloseHandle(handle);
  return done;
}

// Deletes a file that has given up its name. One that somebody holds for longer than a moment is
// left for a later delete to sweep.
void dispose(const wchar_t* aside) {
  for (unsigned int attempt = 1; !oss::deleteFile(aside); ++attempt) {
    if (!oss::waitAndRetry(::GetLastError(), attempt)) return;
  }
}

// Elsewhere the name of a deleted file stays taken until the last reader has closed it, and the
// next commit could not rename onto it: the file is renamed away first. A name that is taken was
// left by a process that died before its delete, or by such a reader; one more delete decides. So
// does one of the names behind the first free one, of which others were taken at the time.
bool deleteAside(const wchar_t* path) {
  constexpr unsigned int mostNames = 64;
  const std::wstring_view name = path;
  wchar_t aside[OSS_FULL_PATH_SIZE + 16];
  name.copy(aside, name.size());
  const auto number = [&](unsigned int i) {
    (void)std::swprintf(aside + name.size(), 16, L".del%u", i);
  };
  for (unsigned int i = 0; i < mostNames; ++i) {
    number(i);
    if (::MoveFileExW(path, aside, 0) != 0) {
      dispose(aside);
      bool swept = true;
      for (++i; swept && i < mostNames; ++i) {
        number(i);
        swept = oss::deleteFile(aside);
      }
      return true;
    }
    if (::GetLastError() != ERROR_ALREADY_EXISTS && ::GetLastError() != ERROR_FILE_EXISTS) break;
    (void)oss::deleteFile(aside);
  }
  // No name beside it: it is too long, which the system also calls not found, all are taken, or the
  // directory takes no new one.
  return oss::deleteFile(path);
}

bool isNotFound(DWORD error) {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

// Whether what cannot be deleted is a directory, which could be renamed aside, and would stay so.
// That then is the error; else it stays what it was.
bool isDirectory(const wchar_t* path) {
  const DWORD error = ::GetLastError();
  const DWORD attributes = ::GetFileAttributesW(path);
  const bool directory =
      attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  ::SetLastError(directory ? ERROR_DIRECTORY : error);
  return directory;
}

unsigned int removeName(const char* path) {
  return outcome(patientPathCall("unlink", path, [&](const wchar_t* name) {
    if (deleteAtOnce(name)) return true;
    return !isNotFound(::GetLastError()) && !isDirectory(name) && deleteAside(name);
  }));
}

// A lock file that anybody has open is left to whoever that is: the system refuses to delete it.
// Whoever opens it in the moment of the delete is refused for that moment, and tries again.
unsigned int removeLockFile(const char* path) {
  return outcome(patientPathCall("unlink", path, [&](const wchar_t* name) {
    return oss::deleteFile(name) ||
           (!isDirectory(name) && ::GetLastError() == ERROR_SHARING_VIOLATION);
  }));
}

}  // namespace

unsigned int ossDirectoryCreate(const OSSDirectoryCreateParam* param) {
  if (param == nullptr || param->path == nullptr) return OSS_RC_NULL_ARGUMENT;
  if (param->level != OSS_PARAM_LEVEL) return OSS_RC_BAD_PARAMETER;
  const char* path = param->path;
  const bool done = pathCall(
      "mkdir", path, [&](const wchar_t* name) { return ::CreateDirectoryW(name, nullptr) != 0; });
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
         ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0 || oss::askFile(path, &status, nullptr));
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
  return outcome(moveFile(source, target, MOVEFILE_WRITE_THROUGH));
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
  const bool done = moveFile(source, target, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
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
  wchar_t full[OSS_FULL_PATH_SIZE];
  const oss::WidePath wide(path);
  const DWORD units = wide ? ::GetFullPathNameW(wide.get(), OSS_FULL_PATH_SIZE, full, nullptr) : 0;
  if (units == 0) return fail(oss::errnoOf(::GetLastError()));
  if (units >= OSS_FULL_PATH_SIZE) return OSS_RC_BUFFER_TOO_SMALL;
  const std::size_t length = oss::narrow(full, units, oss::Spelled::Path, buffer, size);
  if (length == oss::noText) return fail(oss::errnoOf(::GetLastError()));
  if (length >= size) return OSS_RC_BUFFER_TOO_SMALL;
  buffer[length] = '\0';
  return OSS_RC_OK;
}

unsigned int ossFileSetPermissions(const char* path, std::uint32_t permissions) {
  if (path == nullptr) return OSS_RC_NULL_ARGUMENT;
  BY_HANDLE_FILE_INFORMATION status;
  bool isLink = false;
  if (!oss::askFile(path, &status, &isLink)) return fail(errno);
  if (isLink) return fail(ELOOP);
  const DWORD others = status.dwFileAttributes & ~DWORD{FILE_ATTRIBUTE_READONLY};
  const DWORD wanted =
      others | ((permissions & oss::ownerWrite) == 0 ? FILE_ATTRIBUTE_READONLY : 0);
  return outcome(pathCall("fchmod", path, [&](const wchar_t* name) {
    return ::SetFileAttributesW(name, wanted) != 0;
  }));
}

unsigned int ossFileGetInfoV9(const OSSFileInfoRequest* request, OSSFileInfo* info) {
  if (request == nullptr || request->path == nullptr || info == nullptr) {
    return OSS_RC_NULL_ARGUMENT;
  }
  if (request->level != OSS_PARAM_LEVEL) return OSS_RC_BAD_PARAMETER;
  const char* path = request->path;
  BY_HANDLE_FILE_INFORMATION status;
  bool isLink = false;
  if (!oss::askFile(path, &status, &isLink)) return fail(errno);
  const bool isKeptBehind = (status.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
  if (isKeptBehind && !oss::askFile(path, &status, nullptr)) return fail(errno);
  oss::takeStatus(status, info);
  info->isSymbolicLink = isLink;
  return OSS_RC_OK;
}

std::FILE* ossFileOpenToRead(const char* path) {
  if (path == nullptr) return nullptr;
  const HANDLE handle = oss::openFile(path, {GENERIC_READ, OPEN_EXISTING, true, true}, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return nullptr;
  const int descriptor = oss::descriptorOf(handle, _O_RDONLY | _O_BINARY | _O_NOINHERIT);
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
