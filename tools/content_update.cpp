#include "content_update.h"

#include <cstdio>
#include <filesystem>

#include "file_content.h"
#include "genreg.h"
#include "report.h"
#include "store.h"

namespace tool {
namespace {

// All that a stream still holds; false after a read error.
bool readAll(std::FILE* stream, std::string& bytes) {
  char block[16384];
  bytes.clear();
  std::size_t count = 0;
  while ((count = std::fread(block, 1, sizeof block, stream)) != 0) bytes.append(block, count);
  return std::ferror(stream) == 0;
}

// Leads the library's own session by hand. The engine does not matter: no record is looked at.
class ContentHandle : public GenRegText {
 public:
  explicit ContentHandle(const std::string& file) : GenRegText(file.c_str(), &opened) {
    (void)setFeature(GENREG_VERIFY_UPDATES);
  }

  unsigned int opened = 0;

  unsigned int lock(std::uint64_t request) {
    return LockRegistry(request | GENREG_LOCK_EXCLUSIVE | GENREG_LOCK_CREATE_DIR);
  }
  unsigned int unlock() { return UnlockRegistry(); }

  unsigned int scan(Content& content) {
    const unsigned int code = OpenScan();
    if (code != 0) return code;
    content.isThere = true;
    const bool read = readAll(mainStream, content.bytes);
    const unsigned int closed = CloseScan();
    return read ? closed : GENREG_RC_READ_FAILED;
  }

  // Under the lock.
  unsigned int read(Content& content) {
    content = {};
    const unsigned int code = OpenRegFile(GENREG_OP_READ);
    if (code == GENREG_RC_NO_FILE) return 0;
    if (code != 0) return code;
    content.isThere = true;
    const bool read = readAll(mainStream, content.bytes);
    const unsigned int closed = CloseRegFile(GENREG_OP_READ);
    return read ? closed : GENREG_RC_READ_FAILED;
  }

  // Under the lock: a new file beside the one that must still hold `now`, synced, and once both
  // were read again, put in its place.
  unsigned int replace(const Content& now, const std::string& wanted) {
    const std::uint64_t kind = now.isThere ? GENREG_OP_CHANGE : GENREG_OP_ADD;
    unsigned int code = OpenRegFile(kind);
    if (code != 0) return code;
    if (!holds(mainStream, now.bytes)) {
      code = GENREG_RC_READ_FAILED;
    } else if (std::fwrite(wanted.data(), 1, wanted.size(), secondStream) != wanted.size()) {
      code = GENREG_RC_WRITE_NEW_FAILED;
    }
    const unsigned int closed = CloseRegFile(code == 0 ? kind : GENREG_OP_READ);
    if (code == 0) code = closed;
    return code == 0 ? verify(now, wanted) : code;
  }

 private:
  static bool holds(std::FILE* stream, const std::string& expected) {
    std::string bytes;
    return readAll(stream, bytes) && bytes == expected;
  }

  unsigned int verify(const Content& now, const std::string& wanted) {
    const unsigned int code = OpenRegFile(GENREG_OP_VERIFY);
    if (code != 0) return code;
    const bool fits = holds(mainStream, now.bytes) && holds(secondStream, wanted);
    const unsigned int closed = CloseRegFile(fits ? GENREG_OP_VERIFY : GENREG_OP_READ);
    return fits ? closed : GENREG_RC_VERIFY_FAILED;
  }
};

// What may not be looked at is not known to be missing.
bool isAbsent(const std::string& path) {
  std::error_code code;
  return std::filesystem::symlink_status(std::filesystem::u8path(path), code).type() ==
         std::filesystem::file_type::not_found;
}

int report(const ContentHandle& handle, unsigned int code, const std::string& file) {
  return reportCode(code, file, handle.getLastCause());
}

// Under the lock.
int rewriteContent(ContentHandle& handle, const std::string& file, const Rewrite& rewrite) {
  Content now;
  if (const unsigned int code = handle.read(now); code != 0) return report(handle, code, file);
  std::string wanted = now.bytes;
  if (const int status = rewrite(now, wanted); status != exitDone) return status;
  if (now.isThere && wanted == now.bytes) return exitDone;
  if (const unsigned int code = handle.replace(now, wanted); code != 0) {
    return report(handle, code, file);
  }
  Content stored;
  if (const unsigned int code = handle.read(stored); code != 0) return report(handle, code, file);
  return stored.bytes == wanted
             ? int{exitDone}
             : reportRefusal(file, "was replaced by another program right after it was written");
}

}  // namespace

int readContentOf(const std::string& file, Content& content) {
  content = {};
  const RegistryFiles files(file);
  if (files.code != 0) return reportCode(files.code, file);
  constexpr int mostTries = 3;
  ContentHandle handle(file);
  unsigned int code = handle.opened;
  for (int tries = 0; handle.opened == 0 && tries < mostTries; ++tries) {
    code = handle.scan(content);
    if (code == 0) return exitDone;
    if (code != GENREG_RC_OPEN_FAILED) break;
    if (isAbsent(files.registry) && isAbsent(files.backup)) return exitDone;
    // Somebody may have made it since.
  }
  return report(handle, code, file);
}

int updateContent(const Words& words, const Rewrite& rewrite) {
  ContentHandle handle(words.file);
  if (handle.opened != 0) return reportCode(handle.opened, words.file);
  std::uint64_t milliseconds = 0;
  if (const std::string wrong = readWait(words, milliseconds); !wrong.empty()) {
    return reportUsage(wrong);
  }
  (void)handle.setLockTimeout(milliseconds);
  if (const unsigned int code = handle.lock(GENREG_LOCK_WAIT); code != 0) {
    return report(handle, code, words.file);
  }
  const int status = rewriteContent(handle, words.file, rewrite);
  const unsigned int code = handle.unlock();
  return status == exitDone && code != 0 ? report(handle, code, words.file) : status;
}

}  // namespace tool
