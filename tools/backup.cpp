// zorreg KIND FILE backup TO, restore FROM.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>

#include "content_update.h"
#include "entries.h"
#include "file_content.h"
#include "file_verbs.h"
#include "output.h"
#include "report.h"
#include "sysservices/file_handle.h"
#include "sysservices/file_system.h"
#include "sysservices/return_codes.h"

namespace tool {
namespace {

// A file that is written beside `target` and gone again unless it takes that name.
class NewFile {
 public:
  explicit NewFile(const std::string& target)
      : target_(target), name_(target + ".part-" + std::to_string(std::random_device()())) {}
  ~NewFile() {
    if (!isWritten_) return;
    (void)file_.close();
    (void)ossFileDelete(name_.c_str());
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  // All of the bytes, on the disk, open to nobody who may not read `model`. An error number, or 0.
  int write(const std::string& bytes, const std::string& model) {
    if (file_.createPrivate(name_.c_str(), model.c_str()) != OSS_RC_OK) return file_.lastError();
    isWritten_ = true;
    OSSFileInfo info{};
    const OSSFileInfoRequest request{OSS_PARAM_LEVEL, model.c_str()};
    if (ossFileGetInfoV9(&request, &info) != OSS_RC_OK) return ossFileLastError();
    const bool done = file_.takeAttributes(model.c_str(), info) == OSS_RC_OK &&
                      file_.writeAt(bytes.data(), bytes.size(), 0) == OSS_RC_OK &&
                      file_.sync() == OSS_RC_OK && file_.close() == OSS_RC_OK;
    return done ? 0 : file_.lastError();
  }

  // In one step, and for good. A code of the system services, or 0.
  unsigned int name(bool replaces) {
    const unsigned int code = replaces && ossPathExists(target_.c_str())
                                  ? ossFileReplace(name_.c_str(), target_.c_str())
                                  : ossFileRename(name_.c_str(), target_.c_str());
    if (code != OSS_RC_OK) return code;
    isWritten_ = false;
    return ossDirectorySync(target_.c_str());
  }

 private:
  const std::string target_;
  const std::string name_;
  OSSHFile file_;
  bool isWritten_ = false;
};

// Whether the path is the registry or one of the files that its updates rename and delete.
bool isOfRegistry(const RegistryFiles& files, const std::string& path) {
  std::error_code none;
  const auto whole = [&](const std::string& name) {
    return std::filesystem::weakly_canonical(
        std::filesystem::absolute(std::filesystem::u8path(name), none), none);
  };
  for (const std::string* file :
       {&files.registry, &files.temporary, &files.corrupt, &files.lock, &files.backup}) {
    if (whole(*file) == whole(path)) return true;
  }
  return false;
}

int reportExisting(const std::string& path) {
  return reportConflict("the backup " + printable(path) +
                        " exists already and is not replaced; --force replaces it");
}

int reportUnwritten(const std::string& path, const std::string& why) {
  return reportFailure("the backup " + printable(path) + " cannot be written: " + why);
}

}  // namespace

int backup(Kind kind, const Words& words) {
  const RegistryFiles files(words.file);
  if (files.code != 0) return reportCode(files.code, words.file);
  const std::string reason = reasonAgainst(files.content(), kind, words.bigEndian);
  if (!reason.empty()) return reportRefusal(words.file, reason);
  if (isOfRegistry(files, words.other)) {
    return reportUsage("the backup " + printable(words.other) +
                       " has the name of the registry or of a file that its updates use");
  }
  if (!words.force && ossPathExists(words.other.c_str())) return reportExisting(words.other);
  if (ossPathExists(words.other.c_str()) && !ossIsFile(words.other.c_str())) {
    return reportUnwritten(words.other, "it is no plain file");
  }
  Content content;
  if (const int status = readContentOf(words.file, content); status != exitDone) return status;
  if (!content.isThere) return reportCode(GENREG_RC_NO_FILE, words.file);
  NewFile file(words.other);
  if (const int error = file.write(content.bytes, files.content()); error != 0) {
    return reportUnwritten(words.other, std::strerror(error));
  }
  const unsigned int code = file.name(words.force);
  if (code == OSS_RC_FILE_EXISTS) return reportExisting(words.other);
  return code == 0 ? int{exitDone}
                   : reportUnwritten(words.other, std::strerror(ossFileLastError()));
}

int restore(Kind kind, const Words& words) {
  const RegistryFiles files(words.file);
  if (files.code != 0) return reportCode(files.code, words.file);
  for (const std::string* file : {&files.content(), &words.other}) {
    const std::string reason = reasonAgainst(*file, kind, words.bigEndian);
    if (!reason.empty()) return reportRefusal(*file, reason);
  }
  std::string wanted;
  std::string again;
  if (!readContent(words.other, std::string::npos, wanted)) {
    const bool isThere = ossPathExists(words.other.c_str());
    return reportCode(isThere ? GENREG_RC_OPEN_FAILED : GENREG_RC_NO_FILE, words.other);
  }
  Words source = words;
  source.file = words.other;
  const Entries entries = readEntries(kind, source);
  if (entries.code != 0) return reportCode(entries.code, words.other, entries.cause);
  // What was judged is what was read.
  if (!readContent(words.other, std::string::npos, again) || again != wanted) {
    return reportRefusal(words.other, "was changed while it was read; nothing is restored");
  }
  bool isChanged = false;
  const int status = updateContent(words, [&](const Content& now, std::string& bytes) {
    isChanged = now.bytes != wanted;
    bytes = wanted;
    return int{exitDone};
  });
  if (status != exitDone) return status;
  std::printf("%s: %zu records restored from %s\n", shownText(printable(words.file)).c_str(),
              entries.all.size(), printable(words.other).c_str());
  return reportChange(words, isChanged);
}

}  // namespace tool
