// Clock and lock table of the system.
#include "sysservices/inner/waiting.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <time.h>

#include <cerrno>
#include <cstdio>
#include <memory>

namespace oss {

std::uint64_t steadyMilliseconds() noexcept {
  struct timespec now {};
  (void)::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1000 +
         static_cast<std::uint64_t>(now.tv_nsec) / 1000000;
}

void pauseFor(std::uint64_t microseconds) noexcept {
  const struct timespec pause {
    static_cast<time_t>(microseconds / 1000000), static_cast<long>(microseconds % 1000000 * 1000)
  };
  (void)::nanosleep(&pause, nullptr);
}

// The queue is another kind of lock on the same file, which flock does not see; the system lets
// those who wait for it in one after the other.
namespace {

struct flock queueLock(short type) noexcept {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return lock;
}

}  // namespace

bool queueForLock(std::intptr_t handle, bool waits) noexcept {
  struct flock lock = queueLock(F_WRLCK);
  int failed = 0;
  do failed = ::fcntl(static_cast<int>(handle), waits ? F_OFD_SETLKW : F_OFD_SETLK, &lock);
  while (failed != 0 && errno == EINTR);
  return failed == 0 || (errno != EAGAIN && errno != EACCES);
}

bool hasQueue(std::intptr_t handle) noexcept {
  struct flock lock = queueLock(F_WRLCK);
  return ::fcntl(static_cast<int>(handle), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

void leaveQueue(std::intptr_t handle) noexcept {
  struct flock lock = queueLock(F_UNLCK);
  (void)::fcntl(static_cast<int>(handle), F_OFD_SETLK, &lock);
}

// A line of the table reads "1: FLOCK  ADVISORY  WRITE 4711 fe:01:1311 0 EOF".
std::uint32_t lockHolder(std::intptr_t handle) noexcept {
  struct stat status {};
  if (::fstat(static_cast<int>(handle), &status) != 0) return 0;
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> table(std::fopen("/proc/locks", "re"),
                                                              std::fclose);
  char line[256];
  while (table != nullptr && std::fgets(line, sizeof line, table.get()) != nullptr) {
    unsigned int process = 0;
    unsigned int majorNumber = 0;
    unsigned int minorNumber = 0;
    unsigned long long inode = 0;
    const int taken = std::sscanf(line, "%*s FLOCK %*s %*s %u %x:%x:%llu", &process, &majorNumber,
                                  &minorNumber, &inode);
    if (taken == 4 && inode == status.st_ino && majorNumber == major(status.st_dev) &&
        minorNumber == minor(status.st_dev)) {
      return process;
    }
  }
  return 0;
}

}  // namespace oss
