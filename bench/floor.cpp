// The floor: what an operation cannot do without. It makes exactly the system calls that the
// library makes, on a file of the same bytes, and moves the bytes that have to be moved, but does
// no work on records: nothing is compared, parsed or formatted. scripts/bench compares its calls
// with the library's.
//
// What is in it besides the calls:
// - a buffer per open file, as large as the library's, not cleared;
// - a Get searches the buffer for the bytes of the name or of the port, as the C library does it;
// - a scan copies each record once, from the read buffer to where a caller would have it;
// - an update copies what it keeps once, from the read buffer to the write buffer;
// - the verification of an update reads both files and looks at nothing.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "bench/flavours.h"

namespace {

constexpr int always = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

// An open file, its size, and its buffer for reading or for appending.
struct File {
  // Opened to be read, without a look at what it is.
  explicit File(const std::string& path) : descriptor(::open(path.c_str(), always | O_RDONLY)) {}
  File(const std::string& path, int flags, mode_t permissions = 0)
      : descriptor(::open(path.c_str(), flags, permissions)) {
    askSize();
  }
  void askSize() {
    struct stat status {};
    (void)::fstat(descriptor, &status);
    size = static_cast<std::size_t>(status.st_size);
  }
  void makeBuffer(std::size_t expected) {
    capacity = std::clamp<std::size_t>(expected, 4096, std::size_t{256} * 1024);
    buffer.reset(new char[capacity]);
  }
  // A first buffer's bytes, to be given out by read(). A file that fills it has its size asked for
  // and a buffer of its own.
  void readFirst() {
    constexpr std::size_t small = 4096;
    size = capacity = small;
    buffer.reset(new char[small]);
    first = read();
    if (first < small) {
      size = first;
      return;
    }
    askSize();
    const std::unique_ptr<char[]> old = std::move(buffer);
    makeBuffer(size);
    std::memcpy(buffer.get(), old.get(), first);
    const std::size_t room = std::min(capacity, size) - first;
    const ssize_t count = ::pread(descriptor, buffer.get() + first, room, small);
    if (count > 0) first += static_cast<std::size_t>(count);
    offset = first;
  }
  // The next bytes of the file, in the buffer; 0 at its end.
  std::size_t read() {
    if (first > 0) return std::exchange(first, 0);
    const std::size_t wanted = std::min(capacity, size - offset);
    if (wanted == 0) return 0;
    const ssize_t count = ::pread(descriptor, buffer.get(), wanted, static_cast<off_t>(offset));
    if (count <= 0) return 0;
    offset += static_cast<std::size_t>(count);
    return static_cast<std::size_t>(count);
  }
  void append(const char* bytes, std::size_t count) {
    while (count > 0) {
      const std::size_t part = std::min(count, capacity - pending);
      std::memcpy(buffer.get() + pending, bytes, part);
      pending += part;
      bytes += part;
      count -= part;
      if (pending == capacity) flush();
    }
  }
  void flush() {
    if (pending > 0 &&
        ::pwrite(descriptor, buffer.get(), pending, static_cast<off_t>(written)) < 0) {
      failed = true;
    }
    written += pending;
    pending = 0;
  }
  void close() {
    (void)::close(descriptor);
    buffer.reset();
  }

  int descriptor;
  std::size_t size = 0;
  std::unique_ptr<char[]> buffer;
  std::size_t capacity = 0;
  std::size_t offset = 0;   // of the next read
  std::size_t first = 0;    // bytes that were read but not given out
  std::size_t pending = 0;  // bytes appended but not written
  std::size_t written = 0;
  bool failed = false;
};

void askStatus(const std::string& path) {
  struct stat status;
  (void)::stat(path.c_str(), &status);
}
void askLinkStatus(const std::string& path) {
  struct stat status;
  (void)::lstat(path.c_str(), &status);
}
// A lock is ended only in the process that took it.
bool takeLock(int descriptor, int kind) {
  return ::flock(descriptor, kind | LOCK_NB) == 0 && ::getpid() > 0;
}
void endLock(int descriptor) {
  if (::getpid() > 0) (void)::flock(descriptor, LOCK_UN);
}
void askQueue(int descriptor) {
  struct flock queue {};
  queue.l_type = F_WRLCK;
  (void)::fcntl(descriptor, F_OFD_GETLK, &queue);
}

void askSameFile(int descriptor, const std::string& path) {
  struct stat status;
  (void)::fstat(descriptor, &status);
  askLinkStatus(path);
}

template <typename Flavour>
class Floor final : public Subject {
 public:
  Floor(const std::string& directory, std::size_t count)
      : directory_(directory),
        lastName_(entryAt(count - 1).name),
        last_(Flavour::stored(entryAt(count - 1))),
        missing_(Flavour::stored(entryAt(count))) {
    flavours::writeAll<Flavour>(registry_, count);
    for (std::size_t i = 0; i < count; ++i) {
      lengths_.push_back(static_cast<std::uint8_t>(Flavour::stored(entryAt(i)).size()));
    }
  }

