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

// What permission bits there are: the attribute that keeps a file from being written. Who else may
// read a file is said by its access list, which every file of a registry takes over.
constexpr std::uint32_t ownerWrite = 0200;
constexpr std::uint32_t readWrite = 0600;

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

// An open handle to ask a file with, whoever else has it open.
class Inquiry {
 public:
  Inquiry(const char* path, DWORD flags)
      : handle_(::CreateFileA(path, FILE_READ_ATTRIBUTES,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | flags, nullptr)) {}
  ~Inquiry() {
    if (handle_ != INVALID_HANDLE_VALUE) ::CloseHandle(handle_);
  }
  Inquiry(const Inquiry&) = delete;
  Inquiry& operator=(const Inquiry&) = delete;

  bool answer(BY_HANDLE_FILE_INFORMATION* information) const {
    return handle_ != INVALID_HANDLE_VALUE &&
           ::GetFileInformationByHandle(handle_, information) != 0;
  }

 private:
  HANDLE handle_;
};

bool informationOf(const char* path, DWORD flags, BY_HANDLE_FILE_INFORMATION* information) {
  return oss::patientCall("stat", path, [&] { return Inquiry(path, flags).answer(information); });
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
// left by a process that died before its delete, or by such a reader; one more delete tells which.
bool deleteAside(const char* path) {
  const DWORD attributes = ::GetFileAttributesA(path);
  if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    ::SetLastError(ERROR_DIRECTORY);  // a directory could be renamed, and would stay so
    return false;
  }
  constexpr unsigned int mostNames = 64;
  char aside[OSS_PATH_SIZE + 16];
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

unsigned int removeName(const char* path) {
  return outcome(
      oss::patientCall("unlink", path, [&] { return deleteAtOnce(path) || deleteAside(path); }));
}

// A lock file that anybody has open is left to whoever that is: the system refuses to delete it.
// Whoever opens it in the moment of the delete is refused for that moment, and tries again.
unsigned int removeLockFile(const char* path) {
  bool inUse = false;
  const bool done = oss::patientCall("unlink", path, [&] {
    if (deleteFile(path)) return true;
    inUse = ::GetLastError() == ERROR_SHARING_VIOLATION;
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
  BY_HANDLE_FILE_INFORMATION information;
  return (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0 &&
         (!oss::isLink(attributes) || Inquiry(path, 0).answer(&information));
}

bool ossPathExists(const char* path) {
  DWORD attributes = 0;
  return path != nullptr && attributesOf(path, &attributes);
}

unsigned int ossFileDelete(const char* path) {
  if (path == nullptr) return OSS_RC_NULL_ARGUMENT;
  return oss::isLockFileName(path) ? removeLockFile(path) : removeName(path);
}

// Neither onto an existing file nor by a copy; on stable storage before it returns, which is what
// makes a commit durable.
unsigned int ossFileRename(const char* source, const char* target) {
  if (source == nullptr || target == nullptr) return OSS_RC_NULL_ARGUMENT;
  return outcome(oss::patientCall("rename", source, [&] {
    return ::MoveFileExA(source, target, MOVEFILE_WRITE_THROUGH) != 0;
  }));
}

unsigned int ossFileSetPermissions(const char* path, std::uint32_t permissions) {
  if (path == nullptr) return OSS_RC_NULL_ARGUMENT;
  DWORD attributes = 0;
  if (!attributesOf(path, &attributes)) return fail(errno);
  if (oss::isLink(attributes)) return fail(ELOOP);
  const DWORD others = attributes & ~DWORD{FILE_ATTRIBUTE_READONLY};
  const DWORD wanted = others | ((permissions & ownerWrite) == 0 ? FILE_ATTRIBUTE_READONLY : 0);
  return outcome(
      oss::systemCall("fchmod", path, [&] { return ::SetFileAttributesA(path, wanted) != 0; }));
}

unsigned int ossFileGetInfoV9(const OSSFileInfoRequest* request, OSSFileInfo* info) {
  if (request == nullptr || request->path == nullptr || info == nullptr) {
    return OSS_RC_NULL_ARGUMENT;
  }
  if (request->level != OSS_PARAM_LEVEL) return OSS_RC_BAD_PARAMETER;
  BY_HANDLE_FILE_INFORMATION information;
  if (!informationOf(request->path, FILE_FLAG_OPEN_REPARSE_POINT, &information)) return fail(errno);
  const bool link = oss::isLink(information.dwFileAttributes);
  if (link && !informationOf(request->path, 0, &information)) return fail(errno);
  const DWORD attributes = information.dwFileAttributes;
  info->size = std::uint64_t{information.nFileSizeHigh} << 32 | information.nFileSizeLow;
  info->permissions =
      (attributes & FILE_ATTRIBUTE_READONLY) != 0 ? readWrite & ~ownerWrite : readWrite;
  info->owner = 0;
  info->group = 0;
  info->links = information.nNumberOfLinks;
  info->isFile = (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
  info->isSymbolicLink = link;
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

int ossFileLastError() { return lastError; }
