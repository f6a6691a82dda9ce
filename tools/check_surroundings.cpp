#include "check_surroundings.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <optional>
#include <thread>

#include "platform/tool/write_access.h"
#include "sysservices/file_system.h"
#include "sysservices/return_codes.h"

namespace tool {
namespace {

// Whether somebody has the update lock; nothing when this user may not ask.
std::optional<bool> isLockHeld(const std::string& path) {
  OSSHFile file;
  const OSSFileOpenParam open{OSS_PARAM_LEVEL,
                              path.c_str(),
                              OSS_ACCESS_READ_WRITE,
                              OSS_OPEN_EXISTING,
                              OSS_OPEN_AS_LOCK_FILE,
                              0,
                              0};
  const unsigned int opened = file.open(&open);
  if (opened == OSS_RC_ACCESS_DENIED) return std::nullopt;
  const OSSFileLockParam lock{OSS_PARAM_LEVEL, OSS_LOCK_SHARED, OSS_LOCK_NOWAIT};
  return opened == OSS_RC_OK && file.lock(&lock) == OSS_RC_LOCK_BUSY;
}

bool isPlain(const Seen& seen) { return seen.info.isFile && !seen.info.isSymbolicLink; }

void checkLeftOvers(const RegistryFiles& files, const Surroundings& seen, const Checked& checked,
                    Findings& findings) {
  const bool registryThere = seen.registry.isThere;
  const struct {
    const std::string& file;
    const Seen& seen;
    bool isFine;  // for the next update to deal with
    Topic topic;
    const char* what;
    std::string action;
  } rows[] = {
      {files.lock, seen.lock, isPlain(seen.lock) && seen.lock.info.links == 1, Topic::LeftOver,
       seen.isLockKnown
           ? "the lock file of an update that died"
           : "the lock file of an update that is running or died: this user may not ask",
       "nothing; the next update takes the lock over"},
      {files.temporary, seen.temporary, true, Topic::LeftOver,
       "the work of an update that did not finish",
       "nothing; the next update sets it aside as the corrupt file"},
      {files.corrupt, seen.corrupt, seen.corrupt.info.isFile || seen.corrupt.info.isSymbolicLink,
       Topic::LeftOver, "an update that did not finish, or the original of a repair",
       "copy it if it is of use; the next update deletes it"},
      {files.backup, seen.backup, isPlain(seen.backup),
       registryThere ? Topic::LeftOver : Topic::Crashed,
       registryThere ? "of a commit that was interrupted at its very end"
                     : "the registry itself: a commit was interrupted; readers read it",
       registryThere ? "nothing; the next update deletes it, or sets it aside if it is not its own"
                     : "any update puts it back: " + commandOn(checked, "apply </dev/null")},
  };
  for (const auto& row : rows) {
    if (!row.seen.isThere) continue;
    if (row.isFine) {
      findings.add(row.topic, row.file, row.what, row.action);
    } else {
      findings.add(Topic::Refused, row.file,
                   "no plain file of one name: the next update is refused", "move it away");
    }
  }
}

// What would be refused is no fault of the registry where another user may do it.
void checkRights(const RegistryFiles& files, const Surroundings& seen, Findings& findings) {
  std::string directory = std::filesystem::u8path(files.registry).parent_path().u8string();
  if (directory.empty()) directory = ".";
  constexpr std::uint32_t anyWriter = 0222;
  if (const int error = platform::directoryWriteError(directory); error != 0) {
    const Seen rights(directory);
    const bool forAll =
        error != EACCES || (rights.isThere && (rights.info.permissions & anyWriter) == 0);
    findings.add(forAll ? Topic::Refused : Topic::Rights, directory,
                 std::string("the next update") + (forAll ? "" : " by this user") +
                     " is refused: " + std::strerror(error),
                 forAll ? "make the directory writable for those who update the registry"
                        : "update it as a user who may write in this directory");
  } else if (seen.registry.isThere &&
             !ossFileMayBeReplaced(files.registry.c_str(), &seen.registry.info)) {
    findings.add(Topic::Rights, files.registry,
                 "another user's file in a sticky directory: an update by this user is refused",
                 "update it as its owner");
  }
}

}  // namespace

Seen::Seen(const std::string& path) {
  const OSSFileInfoRequest request{OSS_PARAM_LEVEL, path.c_str()};
  const unsigned int code = ossFileGetInfoV9(&request, &info);
  isThere = code == OSS_RC_OK;
  if (!isThere && code != OSS_RC_FILE_NOT_FOUND) error = ossFileLastError();
  if (code == OSS_RC_FILE_NOT_FOUND && ossPathExists(path.c_str())) {  // a link to nothing
    isThere = true;
    info = {};
    info.isSymbolicLink = true;
  }
}

bool Seen::isSame(const Seen& other) const {
  return isThere == other.isThere && (!isThere || info.isUntouched(other.info));
}

Surroundings::Surroundings(const RegistryFiles& files)
    : registry(files.registry),
      lock(files.lock),
      temporary(files.temporary),
      corrupt(files.corrupt),
      backup(files.backup) {}

bool Surroundings::isSame(const Surroundings& other) const {
  return registry.isSame(other.registry) && lock.isSame(other.lock) &&
         temporary.isSame(other.temporary) && corrupt.isSame(other.corrupt) &&
         backup.isSame(other.backup);
}

bool Surroundings::isQuiet() const {
  const bool hasCompanion = lock.isThere || temporary.isThere || corrupt.isThere || backup.isThere;
  return registry.isThere && !hasCompanion && registry.info.links <= 1;
}

std::uint64_t Surroundings::names() const {
  const bool isLinked = backup.isThere && backup.info.isSameFile(registry.info);
  return registry.info.links - (isLinked ? 1 : 0);
}

Surroundings lookAround(const RegistryFiles& files) {
  constexpr auto pause = std::chrono::milliseconds(10);  // an update is seldom as long at one step
  constexpr int rounds = 30;
  constexpr int enough = 2;  // one update may hand the lock to the next just when it is asked for
  Surroundings seen(files);
  int unmoved = 0;
  for (int round = 0; round < rounds; ++round) {
    if (seen.isQuiet()) return seen;
    std::this_thread::sleep_for(pause);
    const Surroundings before = seen;
    seen = Surroundings(files);
    if (!seen.isSame(before)) {
      unmoved = 0;
      continue;
    }
    const std::optional<bool> isHeld = seen.lock.isThere ? isLockHeld(files.lock) : false;
    seen.isUpdating = isHeld.value_or(false);
    seen.isLockKnown = isHeld.has_value();
    if (seen.isUpdating || ++unmoved == enough) return seen;
  }
  seen.isUpdating = true;
  return seen;
}

void checkSurroundings(const RegistryFiles& files, const Surroundings& seen, const Checked& checked,
                       Findings& findings) {
  if (seen.isUpdating) {
    findings.add(Topic::Running, files.lock, "an update is running", "nothing, unless it stays so");
  } else {
    checkLeftOvers(files, seen, checked, findings);
    if (seen.registry.isThere && seen.names() > 1) {
      findings.add(Topic::Refused, files.registry,
                   "one of " + std::to_string(seen.names()) +
                       " names of the file: the next update is refused",
                   "remove the other hard links, or make the registry a copy of its own");
    }
  }
  checkRights(files, seen, findings);
}

}  // namespace tool
