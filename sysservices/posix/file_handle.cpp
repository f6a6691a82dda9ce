// File handles over descriptors, locked with flock.
//
// flock locks belong to the open file description, work on a descriptor opened for reading, and end
// when the last descriptor of the description is closed; every descriptor is close-on-exec, so no
// child keeps a lock alive.
#include "sysservices/file_handle.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "sysservices/inner/log_output.h"
#include "sysservices/inner/waiting.h"
#include "sysservices/posix/system_call.h"
#include "sysservices/return_codes.h"

namespace {

constexpr mode_t permissionBits = 07777;
constexpr const char* accessList = "system.posix_acl_access";

// O_NONBLOCK keeps a planted pipe from blocking the open.
int openDescriptor(const char* path, int flags, mode_t permissions) {
  constexpr int always = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  return oss::aboveStandard(
      oss::systemCall("open", path, [&] { return ::open(path, always | flags, permissions); }));
}

// Opens a file that may have to be created, and reports whether it was. What mostly is there is
// opened first, what mostly is not is created first; either may come or go in between.
int openOrCreate(const char* path, bool createFirst, mode_t permissions, bool* created) {
  constexpr int flags = O_RDWR | O_NOFOLLOW;
  constexpr int rounds = 100;
  int descriptor = -1;
  for (int round = 0; round < rounds; ++round) {
    const bool creates = (round % 2 == 0) == createFirst;
    descriptor = openDescriptor(path, flags | (creates ? O_CREAT | O_EXCL : 0), permissions);
    *created = creates;
    if (descriptor >= 0 || errno != (creates ? EEXIST : ENOENT)) break;
  }
  return descriptor;
}

// One read or write past the fault hook, which may fail it, interrupt it or make it fall short.
template <typename Call>
ssize_t transfer(const char* operation, std::size_t count, Call call) {
  const int fault = ossFaultPoint(operation, nullptr);
  if (fault > 0 && fault != EINTR) {
    errno = fault;
    return -1;
  }
  std::size_t asked = count;
  if (fault == OSS_FAULT_SHORT && count > 1) asked = count / 2;
  if (fault < OSS_FAULT_SHORT) asked = std::min(count, static_cast<std::size_t>(-1 - fault));
  for (;;) {
    const ssize_t done = call(asked);
    if (done >= 0 || errno != EINTR) return done;
  }
}

// Permissions whose group gets no more than everybody.
mode_t withoutGroup(mode_t permissions) { return permissions & ~((~permissions & S_IRWXO) << 3); }

// A hash that the system has of the model's content.
bool isOfContent(const char* name) {
  return std::strcmp(name, "security.ima") == 0 || std::strcmp(name, "security.evm") == 0;
}

bool copyAttribute(const char* model, const char* name, int descriptor) {
  char value[4096];
  const ssize_t size = ::getxattr(model, name, value, sizeof value);
  return size >= 0 && ::fsetxattr(descriptor, name, value, static_cast<std::size_t>(size), 0) == 0;
}

// Gives a new file the extended attributes of its model, a security label among them, as far as the
// process may; and its access list, or none when that has none: the one that it may have from its
// directory would let others in once the group has permissions. False when it cannot have that.
bool copyExtendedAttributes(const char* model, int descriptor) {
  char names[4096];
  const ssize_t size = ::listxattr(model, names, sizeof names);
  bool hasList = false;
  bool copied = size >= 0 || errno == ENOTSUP;
  for (const char* name = names; name < names + size; name += std::strlen(name) + 1) {
    if (isOfContent(name)) continue;
    const bool isList = std::strcmp(name, accessList) == 0;
    const bool done = copyAttribute(model, name, descriptor);
    hasList = hasList || isList;
    if (isList) copied = done;
  }
  if (!hasList) (void)::fremovexattr(descriptor, accessList);
  return copied;
}

}  // namespace

