// The protocol that keeps a registry: lock, recovery, leftovers, open, close, commit, unlock. All
// of it is in this class; nothing else creates, renames or deletes a registry's files. What opens
// them is in session_files.cpp, what reads in session_reads.cpp, the rest in session.cpp.
//
// Files of a registry NAME in the directory DIR:
//   NAME           the records
//   DIR/.NAME.lock the update lock; from the commit on also what the holder is putting in place
//   NAME.tmp       the new content of an update
//   DIR/.NAME.bkp  the registry file that a commit is replacing
//   NAME.cor       the temporary file of an update that did not finish
//   NAME.old...    a file at the backup's name that was not this registry's own leftover
//
// Invariants. The code names the one that a step keeps.
//   I1  One writer: whoever changes a file of the registry holds the exclusive lock on the file
//       that stands at the lock's name. The temporary file is locked, too, by the one who writes
//       it: a lock file that a third party removes lets nobody else at it.
//   I2  What NAME shows is always one committed content as a whole; where the file system has hard
//       links, the name is never missing either.
//   I3  A content is committed only once it is on stable storage, and the names are on stable
//       storage before the old content goes.
//   I4  A commit replaces what was read and nothing else: registry, temporary file and lock are
//       still the files that were opened, and nobody has written to the registry meanwhile.
//   I5  Recovery destroys nothing that it cannot prove to be this registry's own leftover.
//   I6  No file of the registry is ever open to more people than the registry file is.
//
// The commit, and what a crash behind a step leaves:
//
//   step                            | NAME | backup | readers find | the next update
//   --------------------------------+------+--------+--------------+---------------------------
//   0 temporary synced and closed   | old  | -      | old          | sets the temporary aside
//   1 the lock file says what comes | old  | -      | old          | sets the temporary aside
//   with hard links:
//   2 backup becomes a second link  | old  | old    | old          | drops the link
//   3 temporary and NAME exchanged  | new  | old    | new          | drops the backup: step 1 shows
//     and the temporary's name goes |      |        |              |   that it is the commit's own
//   without:                        |      |        |              |
//   2 NAME renamed to the backup    | -    | old    | old (backup) | renames it back
//   3 temporary renamed to NAME     | new  | old    | new          | drops the backup
//   4 directory synced              | new  | old    | new          | drops the backup
//   5 backup deleted                | new  | -      | new          | -
//
// A power cut may take the line of step 1; the backup then is set aside, not dropped.
//
// Recovery comes before every existence check of an update, is one rename or one delete under the
// update lock, and so may itself be killed anywhere.
#pragma once

#include <cstdint>

#include "genreg/core/diagnostics.h"
#include "genreg/core/file.h"
#include "genreg_handle.h"
#include "platform/text_lines.h"

namespace genreg {

class CachedReads;
class Pending;

class Session {
 public:
  explicit Session(GenRegFile& handle) noexcept : handle_(handle) {}
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Resolves the handle's file names, which were just set, when they are relative: once, so that
  // the files stay the same whatever becomes of the current directory. Returns 0 or
  // OSS_RC_NO_MEMORY.
  Code resolveNames() noexcept;

  // --- the session routines, as the handle's header describes them ---

  Code lock(std::uint64_t request) noexcept;
  Code unlock() noexcept;
  Code open(std::uint64_t kind) noexcept;
  Code close(std::uint64_t kind) noexcept;

  // --- for the operations ---

  Cause& cause() noexcept { return cause_; }
  void setLockLimit(std::uint64_t milliseconds) noexcept { lockLimit_ = milliseconds; }

  // Whether a line of a text that an update writes ends in a carriage return and a newline where
  // the one does that it replaces or follows.
  void keepReturns(bool on) noexcept { keepsReturns_ = on; }
  bool keepsReturns() const noexcept { return keepsReturns_; }

  // Whether content is kept between reads; what is kept goes, unless an open scan reads it.
  void setCachedReads(bool on) noexcept;
  // The registry's content, kept from an earlier read or now, in place of opening the file; null
  // when it is not to be kept, or cannot be read as simply as that.
  CachedReads* cachedReads() noexcept;

  // The file that a scan reads, and the end of that: File::close()'s error number.
  File& scanned() noexcept { return *scanned_; }
  bool scanCached() noexcept;
  int endScan() noexcept;

  // The registry file and the temporary file, while they are open.
  File& main() noexcept { return main_; }
  File& second() noexcept { return second_; }
  const char* registryPath() const noexcept { return name(0); }

