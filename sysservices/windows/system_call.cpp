// Opening, closing, locking and asking files; the map between the system's error numbers and errno.
#include "sysservices/windows/system_call.h"

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
bool isRefusedForGood(const char* path, DWORD systemError) {
  if (systemError != ERROR_ACCESS_DENIED) return false;
  const DWORD attributes = ::GetFileAttributesA(path);
  return attributes != INVALID_FILE_ATTRIBUTES &&
         (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY)) != 0;
}

int refuse(HANDLE handle, int error) {
  ::CloseHandle(handle);
  return error;
}

// What an open handle leads to must be a plain file on a disk. Returns 0 or the errno.
int checkPlain(HANDLE handle, const FileOpening& opening) {
  if (::GetFileType(handle) != FILE_TYPE_DISK) return refuse(handle, ELOOP);
  if (opening.followsLinks && !opening.hasOneName) return 0;
  BY_HANDLE_FILE_INFORMATION information;
  const bool asked = systemCall(
      "fstat", nullptr, [&] { return ::GetFileInformationByHandle(handle, &information) != 0; });
  if (!asked) return refuse(handle, errno);
  if (!opening.followsLinks && isLink(information.dwFileAttributes)) return refuse(handle, ELOOP);
  if (opening.hasOneName && information.nNumberOfLinks > 1) return refuse(handle, ELOOP);
  return 0;
}

// Asks a file through a handle of its own. False with GetLastError.
bool ask(const char* path, DWORD flags, BY_HANDLE_FILE_INFORMATION* status) {
  const HANDLE handle = ::CreateFileA(
      path, FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
      OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | flags, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return false;
  const bool asked = ::GetFileInformationByHandle(handle, status) != 0;
  const DWORD error = ::GetLastError();
  ::CloseHandle(handle);
  ::SetLastError(error);
  return asked;
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

HANDLE openFile(const char* path, const FileOpening& opening, bool* created) noexcept {
  if (created != nullptr) *created = false;
  if (!passesFaultPoint("open", path)) return INVALID_HANDLE_VALUE;
  const DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE |
                      (opening.canBeRemovedMeanwhile ? DWORD{FILE_SHARE_DELETE} : 0);
  const DWORD flags = (opening.readOnly ? FILE_ATTRIBUTE_READONLY : FILE_ATTRIBUTE_NORMAL) |
                      (opening.followsLinks ? 0 : FILE_FLAG_OPEN_REPARSE_POINT);
  SECURITY_ATTRIBUTES security{sizeof security, opening.security, FALSE};
  SECURITY_ATTRIBUTES* const given = opening.security == nullptr ? nullptr : &security;
  for (unsigned int attempt = 1;; ++attempt) {
    const HANDLE handle =
        ::CreateFileA(path, opening.access, share, given, opening.disposition, flags, nullptr);
    if (handle != INVALID_HANDLE_VALUE) {
      const bool existed = opening.disposition == OPEN_ALWAYS
                               ? ::GetLastError() == ERROR_ALREADY_EXISTS
                               : opening.disposition == OPEN_EXISTING;
      if (created != nullptr) *created = !existed;
      const int error = checkPlain(handle, opening);
      if (error == 0) return handle;
      errno = error;
      return INVALID_HANDLE_VALUE;
    }
    const DWORD error = ::GetLastError();
    const bool forGood = isRefusedForGood(path, error);
    if (!forGood && waitAndRetry(error, attempt)) continue;
    const DWORD attributes = forGood ? ::GetFileAttributesA(path) : 0;
    errno = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? EISDIR : errnoOf(error);
    return INVALID_HANDLE_VALUE;
  }
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

bool askFile(const char* path, DWORD flags, BY_HANDLE_FILE_INFORMATION* status) noexcept {
  return patientCall("stat", path, [&] { return ask(path, flags, status); });
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
