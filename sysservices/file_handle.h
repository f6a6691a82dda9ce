// File handles with whole-file locks.
//
// A lock belongs to the open file, not to the process: two handles in one process exclude each
// other as two processes do, and a lock ends when its handle is closed, however the holder ends.
// Locks exclude one another on local file systems only.
#pragma once

#include <cstddef>
#include <cstdint>

#include "sysservices/export.h"

constexpr std::uint32_t OSS_PARAM_LEVEL = 0x09010001u;
constexpr std::size_t OSS_PATH_SIZE = 260;  // bytes of a path, terminator included

constexpr std::uint32_t OSS_ACCESS_READ_WRITE = 2;

constexpr std::uint32_t OSS_OPEN_EXISTING = 1;   // the file must exist; opened for reading
constexpr std::uint32_t OSS_OPEN_LOCK_FILE = 2;  // a lock file, created when missing
constexpr std::uint32_t OSS_OPEN_APPEND = 4;     // created when missing, writes go to the end

constexpr std::uint32_t OSS_OPEN_NO_LINK = 1;  // option: not through a symbolic link

constexpr std::uint32_t OSS_LOCK_EXCLUSIVE = 1;
constexpr std::uint32_t OSS_LOCK_SHARED = 2;

constexpr std::uint32_t OSS_LOCK_WAIT = 1;
constexpr std::uint32_t OSS_LOCK_NOWAIT = 2;

struct OSSFileOpenParam {
  std::uint32_t level;  // OSS_PARAM_LEVEL
  const char* path;     // must stay valid during open() only
  std::uint32_t access;
  std::uint32_t openMode;
  std::uint32_t options;      // 0 or OSS_OPEN_NO_LINK
  std::uint32_t permissions;  // bits of a file that the open creates
  std::uint32_t reserved;
};

struct OSSFileLockParam {
  std::uint32_t level;  // OSS_PARAM_LEVEL
  std::uint32_t lockType;
  std::uint32_t wait;
};

class ZOROSSE_API OSSHFile {
 public:
  OSSHFile() noexcept;
  // Closes the handle when it is still open; that ends its lock.
  ~OSSHFile();
  OSSHFile(const OSSHFile&) = delete;
  OSSHFile& operator=(const OSSHFile&) = delete;

  // Opens a plain file. Its handle is never inherited by a child process, nor one of the standard
  // three.
  // Modes 2 and 4, and any mode on a lock file (mode 2, or a name that ends in ".lock"), do not
  // follow a symbolic link in the last component; a lock file with a second hard link is refused.
  // An open handle is closed first.
  // Returns 0; OSS_RC_FILE_NOT_FOUND; OSS_RC_NOT_A_FILE for a directory, link, device or pipe;
  // OSS_RC_BAD_PARAMETER; or the mapped system error, with lastError() telling the number.
  unsigned int open(const OSSFileOpenParam* param) noexcept;

  // Locks the whole file; a lock that this handle holds already ends first. A lock granted on a
  // lock file is a lock on the file that stands at that path now: where a lock file can be removed
  // while it is open, one that its previous holder removed meanwhile is opened again and the lock
  // taken there (the code of the open when there is none any more), so that at most one holder
  // exists. A thread that already holds a conflicting lock through another handle waits for itself.
  // Returns 0; OSS_RC_LOCK_BUSY when another holder has it and wait is OSS_LOCK_NOWAIT;
  // OSS_RC_BAD_PARAMETER; or the mapped system error.
  unsigned int lock(const OSSFileLockParam* param) noexcept;

  // Ends the lock. Returns 0 or the mapped system error.
  unsigned int unlock() noexcept;

  // Closes the handle; it is closed whatever the result. Returns 0 or the mapped system error.
  // Closing a handle that is not open gives 0.
  unsigned int close() noexcept;

  bool isOpen() const noexcept;
  // The operating-system handle, or -1; still owned by this object.
  std::intptr_t getFileHandle() const noexcept;
  // The operating-system handle, now owned by the caller; this object is closed.
  std::intptr_t releaseFileHandle() noexcept;
  // The system error number (errno) of the last failed call.
  int lastError() const noexcept;

 private:
  bool isLockFile() const noexcept;
  unsigned int reopen() noexcept;
  unsigned int takeLock(bool exclusive, bool wait) noexcept;
  unsigned int fail(int error) noexcept;

  std::intptr_t handle_;
  std::uint32_t openMode_;
  std::uint32_t options_;
  std::uint32_t permissions_;
  int error_;
  char path_[OSS_PATH_SIZE];
};

// True on platforms without shared locks: every lock on a registry file is then exclusive.
extern "C" {
extern ZOROSSE_API bool g_bIsPlatformID_Win32On95;
}
