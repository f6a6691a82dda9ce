// File handles: opening, reading, writing, syncing, and whole-file locks.
//
// A lock belongs to the open file, not to the process: two handles in one process exclude each
// other as two processes do, and a lock ends when its handle is closed, however the holder ends.
// Locks exclude one another on local file systems only.
#pragma once

#include <cstddef>
#include <cstdint>

#include "sysservices/export.h"

constexpr std::uint32_t OSS_PARAM_LEVEL = 0x09010001u;
constexpr std::size_t OSS_PATH_SIZE = 260;  // bytes of a path as a caller gives it, with terminator
// Room for a path that was made absolute, with terminator.
constexpr std::size_t OSS_FULL_PATH_SIZE = 4096;

constexpr std::uint32_t OSS_ACCESS_READ_WRITE = 2;

constexpr std::uint32_t OSS_OPEN_EXISTING = 1;   // the file must exist; opened for reading
constexpr std::uint32_t OSS_OPEN_LOCK_FILE = 2;  // a lock file, created when missing
constexpr std::uint32_t OSS_OPEN_APPEND = 4;     // created when missing, stands at its end

constexpr std::uint32_t OSS_OPEN_NO_LINK = 1;       // option: not through a symbolic link
constexpr std::uint32_t OSS_OPEN_AS_LOCK_FILE = 2;  // option: an existing lock file
// Option of OSS_OPEN_EXISTING for whoever reads at once: that it is a plain file is left to the
// caller, who asks getInfo unless the first read gave some bytes, but fewer than were asked for.
constexpr std::uint32_t OSS_OPEN_CHECK_LATER = 4;

constexpr std::uint32_t OSS_LOCK_EXCLUSIVE = 1;
constexpr std::uint32_t OSS_LOCK_SHARED = 2;

constexpr std::uint32_t OSS_LOCK_WAIT = 1;
constexpr std::uint32_t OSS_LOCK_NOWAIT = 2;

struct OSSFileOpenParam {
  std::uint32_t level;  // OSS_PARAM_LEVEL
  const char* path;     // must stay valid until the file is closed
  std::uint32_t access;
  std::uint32_t openMode;
  std::uint32_t options;      // OSS_OPEN_NO_LINK, OSS_OPEN_AS_LOCK_FILE, OSS_OPEN_CHECK_LATER
  std::uint32_t permissions;  // of a file that the open creates, whatever the umask
  std::uint32_t reserved;
};

struct OSSFileLockParam {
  std::uint32_t level;  // OSS_PARAM_LEVEL
  std::uint32_t lockType;
  std::uint32_t wait;
  std::uint64_t limit = 0;  // with OSS_LOCK_WAIT: milliseconds that it waits at most; 0: for ever
};

struct OSSFileInfo {
  std::uint64_t size;  // bytes
  std::uint32_t permissions;
  std::uint32_t owner;
  std::uint32_t group;
  std::uint64_t links;   // names the file has
  bool isFile;           // a plain file, links followed
  bool isSymbolicLink;   // the path itself is a symbolic link
  std::uint64_t device;  // with `file`: which file it is, whatever its names
  std::uint64_t file;
  std::int64_t modified;  // when its bytes last changed, in nanoseconds of the system's clock
  // When anything of it last changed, which nobody can set; on Windows, when its bytes did.
  std::int64_t changed;

  bool isSameFile(const OSSFileInfo& other) const noexcept {
    return device == other.device && file == other.file;
  }
  // Nobody has written to it in between, as far as size and time can show.
  bool isUnchanged(const OSSFileInfo& other) const noexcept {
    return isSameFile(other) && size == other.size && modified == other.modified;
  }
  // Nor has anything else of it changed.
  bool isUntouched(const OSSFileInfo& other) const noexcept {
    return isUnchanged(other) && changed == other.changed;
  }
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
  // Modes 2 and 4, and a lock file in any mode (mode 2, or OSS_OPEN_AS_LOCK_FILE), do not follow a
  // symbolic link in the last component; a lock file with a second hard link is refused.
  // An open handle is closed first.
  // Returns 0; OSS_RC_FILE_NOT_FOUND; OSS_RC_NOT_A_FILE for a directory, link, device or pipe;
  // OSS_RC_BAD_PARAMETER; or the mapped system error, with lastError() giving the number.
  unsigned int open(const OSSFileOpenParam* param) noexcept;

