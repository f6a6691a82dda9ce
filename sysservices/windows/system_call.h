// System calls as the services make them on Windows: past the fault hook, errors reported by errno,
// and patient with whoever holds a file for a moment.
#pragma once

#include <windows.h>

#include <cerrno>
#include <utility>

#include "sysservices/export.h"
#include "sysservices/fault_hook.h"
#include "sysservices/file_handle.h"
#include "sysservices/windows/wide_text.h"

namespace oss {

// An error number of the system as errno, and back; a number without a counterpart is EIO, or stays
// what it is. The library above asks for the second one.
int errnoOf(DWORD systemError) noexcept;
ZOROSSE_API DWORD systemErrorOf(int error) noexcept;

// False, with errno, when a test wants the operation to fail.
bool passesFaultPoint(const char* operation, const char* path) noexcept;

// Waits a little before try number `attempt` (from 1) of a call that failed with `systemError`.
// False when waiting cannot help: a virus scanner, an indexer or a delete that is under way lets go
// of a file within milliseconds, everything else stays as it is.
bool waitAndRetry(DWORD systemError, unsigned int attempt) noexcept;

// Makes one system call that reports failure as false with GetLastError.
template <typename Call>
bool systemCall(const char* operation, const char* path, Call&& call) {
  if (!passesFaultPoint(operation, path)) return false;
  if (call()) return true;
  errno = errnoOf(::GetLastError());
  return false;
}

// The same for a call that another process's passing interest in the file may refuse.
template <typename Call>
bool patientCall(const char* operation, const char* path, Call&& call) {
  if (!passesFaultPoint(operation, path)) return false;
  for (unsigned int attempt = 1;; ++attempt) {
    if (call()) return true;
    const DWORD error = ::GetLastError();
    if (waitAndRetry(error, attempt)) continue;
    errno = errnoOf(error);
    return false;
  }
}

// What permission bits there are: the attribute that keeps a file from being written. Who else may
// read a file is said by its access list, which every file of a registry takes over.
constexpr std::uint32_t ownerRead = 0400;
constexpr std::uint32_t ownerWrite = 0200;

// How to open a file. Its handle is never inherited.
struct FileOpening {
  DWORD access;
  DWORD disposition;           // CREATE_NEW, OPEN_EXISTING or OPEN_ALWAYS
  bool canBeRemovedMeanwhile;  // others may rename and delete the file while it is open
  bool followsLinks;           // else a link at the path is refused
  bool hasOneName = false;     // a file with a second name is refused
  DWORD attributes = 0;        // of a file that the open creates, FILE_ATTRIBUTE_...
  SECURITY_DESCRIPTOR* security = nullptr;  // of a file that the open creates; null: inherited
};

// Deletes a file, although it may not be written. False with GetLastError.
bool deleteFile(const wchar_t* path) noexcept;

// Opens a plain file on a disk, past the fault point "open"; INVALID_HANDLE_VALUE with errno for
// anything else, and nothing stays that CREATE_NEW made. `created` receives whether the open made
// the file; it may be null.
HANDLE openFile(const char* path, const FileOpening& opening, bool* created) noexcept;

// Closes a handle once; returns 0 or the error number.
int closeHandle(HANDLE handle) noexcept;

// Takes, without the fault hook, or gives back the lock that all holders of a file compete for.
bool lockHandle(HANDLE handle, DWORD flags) noexcept;
bool unlockHandle(HANDLE handle) noexcept;

// The runtime library's number for a handle, which it owns from then on; -1, with the handle
// closed, when there is none left. Never one of the standard three: a host that closed one of those
// must not find a registry file in its place.
ZOROSSE_API int descriptorOf(HANDLE handle, int flags) noexcept;

// What stands at a path is asked through a handle of its own, whoever else has it open: what the
// directory says of a file lags behind. With `isLink` null a link is followed, else it is asked
// itself. False with errno.
bool askFile(const char* path, BY_HANDLE_FILE_INFORMATION* status, bool* isLink) noexcept;

// A time of the system, in nanoseconds from the beginning of 1970.
std::int64_t nanosecondsOf(const FILETIME& time) noexcept;

// What a file's status says, for a caller of the services.
void takeStatus(const BY_HANDLE_FILE_INFORMATION& status, OSSFileInfo* info) noexcept;

// What there is to do after renames to make the names in a directory durable: nothing, since each
// rename is written through. Returns 0 or the error number of the fault hook.
int syncDirectoryOf(const char* path) noexcept;

// Whether a file with these attributes and this reparse tag is a link, that is, a name of something
// else. What is kept in a cloud, deduplicated or compressed by the system is a file all the same.
constexpr bool isLink(DWORD attributes, DWORD tag) {
  constexpr DWORD nameSurrogate = 0x20000000;
  return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 && (tag & nameSurrogate) != 0;
}

}  // namespace oss
