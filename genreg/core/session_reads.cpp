// How the session reads: it opens the registry file, or its backup while only that exists, keeps
// content between reads, and shows what is open as streams.
#include <new>

#include "genreg/core/cached_reads.h"
#include "genreg/core/session.h"
#include "genreg/core/session_calls.h"
#include "sysservices/memory.h"

namespace genreg {
namespace {

bool isMissing(Code code) { return code == OSS_RC_FILE_NOT_FOUND || code == OSS_RC_NOT_A_FILE; }

}  // namespace

Code Session::askSize(std::uint64_t* size) const noexcept {
  OSSFileInfo info{};
  const Code code = infoOf(registryPath(), &info);
  *size = info.size;
  return code;
}

// Where the file system has no hard links, a commit renames the registry to its backup name before
// it renames the new file into place, and a crash may leave it there. The backup then is the last
// committed content; the file is complete under either name, and whichever is opened stays what it
// is. One round missed 31 times in 25 million opens against a writer in a tight loop, three rounds
// never did.
Code Session::openReadable(Routine& routine, bool mustExist, unsigned int point) noexcept {
  constexpr int rounds = 3;
  appending_ = false;
  Step failed = Step::Open;
  Code code = openToRead(main_, registryPath(), 0, &failed);
  for (int round = 0; isMissing(code) && round < rounds; ++round) {
    code = openToRead(main_, backupPath(), OSS_OPEN_NO_LINK, &failed);
    if (!isMissing(code)) break;  // a backup that cannot be read is not "no registry"
    code = openToRead(main_, registryPath(), 0, &failed);
  }
  if (code == 0) return GENREG_RC_OK;
  if (isMissing(code) && !mustExist) {
    (void)routine.end(GENREG_RC_NO_FILE);
    return GENREG_RC_NO_FILE;
  }
  if (failed == Step::Begin) {
    (void)routine.failSystem(static_cast<int>(code), GENREG_RC_OPEN_FAILED, point + 20,
                             registryPath());
    return routine.code();
  }
  const bool opened = failed == Step::Lock;
  const Code result = opened ? GENREG_RC_FILE_LOCK : GENREG_RC_OPEN_FAILED;
  if (opened) point += 10;
  (void)routine.failFrom(opened ? probeFileLock : probeFileOpen, code, result, point);
  return routine.refuse(result, point + 1, text(registryPath()));
}

// The code of opening or locking, or the error number of beginning to read.
Code Session::openToRead(File& file, const char* path, std::uint32_t options,
                         Step* failed) noexcept {
  OSSFileOpenParam param = openParam(path, OSS_OPEN_EXISTING, handle_.registryPermissions);
  param.options = options | OSS_OPEN_CHECK_LATER;
  *failed = Step::Open;
  if (const Code code = file.handle().open(&param); code != 0) return code;
  const OSSFileLockParam lockParam{OSS_PARAM_LEVEL,
                                   g_bIsPlatformID_Win32On95 ? OSS_LOCK_EXCLUSIVE : OSS_LOCK_SHARED,
                                   OSS_LOCK_WAIT};
  if (const Code code = file.handle().lock(&lockParam); code != 0) {
    (void)file.handle().close();
    *failed = Step::Lock;
    return code;
  }
  Code unsuitable = 0;
  const int error = file.beginReading(&unsuitable);
  if (error != 0) *failed = Step::Begin;
  return error != 0 ? static_cast<Code>(error) : unsuitable;
}

// --- content that is kept between reads ---

void Session::setCachedReads(bool on) noexcept {
  caches_ = on;
  if (!on && scanned_ == &main_) dropCache();
}

void Session::dropCache() noexcept {
  if (cache_ == nullptr) return;
  void* memory = cache_;
  cache_->~CachedReads();
  cache_ = nullptr;
  (void)_ossMemFree(&memory, 0, 0, "session", __LINE__);
}

// What is not plainly the registry under its own name takes openReadable(), which also finds the
// words for what is wrong.
CachedReads* Session::cachedReads() noexcept {
  const bool isBusy = main_.isOpen() || second_.isOpen() || isScanning();
  if (!caches_ || isBusy) return nullptr;
  if (cache_ == nullptr) {
    void* memory = nullptr;
    if (_ossMemAlloc(&memory, 0, sizeof(CachedReads), 1, "session", __LINE__) != 0) return nullptr;
    cache_ = new (memory) CachedReads;
  }
  if (cache_->isCurrent(registryPath())) return cache_;
  cache_->drop();
  const std::int64_t start = ossFileClock();
  Step failed = Step::Open;
  const bool opened = openToRead(cache_->file(), registryPath(), 0, &failed) == 0;
  return opened && cache_->load(start) ? cache_ : nullptr;
}

bool Session::scanCached() noexcept {
  CachedReads* cache = cachedReads();
  if (cache == nullptr) return false;
  scanned_ = &cache->file();
  scanned_->seek(0);
  return true;
}

int Session::endScan() noexcept {
  if (scanned_ == &main_) return main_.close();
  scanned_->endStream();
  scanned_ = &main_;
  if (!caches_) dropCache();
  return 0;
}

// --- the handle's streams ---

bool Session::showStreams() noexcept {
  handle_.mainStream = scanned_->isOpen() ? scanned_->stream() : nullptr;
  handle_.secondStream = second_.isOpen() ? second_.stream() : nullptr;
  return (!scanned_->isOpen() || handle_.mainStream != nullptr) &&
         (!second_.isOpen() || handle_.secondStream != nullptr);
}

void Session::hideStreams() noexcept {
  handle_.mainStream = nullptr;
  handle_.secondStream = nullptr;
}

}  // namespace genreg