unsigned int OSSHFile::reopen() noexcept {
  constexpr unsigned int lastTry = 10;
  created_ = false;
  int descriptor = -1;
  if (openMode_ == OSS_OPEN_EXISTING) {
    const bool noLink = isLockFile() || (options_ & OSS_OPEN_NO_LINK) != 0;
    descriptor = openDescriptor(path_, O_RDONLY | (noLink ? O_NOFOLLOW : 0), 0);
  } else {
    for (unsigned int attempt = 0; attempt < lastTry; ++attempt) {
      descriptor = openOrCreate(path_, isLockFile(), static_cast<mode_t>(permissions_), &created_);
      // Another user's lock file is open to nobody else for the moment in which it is made.
      if (descriptor >= 0 || errno != EACCES || !isLockFile()) break;
      oss::pauseFor(500);
      errno = EACCES;
    }
  }
  if (descriptor < 0) return fail(errno);
  struct stat status;
  if (isOnlyRead()) {
    handle_ = descriptor;
    return OSS_RC_OK;
  }
  int failed = oss::systemCall("fstat", path_, [&] { return ::fstat(descriptor, &status); });
  if (failed == 0 && created_ && (status.st_mode & permissionBits) != permissions_) {
    const auto wanted = static_cast<mode_t>(permissions_);
    failed = oss::systemCall("fchmod", path_, [&] { return ::fchmod(descriptor, wanted); });
  }
  if (failed == 0 && (!S_ISREG(status.st_mode) || (isLockFile() && status.st_nlink > 1))) {
    errno = ELOOP;
    failed = -1;
  }
  if (failed != 0) {
    const int error = errno;
    (void)oss::closeDescriptor(descriptor);
    return fail(error);
  }
  // Whoever writes to the handle itself appends, too.
  if (openMode_ == OSS_OPEN_APPEND) (void)::lseek(descriptor, 0, SEEK_END);
  handle_ = descriptor;
  return OSS_RC_OK;
}

unsigned int OSSHFile::createPrivate(const char* path, const char*) noexcept {
  constexpr mode_t ownerOnly = 0600;
  startAnew(path, OSS_OPEN_EXISTING, 0);
  const int descriptor = openDescriptor(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, ownerOnly);
  if (descriptor < 0) return fail(errno);
  handle_ = descriptor;
  created_ = true;
  return OSS_RC_OK;
}

unsigned int OSSHFile::duplicate(const OSSHFile& other) noexcept {
  startAnew(other.path_, OSS_OPEN_EXISTING, 0);
  const int descriptor = static_cast<int>(other.handle_);
  const int copy = oss::systemCall(
      "fcntl", nullptr, [&] { return ::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1); });
  if (copy < 0) return fail(errno);
  handle_ = copy;
  return OSS_RC_OK;
}

// Only root may give a file away, so the owner stays who it is when that is refused; but
// permissions meant for one group must not be another's: without the group, its bits shrink to what
// everybody has.
unsigned int OSSHFile::takeAttributes(const char* model, const OSSFileInfo& info) noexcept {
  const int descriptor = static_cast<int>(handle_);
  struct stat status;
  if (oss::systemCall("fstat", nullptr, [&] { return ::fstat(descriptor, &status); }) != 0) {
    return fail(errno);
  }
  auto wanted = static_cast<mode_t>(info.permissions);
  const bool sameGroup = status.st_gid == info.group;
  if ((status.st_uid != info.owner || !sameGroup) &&
      ::fchown(descriptor, info.owner, info.group) != 0 && !sameGroup &&
      ::fchown(descriptor, status.st_uid, info.group) != 0) {
    wanted = withoutGroup(wanted);
  }
  if (!copyExtendedAttributes(model, descriptor)) wanted = withoutGroup(wanted);
  if ((status.st_mode & permissionBits) == wanted) return OSS_RC_OK;
  const int failed =
      oss::systemCall("fchmod", nullptr, [&] { return ::fchmod(descriptor, wanted); });
  return failed == 0 ? OSS_RC_OK : fail(errno);
}

void OSSHFile::shareWithWriters(const OSSFileInfo& info) noexcept {
  if (!isOpen() || !created_) return;
  const int descriptor = static_cast<int>(handle_);
  mode_t wanted = S_IRUSR | S_IWUSR;
  if ((info.permissions & S_IWOTH) != 0) wanted |= S_IROTH | S_IWOTH;
  if ((info.permissions & S_IWGRP) != 0 &&
      ::fchown(descriptor, static_cast<uid_t>(-1), info.group) == 0) {
    wanted |= S_IRGRP | S_IWGRP;
  }
  if (wanted != (S_IRUSR | S_IWUSR)) (void)::fchmod(descriptor, wanted);
}

