#include "platform/posix/registry_export_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

#include "platform/registry_export/registry_export.h"
#include "sysservices/diagnostics.h"
#include "sysservices/file_handle.h"
#include "sysservices/posix/system_call.h"
#include "sysservices/return_codes.h"

namespace platform {
namespace {

constexpr unsigned int probeRegistryExport = 0x081A0100u;
constexpr unsigned int failureSeverity = 2;
constexpr std::size_t largestExport = std::size_t{1} << 30;  // bytes
constexpr std::size_t readSize = std::size_t{256} * 1024;    // bytes of one read
constexpr std::size_t mostKept = 8;                          // exports that are kept parsed
constexpr std::time_t settled = 2;  // seconds; no file system's times are coarser

// What changes whenever a file does.
struct FileState {
  dev_t device;
  ino_t inode;
  off_t size;
  timespec modified;
  timespec changed;

  bool operator==(const FileState& other) const {
    const auto same = [](const timespec& left, const timespec& right) {
      return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
    };
    return device == other.device && inode == other.inode && size == other.size &&
           same(modified, other.modified) && same(changed, other.changed);
  }
};

// Gives 0 or the system error.
int readState(int descriptor, const std::string& path, FileState& state) {
  struct stat status;
  if (oss::systemCall("fstat", path.c_str(), [&] { return ::fstat(descriptor, &status); }) != 0) {
    return errno;
  }
  state = {status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
  return 0;
}

ExportContent refuse(unsigned int code, unsigned int point, const char* reason,
                     std::uint32_t line = 0) {
  ExportContent content{{}, code, point, line, {}};
  content.reason = reason;
  return content;
}

ExportContent refuseUnreadable(int error) {
  if (error == ENOENT) return refuse(OSS_RC_FILE_NOT_FOUND, 10, "the file does not exist");
  // A file that is no plain one is not opened, for one of these errors.
  if (error == ELOOP || error == EISDIR || error == ENXIO) {
    return refuse(OSS_RC_NOT_A_FILE, 20, "not a plain file");
  }
  char message[128];
  return refuse(OSS_RC_IO_ERROR, 20, ossErrorText(error, message, sizeof message));
}

ExportContent parse(std::string_view bytes) {
  auto tree = std::make_unique<RegistryTree>();
  ExportFault fault;
  if (readRegistryExport(bytes, *tree, fault)) {
    return {SharedTree(std::move(tree)), 0, 0, 0, {}};
  }
  return refuse(OSS_RC_BAD_PARAMETER, 40, fault.reason, fault.line);
}

// Reads as many bytes as `bytes` has room for, fewer where the file ends. Gives 0 or the system
// error.
int readBytes(int descriptor, const std::string& path, std::string& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count = oss::systemCall("read", path.c_str(), [&] {
      return ::pread(descriptor, bytes.data() + done, std::min(bytes.size() - done, readSize),
                     static_cast<off_t>(done));
    });
    if (count < 0) return errno;
    if (count == 0) break;
    done += static_cast<std::size_t>(count);
  }
  bytes.resize(done);
  return 0;
}

// Half of an export can look like a whole one: it counts only when the file has the size and the
// times afterwards that it had before. Gives the refusal; its code is 0 when `bytes` are the
// file's.
ExportContent readExport(int descriptor, const std::string& path, const FileState& before,
                         std::string& bytes) {
  const auto size = static_cast<std::size_t>(before.size);
  if (size > largestExport) return refuseUnreadable(EFBIG);
  bytes.resize(size);
  if (const int error = readBytes(descriptor, path, bytes); error != 0) {
    return refuseUnreadable(error);
  }
  FileState after;
  if (const int error = readState(descriptor, path, after); error != 0) {
    return refuseUnreadable(error);
  }
  if (bytes.size() != size || !(before == after)) {
    return refuse(OSS_RC_IO_ERROR, 30, "the file was changed while it was read");
  }
  return {};
}

// A file that changes twice within one tick of its clock looks unchanged; so what was read right
// after a change is kept with its bytes, which the next look compares.
bool hasSettled(const FileState& state) {
  return std::time(nullptr) - state.modified.tv_sec > settled;
}

class ExportCache {
 public:
  ExportContent load(const std::string& path) {
    const std::lock_guard<std::mutex> guard(mutex_);
    OSSHFile file;
    const OSSFileOpenParam param{
        OSS_PARAM_LEVEL, path.c_str(), OSS_ACCESS_READ_WRITE, OSS_OPEN_EXISTING, 0, 0, 0};
    if (file.open(&param) != 0) return refuseUnreadable(file.lastError());
    const int descriptor = static_cast<int>(file.getFileHandle());
    FileState state;
    if (const int error = readState(descriptor, path, state); error != 0) {
      return refuseUnreadable(error);
    }
    const auto known = std::find_if(entries_.begin(), entries_.end(),
                                    [&](const Entry& entry) { return entry.path == path; });
    Entry entry{path, state, {}, {}};
    if (known != entries_.end()) {
      if (known->state == state && known->bytes.empty()) return known->content;
      entry = std::move(*known);
      entries_.erase(known);
    }
    std::string bytes;
    if (ExportContent refusal = readExport(descriptor, path, state, bytes); refusal.code != 0) {
      return refusal;
    }
    if (entry.bytes.empty() || entry.bytes != bytes) entry.content = parse(bytes);
    entry.state = state;
    entry.bytes = hasSettled(state) ? std::string() : std::move(bytes);
    return keep(std::move(entry));
  }

 private:
  struct Entry {
    std::string path;
    FileState state;
    ExportContent content;
    std::string bytes;  // empty: the state says enough
  };

  ExportContent keep(Entry entry) {
    if (entries_.size() == mostKept) entries_.erase(entries_.begin());
    entries_.push_back(std::move(entry));
    return entries_.back().content;
  }

  std::mutex mutex_;
  std::vector<Entry> entries_;  // the oldest first
};

}  // namespace

ExportContent loadRegistryExport(const std::string& path) {
  static ExportCache cache;
  return cache.load(path);
}

void logRefusal(const std::string& path, const ExportContent& content) noexcept {
  ossLog(0, probeRegistryExport, content.code, content.point, failureSeverity, 3, path.c_str(),
         path.size(), OSS_LOG_STRING, &content.line, sizeof content.line, OSS_LOG_INT32,
         content.reason.c_str(), content.reason.size(), OSS_LOG_STRING);
}

}  // namespace platform
