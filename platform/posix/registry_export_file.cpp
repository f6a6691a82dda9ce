#include "platform/posix/registry_export_file.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/registry_export/registry_export.h"
#include "sysservices/diagnostics.h"
#include "sysservices/file_handle.h"
#include "sysservices/return_codes.h"

namespace platform {
namespace {

constexpr unsigned int probeRegistryExport = 0x081A0100u;
constexpr unsigned int failureSeverity = 2;
constexpr std::size_t largestExport = std::size_t{1} << 30;  // bytes
constexpr std::size_t readSize = std::size_t{256} * 1024;    // bytes of one read
constexpr std::size_t mostKept = 8;                          // exports that are kept parsed
constexpr std::int64_t settled = 2;  // seconds; no file system's times are coarser
constexpr std::int64_t nanoseconds = 1000000000;

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
  const auto tree = std::make_shared<RegistryTree>();
  ExportFault fault;
  if (readRegistryExport(bytes, *tree, fault)) {
    return {tree, 0, 0, 0, {}};
  }
  return refuse(OSS_RC_BAD_PARAMETER, 40, fault.reason, fault.line);
}

// Half of an export can look like a whole one: it counts only when the file has the size and the
// times afterwards that it had before. Gives the refusal; its code is 0 when `bytes` are the
// file's.
ExportContent readExport(OSSHFile& file, const OSSFileInfo& before, std::string& bytes) {
  if (before.size > largestExport) return refuseUnreadable(EFBIG);
  bytes.resize(before.size);
  std::size_t part = 1;
  for (std::size_t done = 0; part > 0 && done < bytes.size(); done += part) {
    const std::size_t count = std::min(bytes.size() - done, readSize);
    if (file.readAt(bytes.data() + done, count, done, &part) != 0) {
      return refuseUnreadable(file.lastError());
    }
  }
  OSSFileInfo after{};
  if (file.getInfo(&after) != 0) return refuseUnreadable(file.lastError());
  if (part == 0 || !before.isUntouched(after)) {
    return refuse(OSS_RC_IO_ERROR, 30, "the file was changed while it was read");
  }
  return {};
}

// A file that changes twice within one tick of its clock looks unchanged; so what was read right
// after a change is kept with its bytes, which the next look compares.
bool hasSettled(const OSSFileInfo& info) {
  return std::time(nullptr) - info.modified / nanoseconds > settled;
}

class ExportCache {
 public:
  ExportContent load(const std::string& path) {
    const std::lock_guard<std::mutex> guard(mutex_);
    OSSHFile file;
    const OSSFileOpenParam param{
        OSS_PARAM_LEVEL, path.c_str(), OSS_ACCESS_READ_WRITE, OSS_OPEN_EXISTING, 0, 0, 0};
    if (file.open(&param) != 0) return refuseUnreadable(file.lastError());
    OSSFileInfo info{};
    if (file.getInfo(&info) != 0) return refuseUnreadable(file.lastError());
    const auto known = std::find_if(entries_.begin(), entries_.end(),
                                    [&](const Entry& entry) { return entry.path == path; });
    Entry entry{path, info, {}, {}};
    if (known != entries_.end()) {
      if (known->info.isUntouched(info) && known->bytes.empty()) return known->content;
      entry = std::move(*known);
      entries_.erase(known);
    }
    std::string bytes;
    if (ExportContent refusal = readExport(file, info, bytes); refusal.code != 0) return refusal;
    if (entry.bytes.empty() || entry.bytes != bytes) entry.content = parse(bytes);
    entry.info = info;
    entry.bytes = hasSettled(info) ? std::string() : std::move(bytes);
    return keep(std::move(entry));
  }

 private:
  struct Entry {
    std::string path;
    OSSFileInfo info;
    ExportContent content;
    std::string bytes;  // empty: the times say enough
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