  bool isScanning() const noexcept { return hasStatus(GENREG_STATUS_SCAN_OPEN); }
  // An operation of that kind writes to the registry file itself: no temporary file, no commit, no
  // verification.
  bool appendsInPlace(std::uint64_t kind) const noexcept;
  // Whether what was last written to the temporary file is on stable storage.
  bool temporaryIsDurable() const noexcept { return temporaryDurable_; }
  // Asks for the size of the file that stands at the registry's name. ossFileGetInfoV9's code.
  Code askSize(std::uint64_t* size) const noexcept;
  // Deletes the temporary file of an update that has nothing to commit, unless close() has done so.
  // ossFileDelete's code.
  Code deleteTemporary() noexcept;
  // An update of many changes, under the lock, in place of open(): opens the registry file, if
  // there is one, with all of its content in the window of main(). Nothing is written but what an
  // update finds to be put back or set aside. open()'s codes, and GENREG_RC_READ_FAILED.
  Code openContent() noexcept;
  // Creates the temporary file of its commit, and the registry file where there was none. The
  // content stays. open()'s codes.
  Code openForCommit() noexcept;
  // Ends it: no operation works on the pending content any more.
  void endMany() noexcept;
  // The pending content, in an update of many changes.
  Pending* pending() noexcept { return pending_; }

  // Closes the files of a repair and commits, the old registry file becoming the corrupt file.
  // close()'s code.
  Code replaceDamaged() noexcept;
  // Whether the update that holds the lock is committed.
  bool isCommitted() const noexcept;
  // After an unlock that failed: ends the lock with its handle, or the handle's next update would
  // be refused and every other writer would wait for ever. Nothing to do when the lock is not held.
  void dropLock() noexcept;

  // Opens and locks the registry file to be read, or its backup while only that exists. Returns 0
  // or the routine's code, logged from probe point `point` on; but GENREG_RC_NO_FILE, not logged,
  // when there is neither, unless it `mustExist`. Writes nothing.
  Code openReadable(Routine& routine, bool mustExist, unsigned int point) noexcept;

  // Makes the handle's streams stand for the open files, and ends that. Null without one.
  bool showStreams() noexcept;
  void hideStreams() noexcept;

 private:
  const char* name(unsigned int which) const noexcept;
  const char* backupPath() const noexcept { return name(1); }
  const char* temporaryPath() const noexcept { return name(2); }
  const char* corruptPath() const noexcept { return name(3); }
  const char* lockPath() const noexcept { return name(4); }
  Code finish(std::uint64_t kind, bool commits) noexcept;
  bool hasStatus(std::uint64_t bits) const noexcept;
  bool hasFeature(std::uint64_t feature) const noexcept;
  bool commits(std::uint64_t kind) const noexcept;

  bool createDirectory(Routine& routine, std::uint32_t purpose, unsigned int point) noexcept;
  bool recover(Routine& routine) noexcept;
  bool dropBackup(Routine& routine, const OSSFileInfo& backup) noexcept;
  bool isOwnBackup(const OSSFileInfo& registry, const OSSFileInfo& backup) noexcept;
  Code setBackupAside() noexcept;
  enum class Step { Open, Lock, Begin };
  Code openToRead(File& file, const char* path, std::uint32_t options, Step* failed) noexcept;
  void dropCache() noexcept;
  bool openRegistry(Routine& routine, std::uint64_t kind) noexcept;
  bool setLeftoversAside(Routine& routine, std::uint64_t kind) noexcept;
  bool setLeftoverAside(Routine& routine, bool* waited) noexcept;
  Code lockLeftover(OSSHFile& leftover, bool* waited) noexcept;
  bool openTemporary(Routine& routine, std::uint64_t kind) noexcept;
  bool openWritten(Routine& routine) noexcept;
  bool createTemporary(Routine& routine, const OSSFileInfo& registry) noexcept;
  bool claimTemporary() noexcept;
  void finishFiles(Routine& routine, std::uint64_t kind) noexcept;
  void commit(Routine& routine) noexcept;
  bool isUntouched(Routine& routine, OSSFileInfo* made) noexcept;
  bool announce(const OSSFileInfo& made) noexcept;
  bool replaceRegistry(Routine& routine, bool* linked) noexcept;
  Code exchangeRegistry() noexcept;
  bool settle(Routine& routine, bool linked) noexcept;
  bool goBack(bool linked) noexcept;
  void endOld(Routine& routine) noexcept;

  GenRegFile& handle_;
  char smallWindow_[4096];
  File main_{smallWindow_, sizeof smallWindow_};
  File second_;
  File* scanned_ = &main_;
  CachedReads* cache_ = nullptr;
  bool caches_ = false;
  bool keepsReturns_ = platform::linesEndInReturn;
  OSSHFile claim_;        // the temporary file again, with its writer's lock, until it is in place
  OSSHFile old_;          // the registry file again, while a commit replaces it
  OSSFileInfo opened_{};  // the registry file as the update opened it
  char* fullNames_ = nullptr;  // of a registry that was named by a relative path
  std::size_t fullNameSize_ = 0;
  bool appending_ = false;  // main_ is appended to in place
  bool temporaryDurable_ = false;
  bool temporaryDropped_ = false;  // there was no room for it
  bool keepsOldAsCorrupt_ = false;
  Cause cause_{handle_.registryPath};
  Pending* pending_ = nullptr;
  std::uint64_t lockLimit_ = 0;  // milliseconds of a wait for the update lock; 0: for ever
  bool isImpatient_ = false;     // whoever took the lock would not have waited for it
};

}  // namespace genreg
