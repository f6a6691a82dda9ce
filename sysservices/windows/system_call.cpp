// Opening, closing, locking and asking files; the map between the system's error numbers and errno.
#include "sysservices/windows/system_call.h"

#include <io.h>

namespace oss {
namespace {

struct ErrorRow {
  DWORD systemError;
  int error;
};

constexpr DWORD quotaExceeded = 1295;  // ERROR_DISK_QUOTA_EXCEEDED, which not every header has

// The first row of an errno is the number that it is turned into.
constexpr ErrorRow errorRows[] = {
    {ERROR_FILE_NOT_FOUND, ENOENT},
    {ERROR_PATH_NOT_FOUND, ENOENT},
    {ERROR_INVALID_DRIVE, ENOENT},
    {ERROR_BAD_NETPATH, ENOENT},
    {ERROR_BAD_NET_NAME, ENOENT},
    {ERROR_ACCESS_DENIED, EACCES},
    {ERROR_SHARING_VIOLATION, EACCES},
    {ERROR_DELETE_PENDING, EACCES},
    {ERROR_PRIVILEGE_NOT_HELD, EPERM},
    {ERROR_WRITE_PROTECT, EROFS},
    {ERROR_ALREADY_EXISTS, EEXIST},
    {ERROR_FILE_EXISTS, EEXIST},
    {ERROR_DIR_NOT_EMPTY, ENOTEMPTY},
    {ERROR_NOT_ENOUGH_MEMORY, ENOMEM},
    {ERROR_OUTOFMEMORY, ENOMEM},
    {ERROR_NO_SYSTEM_RESOURCES, ENOMEM},
    {ERROR_DISK_FULL, ENOSPC},
    {ERROR_HANDLE_DISK_FULL, ENOSPC},
    {quotaExceeded, ENOSPC},
    {ERROR_FILE_TOO_LARGE, EFBIG},
    {ERROR_TOO_MANY_OPEN_FILES, EMFILE},
    {ERROR_LOCK_VIOLATION, EWOULDBLOCK},
    {ERROR_IO_PENDING, EWOULDBLOCK},
    {ERROR_INVALID_HANDLE, EBADF},
    {ERROR_INVALID_PARAMETER, EINVAL},
    {ERROR_NEGATIVE_SEEK, EINVAL},
    {ERROR_INVALID_NAME, ENOENT},
    {ERROR_NO_UNICODE_TRANSLATION, EILSEQ},
    {ERROR_FILENAME_EXCED_RANGE, ENAMETOOLONG},
    {ERROR_CANT_RESOLVE_FILENAME, ELOOP},
    {ERROR_DIRECTORY, EISDIR},
    {ERROR_NOT_SUPPORTED, ENOTSUP},
    {ERROR_INVALID_FUNCTION, ENOTSUP},
    {ERROR_CALL_NOT_IMPLEMENTED, ENOTSUP},
};

// One byte, far behind whatever a file can hold: a lock on bytes that are read or written would
// stop reads and writes through other handles, of the holder itself even.
constexpr OVERLAPPED lockedPlace() {
  OVERLAPPED place{};
  place.Offset = 0xFFFFFFFE;
  place.OffsetHigh = 0x7FFFFFFF;
  return place;
}

// A refusal that will not change: the path names a directory, or a file that nobody may write.
bool isRefusedForGood(const WidePath& path, DWORD systemError) {
  if (systemError != ERROR_ACCESS_DENIED) return false;
  const DWORD attributes = ::GetFileAttributesW(path.get());
  return attributes != INVALID_FILE_ATTRIBUTES &&
         (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY)) != 0;
}

bool tellStatus(HANDLE handle, BY_HANDLE_FILE_INFORMATION* status) {
  return systemCall("fstat", nullptr,
                    [&] { return ::GetFileInformationByHandle(handle, status) != 0; });
}

// Whether a handle that was opened without following is that of a link. One whose tag the system
// does not tell is taken for one.
bool isLinkHandle(HANDLE handle, DWORD attributes) {
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return false;
  FILE_ATTRIBUTE_TAG_INFO tag;
  const bool told =
      ::GetFileInformationByHandleEx(handle, FileAttributeTagInfo, &tag, sizeof tag) != 0;
  return !told || isLink(tag.FileAttributes, tag.ReparseTag);
}

// One try to open a file as `opening` wants it; INVALID_HANDLE_VALUE with GetLastError.
HANDLE tryOpen(const WidePath& path, const FileOpening& opening, bool follows) {
  const DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE |
                      (opening.canBeRemovedMeanwhile ? DWORD{FILE_SHARE_DELETE} : 0);
  const DWORD attributes = opening.attributes != 0 ? opening.attributes : FILE_ATTRIBUTE_NORMAL;
  SECURITY_ATTRIBUTES security{sizeof security, opening.security, FALSE};
  return ::CreateFileW(path.get(), opening.access, share,
                       opening.security == nullptr ? nullptr : &security, opening.disposition,
                       attributes | (follows ? 0 : FILE_FLAG_OPEN_REPARSE_POINT), nullptr);
}

// Opens, in place of a handle to what a file is kept in by the system, the file itself. 0 or the
// errno; the handle is none then.
int openBehind(const WidePath& path, FileOpening opening, HANDLE* handle,
               const BY_HANDLE_FILE_INFORMATION& kept) {
  opening.disposition = OPEN_EXISTING;
  const HANDLE behind = tryOpen(path, opening, true);
  int error = behind == INVALID_HANDLE_VALUE ? errnoOf(::GetLastError()) : 0;
  ::CloseHandle(std::exchange(*handle, behind));
  BY_HANDLE_FILE_INFORMATION status;
  if (error == 0 && !tellStatus(behind, &status)) error = errno;
  if (error == 0 && (status.dwVolumeSerialNumber != kept.dwVolumeSerialNumber ||
                     status.nFileIndexHigh != kept.nFileIndexHigh ||
                     status.nFileIndexLow != kept.nFileIndexLow)) {
    error = ELOOP;  // another one meanwhile
  }
  return error;
}

// What an open handle leads to must be a plain file on a disk. Returns 0 or the errno.
int checkPlain(const WidePath& path, const FileOpening& opening, HANDLE* handle) {
  if (::GetFileType(*handle) != FILE_TYPE_DISK) return ELOOP;
  if (opening.followsLinks && !opening.hasOneName) return 0;
  BY_HANDLE_FILE_INFORMATION status;
  if (!tellStatus(*handle, &status)) return errno;
  if (opening.hasOneName && status.nNumberOfLinks > 1) return ELOOP;
  if (opening.followsLinks) return 0;
  if (isLinkHandle(*handle, status.dwFileAttributes)) return ELOOP;
  const bool isKept = (status.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
  return isKept ? openBehind(path, opening, handle, status) : 0;
}

// Asks a file through a handle of its own. False with GetLastError.
bool ask(const WidePath& path, BY_HANDLE_FILE_INFORMATION* status, bool* isLink) {
  const DWORD flags =
      FILE_FLAG_BACKUP_SEMANTICS | (isLink == nullptr ? 0 : FILE_FLAG_OPEN_REPARSE_POINT);
  const HANDLE handle = ::CreateFileW(path.get(), FILE_READ_ATTRIBUTES,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, flags, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return false;
  const bool asked = ::GetFileInformationByHandle(handle, status) != 0;
  const DWORD error = ::GetLastError();
  if (asked && isLink != nullptr) *isLink = isLinkHandle(handle, status->dwFileAttributes);
  ::CloseHandle(handle);
  ::SetLastError(error);
  return asked;
}

// Whether the attribute that forbids writing also forbade a delete, and is off now.
bool clearedReadOnly(const wchar_t* path) {
  const DWORD attributes = ::GetFileAttributesW(path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0 &&
         ::SetFileAttributesW(path, attributes & ~DWORD{FILE_ATTRIBUTE_READONLY}) != 0;
}

constexpr std::uint64_t whole(DWORD high, DWORD low) { return std::uint64_t{high} << 32 | low; }

}  // namespace

int errnoOf(DWORD systemError) noexcept {
  for (const ErrorRow& row : errorRows) {
    if (row.systemError == systemError) return row.error;
  }
  return EIO;
}

DWORD systemErrorOf(int error) noexcept {
  for (const ErrorRow& row : errorRows) {
    if (row.error == error) return row.systemError;
  }
  return static_cast<DWORD>(error);
}

bool passesFaultPoint(const char* operation, const char* path) noexcept {
  for (;;) {
    const int fault = ossFaultPoint(operation, path);
    if (fault <= 0) return true;
    if (fault == EINTR) continue;  // no call is interrupted here
    errno = fault;
    return false;
  }
}

bool waitAndRetry(DWORD systemError, unsigned int attempt) noexcept {
  constexpr unsigned int lastAttempt = 10;
  constexpr DWORD longestWait = 50;  // milliseconds; all waits together are about a quarter second
  const bool passes = systemError == ERROR_SHARING_VIOLATION ||
                      systemError == ERROR_LOCK_VIOLATION || systemError == ERROR_ACCESS_DENIED ||
                      systemError == ERROR_DELETE_PENDING;
  if (!passes || attempt >= lastAttempt) return false;
  const DWORD wait = DWORD{1} << (attempt - 1);
  ::Sleep(wait < longestWait ? wait : longestWait);
  return true;
}

bool deleteFile(const wchar_t* path) noexcept {
  return ::DeleteFileW(path) != 0 || (::GetLastError() == ERROR_ACCESS_DENIED &&
                                      clearedReadOnly(path) && ::DeleteFileW(path) != 0);
}

HANDLE openFile(const char* path, const FileOpening& opening, bool* created) noexcept {
  if (created != nullptr) *created = false;
  if (!passesFaultPoint("open", path)) return INVALID_HANDLE_VALUE;
  const WidePath wide(path);
  errno = wide ? 0 : errnoOf(::GetLastError());
  for (unsigned int attempt = 1; wide; ++attempt) {
    HANDLE handle = tryOpen(wide, opening, opening.followsLinks);
    if (handle != INVALID_HANDLE_VALUE) {
      const bool existed = opening.disposition == OPEN_ALWAYS
                               ? ::GetLastError() == ERROR_ALREADY_EXISTS
                               : opening.disposition == OPEN_EXISTING;
      if (created != nullptr) *created = !existed;
      const int error = checkPlain(wide, opening, &handle);
      if (error == 0) return handle;
      if (handle != INVALID_HANDLE_VALUE) ::CloseHandle(handle);
      if (opening.disposition == CREATE_NEW) (void)deleteFile(wide.get());
      errno = error;
      break;
    }
    const DWORD error = ::GetLastError();
    const bool forGood = isRefusedForGood(wide, error);
    if (!forGood && waitAndRetry(error, attempt)) continue;
    const DWORD attributes = forGood ? ::GetFileAttributesW(wide.get()) : 0;
    errno = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? EISDIR : errnoOf(error);
    break;
  }
  return INVALID_HANDLE_VALUE;
}

int descriptorOf(HANDLE handle, int flags) noexcept {
  constexpr int firstFree = 3;
  int low[firstFree];
  int count = 0;
  int descriptor = -1;
  for (;;) {
    descriptor = ::_open_osfhandle(reinterpret_cast<std::intptr_t>(handle), flags);
    if (descriptor < 0) ::CloseHandle(handle);
    if (descriptor < 0 || descriptor >= firstFree) break;
    low[count++] = descriptor;
    HANDLE copy = nullptr;
    const HANDLE self = ::GetCurrentProcess();
    if (!::DuplicateHandle(self, handle, self, &copy, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
      descriptor = -1;
      break;
    }
    handle = copy;
  }
  while (count > 0) ::_close(low[--count]);
  return descriptor;
}

int closeHandle(HANDLE handle) noexcept {
  const int fault = ossFaultPoint("close", nullptr);
  const int error = ::CloseHandle(handle) != 0 ? 0 : errnoOf(::GetLastError());
  return fault > 0 ? fault : error;
}

bool lockHandle(HANDLE handle, DWORD flags) noexcept {
  OVERLAPPED place = lockedPlace();
  return ::LockFileEx(handle, flags, 0, 1, 0, &place) != 0;
}

bool unlockHandle(HANDLE handle) noexcept {
  OVERLAPPED place = lockedPlace();
  return ::UnlockFileEx(handle, 0, 1, 0, &place) != 0;
}

bool askFile(const char* path, BY_HANDLE_FILE_INFORMATION* status, bool* isLink) noexcept {
  const WidePath wide(path);
  return patientCall("stat", path, [&] { return wide && ask(wide, status, isLink); });
}

// The system counts tenths of microseconds from the beginning of 1601.
std::int64_t nanosecondsOf(const FILETIME& time) noexcept {
  constexpr std::int64_t nanosecondsOfTick = 100;
  constexpr std::int64_t beginningOf1970 = 116444736000000000;
  const auto ticks = static_cast<std::int64_t>(whole(time.dwHighDateTime, time.dwLowDateTime));
  return (ticks - beginningOf1970) * nanosecondsOfTick;
}

void takeStatus(const BY_HANDLE_FILE_INFORMATION& status, OSSFileInfo* info) noexcept {
  const bool readOnly = (status.dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0;
  info->size = whole(status.nFileSizeHigh, status.nFileSizeLow);
  info->permissions = readOnly ? ownerRead : ownerRead | ownerWrite;
  info->owner = 0;
  info->group = 0;
  info->links = status.nNumberOfLinks;
  info->isFile = (status.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
  info->isSymbolicLink = false;
  info->device = status.dwVolumeSerialNumber;
  info->file = whole(status.nFileIndexHigh, status.nFileIndexLow);
  info->modified = nanosecondsOf(status.ftLastWriteTime);
  info->changed = info->modified;
}

int syncDirectoryOf(const char* path) noexcept {
  return passesFaultPoint("fsync", path) ? 0 : errno;
}

}  // namespace oss