  // Creates a file that must not exist yet, never through a symbolic link, to be read and written.
  // It is open to its owner alone, or to those on the access list of the file `model`, from birth.
  // Returns 0; OSS_RC_FILE_EXISTS; or the mapped system error.
  unsigned int createPrivate(const char* path, const char* model) noexcept;
  // Gives a file that createPrivate made owner, group, access list, permissions and extended
  // attributes (a security label is one) of the file `model`, which `info` describes: as far as the
  // process may. A group that cannot be given gets no more than everybody. Returns 0 or the mapped
  // system error.
  unsigned int takeAttributes(const char* model, const OSSFileInfo& info) noexcept;
  // Lets those who may write the file that `info` describes open this lock file, too. Best effort.
  void shareWithWriters(const OSSFileInfo& info) noexcept;

  // Opens the file that `other` has open once more; both share one lock, which ends when both are
  // closed or one ends it. Returns 0 or the mapped system error.
  unsigned int duplicate(const OSSHFile& other) noexcept;

  // Locks the whole file; a lock that this handle holds already ends first. A lock granted on a
  // lock file is a lock on the file that stands at that path now: where a lock file can be removed
  // while it is open, one that its previous holder removed meanwhile is opened again and the lock
  // taken there (the code of the open when there is none any more), so that at most one holder
  // exists. A thread that already holds a conflicting lock through another handle waits for itself.
  // A wait of more than two seconds is logged once, and the end of one that `limit` ends, with the
  // file and, where the system knows it,
  // the process that has the lock.
  // Returns 0; OSS_RC_LOCK_BUSY when another holder has it and wait is OSS_LOCK_NOWAIT, or still
  // has it after `limit`; OSS_RC_BAD_PARAMETER; or the mapped system error.
  unsigned int lock(const OSSFileLockParam* param) noexcept;

  // Ends the lock. Returns 0 or the mapped system error.
  unsigned int unlock() noexcept;

  // Reads up to `count` bytes from `offset` on and stores how many at `done`: fewer only at the end
  // of the file. Returns 0 or the mapped system error; what was read before it is in `done`.
  unsigned int readAt(void* bytes, std::size_t count, std::uint64_t offset,
                      std::size_t* done) noexcept;
  // The same with one call to the system, which may give fewer bytes before the end, too.
  unsigned int readSome(void* bytes, std::size_t count, std::uint64_t offset,
                        std::size_t* done) noexcept;
  // Writes all of `count` bytes at `offset`. Returns 0 or the mapped system error.
  unsigned int writeAt(const void* bytes, std::size_t count, std::uint64_t offset) noexcept;
  // Waits until what was written is on stable storage. Returns 0 or the mapped system error.
  unsigned int sync() noexcept;
  // Cuts the file off, or fills it up with zeros. Returns 0 or the mapped system error.
  unsigned int truncate(std::uint64_t size) noexcept;
  // What the open file is now. Returns 0 or the mapped system error.
  unsigned int getInfo(OSSFileInfo* info) noexcept;
  // Whether the open file is the one that `path` names; false when that cannot be known, too.
  bool isAt(const char* path) noexcept;

  // Closes the handle; it is closed whatever the result. Returns 0 or the mapped system error.
  // Closing a handle that is not open gives 0.
  unsigned int close() noexcept;

  bool isOpen() const noexcept;
  // Whether the open created the file.
  bool wasCreated() const noexcept { return created_; }
  // The operating-system handle, or -1; still owned by this object.
  std::intptr_t getFileHandle() const noexcept;
  // The system error number (errno) of the last failed call.
  int lastError() const noexcept;

 private:
  bool isLockFile() const noexcept;
  bool isOnlyRead() const noexcept { return (options_ & OSS_OPEN_CHECK_LATER) != 0; }
  int thisProcess() const noexcept;
  void startAnew(const char* path, std::uint32_t openMode, std::uint32_t options) noexcept;
  unsigned int reopen() noexcept;
  unsigned int takeLock(bool exclusive, bool wait) noexcept;
  unsigned int waitForLock(bool exclusive, std::uint64_t limit) noexcept;
  unsigned int fail(int error) noexcept;

  std::intptr_t handle_ = -1;
  std::uint32_t openMode_ = 0;
  std::uint32_t options_ = 0;
  std::uint32_t permissions_ = 0;
  int error_ = 0;
  bool created_ = false;
  int lockOwner_ = 0;       // the process that took the lock: a child it forked must not end it
  unsigned int forks_ = 0;  // of that process before it took it
  const char* path_ = "";
};

// True on platforms without shared locks: every lock on a registry file is then exclusive.
extern "C" {
extern ZOROSSE_API bool g_bIsPlatformID_Win32On95;
}