  bool get(const Entry& key) override { return search(key.name); }
  bool getByPort(const Entry& key) override { return search(std::to_string(key.value) + "/tcp"); }
  std::size_t scan() override {
    File file = openToRead();
    if (file.size < 4096) file.askSize();
    std::size_t window = 0;
    const char* next = nullptr;
    for (const std::size_t length : lengths_) {
      char record[256];
      for (std::size_t done = 0; done < length;) {
        if (window == 0) {
          window = file.read();
          next = file.buffer.get();
          if (window == 0) return 0;
        }
        const std::size_t part = std::min(length - done, window);
        std::memcpy(record + done, next, part);
        next += part;
        window -= part;
        done += part;
      }
      benchmark::DoNotOptimize(record);
    }
    file.close();
    return lengths_.size();
  }
  bool add(const Entry& entry) override { return update(bytesOf(entry), 0); }
  bool change(const Entry&) override { return update("", 0); }
  bool remove(const Entry& key) override { return update("", bytesOf(key).size()); }

 private:
  const std::string& bytesOf(const Entry& entry) const {
    return entry.name == lastName_ ? last_ : missing_;
  }
  // Whether the bytes are there. Those that two buffers have a part of each would not be found;
  // the last record's are not.
  bool search(const std::string& bytes) const {
    bool found = false;
    File file = openToRead();
    while (!found) {
      const std::size_t count = file.read();
      if (count == 0) break;
      found = ::memmem(file.buffer.get(), count, bytes.data(), bytes.size()) != nullptr;
    }
    if (!found && file.size < 4096) file.askSize();
    file.close();
    return found;
  }
  // For an update.
  File openRegistry() const {
    File file(registry_, always | O_RDONLY);
    (void)takeLock(file.descriptor, LOCK_SH);
    file.askSize();
    file.makeBuffer(file.size);
    return file;
  }
  static void closeRegistry(File& file) {
    endLock(file.descriptor);
    file.close();
  }
  // For a read, which asks nothing about a file that its first buffer holds.
  File openToRead() const {
    File file(registry_);
    (void)::flock(file.descriptor, LOCK_SH | LOCK_NB);
    file.readFirst();
    return file;
  }