unsigned int OSSHFile::takeLock(bool exclusive, bool wait) noexcept {
  const int operation = (exclusive ? LOCK_EX : LOCK_SH) | (wait ? 0 : LOCK_NB);
  for (;;) {
    if (!isOpen()) return fail(EBADF);
    const int descriptor = static_cast<int>(handle_);
    if (oss::systemCall("flock", path_, [&] { return ::flock(descriptor, operation); }) != 0) {
      return fail(errno);
    }
    if (!isLockFile()) return OSS_RC_OK;
    // The previous holder removes the lock file's name while it holds the lock; whoever is granted
    // the removed file must start over at the name, or it would not exclude those who did.
    switch (oss::standing(descriptor, path_)) {
      case oss::Standing::AtName:
        return OSS_RC_OK;
      case oss::Standing::Unknown: {
        const int error = errno;
        (void)unlock();
        return fail(error);
      }
      case oss::Standing::Replaced:
        (void)close();
        if (const unsigned int code = reopen(); code != OSS_RC_OK) return code;
    }
  }
}

unsigned int OSSHFile::unlock() noexcept {
  if (!isOpen()) return fail(EBADF);
  const int descriptor = static_cast<int>(handle_);
  const int failed = oss::systemCall("flock", path_, [&] { return ::flock(descriptor, LOCK_UN); });
  if (failed != 0) return fail(errno);
  lockOwner_ = 0;
  return OSS_RC_OK;
}

unsigned int OSSHFile::readSome(void* bytes, std::size_t count, std::uint64_t offset,
                                std::size_t* done) noexcept {
  const int descriptor = static_cast<int>(handle_);
  const ssize_t part = transfer("read", count, [&](std::size_t asked) {
    return ::pread(descriptor, bytes, asked, static_cast<off_t>(offset));
  });
  *done = part < 0 ? 0 : static_cast<std::size_t>(part);
  return part < 0 ? fail(errno) : OSS_RC_OK;
}

unsigned int OSSHFile::writeAt(const void* bytes, std::size_t count,
                               std::uint64_t offset) noexcept {
  const int descriptor = static_cast<int>(handle_);
  for (std::size_t done = 0; done < count;) {
    const ssize_t part = transfer("write", count - done, [&](std::size_t asked) {
      return ::pwrite(descriptor, static_cast<const char*>(bytes) + done, asked,
                      static_cast<off_t>(offset + done));
    });
    if (part <= 0) return fail(part == 0 ? ENOSPC : errno);
    done += static_cast<std::size_t>(part);
  }
  return OSS_RC_OK;
}

unsigned int OSSHFile::sync() noexcept {
  const int descriptor = static_cast<int>(handle_);
  const int failed = oss::systemCall("fsync", nullptr, [&] { return ::fsync(descriptor); });
  return failed == 0 ? OSS_RC_OK : fail(errno);
}

unsigned int OSSHFile::truncate(std::uint64_t size) noexcept {
  const int descriptor = static_cast<int>(handle_);
  const int failed = oss::systemCall(
      "ftruncate", nullptr, [&] { return ::ftruncate(descriptor, static_cast<off_t>(size)); });
  return failed == 0 ? OSS_RC_OK : fail(errno);
}

unsigned int OSSHFile::getInfo(OSSFileInfo* info) noexcept {
  if (!isOpen()) return fail(EBADF);
  struct stat status;
  const int descriptor = static_cast<int>(handle_);
  if (oss::systemCall("fstat", nullptr, [&] { return ::fstat(descriptor, &status); }) != 0) {
    return fail(errno);
  }
  oss::takeStatus(status, info);
  return OSS_RC_OK;
}

bool OSSHFile::isAt(const char* path) noexcept {
  return isOpen() && oss::standing(static_cast<int>(handle_), path) == oss::Standing::AtName;
}

unsigned int OSSHFile::close() noexcept {
  if (!isOpen()) return OSS_RC_OK;
  const int descriptor = static_cast<int>(handle_);
  handle_ = -1;
  // The lock would outlive the close in a process that was forked meanwhile; but that process's own
  // close must not end it. A reader's that nobody has inherited ends with the close.
  const oss::ForkPause pause;
  const bool endsByItself = isOnlyRead() && forks_ == pause.forks() && forks_ != oss::forkUnderWay;
  if (lockOwner_ != 0 && !endsByItself && lockOwner_ == thisProcess()) {
    (void)::flock(descriptor, LOCK_UN);
  }
  lockOwner_ = 0;
  const int error = oss::closeDescriptor(descriptor);
  return error == 0 ? OSS_RC_OK : fail(error);
}
