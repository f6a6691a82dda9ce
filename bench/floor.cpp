// The floor: what an operation cannot do without. It makes exactly the system calls that the
// library makes, on a file of the same bytes, and moves the bytes that have to be moved, but does
// no work on records: nothing is searched, compared, parsed or formatted. `scripts/bench
// --check-floor` compares its calls with the library's.
//
// What is in it besides the calls:
// - a buffer per open file, as large as the library's, from the same allocator;
// - a scan copies each record once, from the read buffer to where a caller would have it;
// - an update copies what it keeps once, from the read buffer to the write buffer;
// - the verification of an update reads both files and looks at nothing.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "bench/flavours.h"
#include "bench/subjects.h"

namespace {

constexpr std::size_t smallestBuffer = 4096;
constexpr std::size_t largestBuffer = std::size_t{256} * 1024;
constexpr int always = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

// A file and its buffer. Buffers are not cleared.
class File {
 public:
  File(const std::string& path, int flags, mode_t permissions = 0)
      : descriptor_(::open(path.c_str(), flags, permissions)) {
    readStatus();
  }
  bool isOpen() const { return descriptor_ >= 0; }
  int descriptor() const { return descriptor_; }
  std::size_t size() const { return static_cast<std::size_t>(status_.st_size); }

  void readStatus() { (void)::fstat(descriptor_, &status_); }
  void lock(int operation) const { (void)::flock(descriptor_, operation); }
  void makeBuffer(std::size_t expected) {
    capacity_ = std::clamp(expected + 1, smallestBuffer, largestBuffer);
    buffer_.reset(new char[capacity_]);
  }

  // The next bytes of the file, at buffer(); 0 at its end.
  std::size_t read() {
    const ssize_t count = ::pread(descriptor_, buffer_.get(), capacity_, offset_);
    if (count > 0) offset_ += count;
    return count > 0 ? static_cast<std::size_t>(count) : 0;
  }
  const char* buffer() const { return buffer_.get(); }
  bool atEnd() const { return static_cast<std::size_t>(offset_) >= size(); }

  void append(const char* bytes, std::size_t count) {
    while (count > 0) {
      const std::size_t part = std::min(count, capacity_ - pending_);
      std::memcpy(buffer_.get() + pending_, bytes, part);
      pending_ += part;
      bytes += part;
      count -= part;
      if (pending_ == capacity_) flush();
    }
  }
  void flush() {
    if (pending_ > 0) failed_ = failed_ || ::write(descriptor_, buffer_.get(), pending_) < 0;
    pending_ = 0;
  }
  bool sync() const { return !failed_ && ::fsync(descriptor_) == 0; }
  void close() {
    (void)::close(descriptor_);
    buffer_.reset();
  }

 private:
  int descriptor_;
  struct stat status_ {};
  std::unique_ptr<char[]> buffer_;
  std::size_t capacity_ = 0;
  off_t offset_ = 0;
  std::size_t pending_ = 0;
  bool failed_ = false;
};

void askStatus(const std::string& path) {
  struct stat status;
  (void)::stat(path.c_str(), &status);
}
void askLinkStatus(const std::string& path) {
  struct stat status;
  (void)::lstat(path.c_str(), &status);
}
bool rename(const std::string& from, const std::string& to) {
  return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0;
}

class Floor : public Subject {
 public:
  void attach(const std::string& directory, std::size_t count) override {
    directory_ = directory;
    registry_ = directory + "/registry";
    lock_ = directory + "/.registry.lock";
    backup_ = directory + "/.registry.bkp";
    temporary_ = registry_ + ".tmp";
    corrupt_ = registry_ + ".cor";
    lengths_.clear();
    for (std::size_t i = 0; i < count; ++i) {
      lengths_.push_back(static_cast<std::uint8_t>(stored(entryAt(i)).size()));
    }
    lastName_ = entryAt(count - 1).name;
    last_ = stored(entryAt(count - 1));
    missing_ = stored(entryAt(count));
  }

  bool get(const Entry& key) override {
    const bool present = key.name == lastName_;
    File file = openRegistry();
    while (file.read() > 0 && !(present && file.atEnd())) {
    }
    closeRegistry(file);
    return present;
  }
  std::size_t scan() override {
    File file = openRegistry();
    char record[256];
    std::size_t window = 0;
    const char* next = nullptr;
    for (std::size_t length : lengths_) {
      length -= frameBytes();
      for (std::size_t skip = frameBytes(); length + skip > 0;) {
        if (window == 0) {
          window = file.read();
          next = file.buffer();
          if (window == 0) break;
        }
        const std::size_t skipped = std::min(skip, window);
        const std::size_t part = std::min(length, window - skipped);
        std::memcpy(record, next + skipped, part);
        benchmark::DoNotOptimize(record);
        benchmark::ClobberMemory();
        next += skipped + part;
        window -= skipped + part;
        skip -= skipped;
        length -= part;
      }
    }
    (void)file.read();
    closeRegistry(file);
    return lengths_.size();
  }
  bool add(const Entry& entry) override { return update(true, 0, bytesOf(entry)); }
  bool change(const Entry&) override { return update(false, 0, ""); }
  bool remove(const Entry& key) override { return update(false, bytesOf(key).size(), ""); }