  // Rewrites the file with `added` behind it or its last `dropped` bytes left out.
  bool update(const std::string& added, std::size_t dropped) const {
    if (!added.empty()) askStatus(directory_);
    File lock(lock_, always | O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
    askQueue(lock.descriptor);
    (void)takeLock(lock.descriptor, LOCK_EX);
    lock.askSize();
    askLinkStatus(lock_);
    const int claim = writeTemporary(added, dropped);
    int old = -1;
    const bool committed = claim >= 0 && readBoth(&old) && commit(lock, claim, old);
    endLock(old);
    (void)::close(old);
    endLock(claim);
    (void)::close(claim);
    (void)::flock(lock.descriptor, LOCK_UN);
    lock.close();
    return committed && removeLockFile();
  }

  // The temporary file's second descriptor, with its lock; -1 when something failed.
  int writeTemporary(const std::string& added, std::size_t dropped) const {
    const bool adds = !added.empty();
    askLinkStatus(backup_);
    if (adds) {
      askStatus(directory_);
      askLinkStatus(registry_);
    } else {
      askStatus(registry_);
    }
    File old = openRegistry();
    (void)::unlink(corrupt_.c_str());
    (void)::open(temporary_.c_str(), always | O_RDONLY | O_NOFOLLOW);
    askLinkStatus(registry_);
    File made(temporary_, always | O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
    const int claim = ::fcntl(made.descriptor, F_DUPFD_CLOEXEC, 3);
    (void)takeLock(claim, LOCK_SH);
    askSameFile(claim, temporary_);
    char list[4096];
    (void)::listxattr(registry_.c_str(), list, sizeof list);
    (void)::fremovexattr(made.descriptor, "system.posix_acl_access");
    (void)::fchmod(made.descriptor, 0644);
    made.askSize();
    made.makeBuffer(old.size);
    if (adds) askLinkStatus(registry_);
    std::size_t kept = old.size - dropped;
    while (const std::size_t count = old.read()) {
      made.append(old.buffer.get(), std::min(count, kept));
      kept -= std::min(count, kept);
    }
    made.append(added.data(), added.size());
    closeRegistry(old);
    made.flush();
    const bool durable = !made.failed && ::fsync(made.descriptor) == 0;
    made.close();
    return durable ? claim : -1;
  }

  bool readBoth(int* kept) const {
    askStatus(registry_);
    File old = openRegistry();
    askLinkStatus(registry_);
    File made(temporary_, always | O_RDONLY | O_NOFOLLOW);
    made.askSize();
    made.makeBuffer(made.size);
    for (bool more = true; more;) {
      const bool moreOld = old.read() > 0;
      more = made.read() > 0 || moreOld;
    }
    *kept = ::fcntl(old.descriptor, F_DUPFD_CLOEXEC, 3);
    closeRegistry(old);
    made.close();
    return made.offset == made.size;
  }

  bool commit(const File& lock, int claim, int old) const {
    askLinkStatus(registry_);
    askSameFile(claim, temporary_);
    askSameFile(lock.descriptor, lock_);
    static const std::string announcement(101, ' ');
    (void)::pwrite(lock.descriptor, announcement.data(), announcement.size(), 0);
    (void)::geteuid();
    if (::link(registry_.c_str(), backup_.c_str()) != 0) return false;
    (void)takeLock(old, LOCK_SH);
    constexpr unsigned int exchange = 2;  // RENAME_EXCHANGE
    if (::syscall(SYS_renameat2, AT_FDCWD, temporary_.c_str(), AT_FDCWD, registry_.c_str(),
                  exchange) != 0) {
      return false;
    }
    askLinkStatus(temporary_);
    (void)::unlink(temporary_.c_str());
    askLinkStatus(backup_);
    const int directory = ::open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool durable = ::fsync(directory) == 0;
    (void)::close(directory);
    return durable && ::unlink(backup_.c_str()) == 0;
  }

  bool removeLockFile() const {
    askLinkStatus(lock_);
    const int lock = ::open(lock_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    struct stat status;
    (void)::flock(lock, LOCK_EX | LOCK_NB);
    askQueue(lock);
    (void)::fstat(lock, &status);
    askLinkStatus(lock_);
    const bool removed = ::unlink(lock_.c_str()) == 0;
    (void)::close(lock);
    return removed;
  }

  std::string directory_;
  std::string registry_ = directory_ + "/registry";
  std::string lock_ = directory_ + "/.registry.lock";
  std::string backup_ = directory_ + "/.registry.bkp";
  std::string temporary_ = registry_ + ".tmp";
  std::string corrupt_ = registry_ + ".cor";
  std::vector<std::uint8_t> lengths_;  // of the records in the file
  std::string lastName_;
  std::string last_;     // stored bytes of the last entry
  std::string missing_;  // of the entry that is not there
};

}  // namespace

SubjectRows floorSubjects() {
  constexpr unsigned all = Reads | Updates;
  return {{"binary-floor", make<Floor<flavours::BinaryVariables>>, Role::Floor, all},
          {"global-floor", make<Floor<flavours::GlobalRegistry>>, Role::Floor, all},
          {"profile-floor", make<Floor<flavours::ProfileVariables>>, Role::Floor, all},
          {"services-floor", make<Floor<flavours::Services>>, Role::Floor, all | ByPort}};
}