 protected:
  virtual std::string stored(const Entry& entry) const = 0;
  virtual std::size_t frameBytes() const = 0;  // in front of a record's own bytes
  std::string registry_;

 private:
  const std::string& bytesOf(const Entry& entry) const {
    return entry.name == lastName_ ? last_ : missing_;
  }

  File openRegistry() const {
    File file(registry_, always | O_RDONLY);
    file.lock(LOCK_SH);
    file.readStatus();
    file.makeBuffer(file.size());
    return file;
  }
  static void closeRegistry(File& file) {
    file.lock(LOCK_UN);
    file.close();
  }

  // Rewrites the file with its last `dropped` bytes left out and `added` behind it.
  bool update(bool adds, std::size_t dropped, const std::string& added) const {
    if (adds) askStatus(directory_);
    File lock(lock_, always | O_RDWR | O_CREAT | O_NOFOLLOW, 0600);
    if (!lock.isOpen()) return false;
    lock.lock(LOCK_EX);
    lock.readStatus();
    askLinkStatus(lock_);
    const bool committed = writeTemporary(adds, dropped, added) && readBoth() && commit();
    lock.lock(LOCK_UN);
    lock.close();
    return committed && removeLockFile();
  }

  bool writeTemporary(bool adds, std::size_t dropped, const std::string& added) const {
    askLinkStatus(backup_);
    if (adds) {
      askStatus(directory_);
      askLinkStatus(registry_);
    } else {
      askStatus(registry_);
    }
    File old = openRegistry();
    (void)::unlink(corrupt_.c_str());
    (void)rename(temporary_, corrupt_);
    askLinkStatus(registry_);
    File made(temporary_, O_RDWR | O_APPEND | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    char list[4096];
    (void)::getxattr(registry_.c_str(), "system.posix_acl_access", list, sizeof list);
    (void)::fchmod(made.descriptor(), 0644);
    made.makeBuffer(old.size());
    if (adds) askLinkStatus(registry_);
    std::size_t kept = old.size() - dropped;
    while (const std::size_t count = old.read()) {
      made.append(old.buffer(), std::min(count, kept));
      kept -= std::min(count, kept);
    }
    if (adds) made.flush();
    made.append(added.data(), added.size());
    closeRegistry(old);
    made.flush();
    const bool durable = made.sync();
    made.close();
    return durable;
  }

  bool readBoth() const {
    askStatus(registry_);
    File old = openRegistry();
    askLinkStatus(registry_);
    File made(temporary_, always | O_RDONLY | O_NOFOLLOW);
    made.makeBuffer(made.size());
    bool more = true;
    while (more) {
      const bool moreOld = old.read() > 0;
      more = made.read() > 0 || moreOld;
    }
    closeRegistry(old);
    made.close();
    return true;
  }

  bool commit() const {
    if (!rename(registry_, backup_) || !rename(temporary_, registry_)) return false;
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
    (void)::fstat(lock, &status);
    askLinkStatus(lock_);
    const bool removed = ::unlink(lock_.c_str()) == 0;
    (void)::close(lock);
    return removed;
  }

  std::string directory_;
  std::string lock_;
  std::string backup_;
  std::string temporary_;
  std::string corrupt_;
  std::vector<std::uint8_t> lengths_;  // of the records in the file
  std::string lastName_;
  std::string last_;     // stored bytes of the last entry
  std::string missing_;  // of the one that Add adds
};

template <typename Flavour>
class FlavourFloor final : public Floor {
 public:
  bool prepare() override { return flavours::writeAll<Flavour>(registry_, count_); }
  void attach(const std::string& directory, std::size_t count) override {
    count_ = count;
    Floor::attach(directory, count);
  }

 protected:
  std::string stored(const Entry& entry) const override { return Flavour::stored(entry); }
  std::size_t frameBytes() const override { return Flavour::frameBytes; }

 private:
  std::size_t count_ = 0;
};

}  // namespace

std::vector<SubjectRow> floorSubjects() {
  return {{"binary-floor", makeSubject<FlavourFloor<flavours::BinaryVariables>>, anySize, true},
          {"global-floor", makeSubject<FlavourFloor<flavours::GlobalRegistry>>, anySize, true},
          {"profile-floor", makeSubject<FlavourFloor<flavours::ProfileVariables>>, anySize, true},
          {"services-floor", makeSubject<FlavourFloor<flavours::Services>>, anySize, true}};
}
