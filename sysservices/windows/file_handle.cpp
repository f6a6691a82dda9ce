// File handles over system handles, locked with LockFileEx.
//
// Such a lock belongs to the open file, which a duplicated handle shares, and ends with it.
// Registry files are opened so that others may rename and delete them meanwhile: a commit renames
// the file that a reader has open. Lock files are opened so that nobody may: whoever has one open
// or waits for it has the file that stands at the name, and there is never a second one.
#include "sysservices/file_handle.h"

// The second header needs the first.
// clang-format off
#include <windows.h>
#include <winioctl.h>
// clang-format on

#include <algorithm>

#include "sysservices/return_codes.h"
#include "sysservices/windows/system_call.h"

namespace {

HANDLE systemHandle(std::intptr_t handle) {
  return reinterpret_cast<HANDLE>(handle);  // NOLINT(performance-no-int-to-ptr)
}

// What a file that is to take another's place has of it from birth: its access list, and attributes
// of which the system keeps no other copy.
class Model {
 public:
  explicit Model(const oss::WidePath& path) noexcept {
    DWORD size = sizeof list_;
    hasList_ = ::GetFileSecurityW(path.get(), DACL_SECURITY_INFORMATION, list_, size, &size) != 0;
    if (!hasList_) error_ = ::GetLastError();
    const DWORD found = ::GetFileAttributesW(path.get());
    if (found != INVALID_FILE_ATTRIBUTES) attributes_ = found;
    if (!hasList_) return;
    DWORD revision = 0;
    (void)::GetSecurityDescriptorControl(list_, &control_, &revision);
    // Entries of the directory would be added to a list that is not protected.
    (void)::SetSecurityDescriptorControl(list_, SE_DACL_PROTECTED, SE_DACL_PROTECTED);
  }
  // Whether the new file would be as closed as the old one; a file system without access lists
  // has nothing to close.
  bool isKnown() const {
    return hasList_ || error_ == ERROR_NOT_SUPPORTED || error_ == ERROR_INVALID_FUNCTION;
  }
  DWORD error() const { return error_; }
  DWORD attributes() const {
    return attributes_ & (FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ENCRYPTED |
                          FILE_ATTRIBUTE_NOT_CONTENT_INDEXED);
  }
  bool isCompressed() const { return (attributes_ & FILE_ATTRIBUTE_COMPRESSED) != 0; }
  SECURITY_DESCRIPTOR* descriptor() {
    return hasList_ ? reinterpret_cast<SECURITY_DESCRIPTOR*>(list_) : nullptr;
  }

  // Gives the new file the list once more, now with what it says of inheritance: an entry of the
  // directory stays one, and follows when that one is changed. Who has access is the same without.
  void giveInheritance(HANDLE handle) noexcept {
    if (!hasList_ || (control_ & SE_DACL_PROTECTED) != 0) return;
    constexpr SECURITY_DESCRIPTOR_CONTROL inherits =
        SE_DACL_AUTO_INHERITED | SE_DACL_AUTO_INHERIT_REQ;
    const bool has = (control_ & SE_DACL_AUTO_INHERITED) != 0;
    (void)::SetSecurityDescriptorControl(list_, SE_DACL_PROTECTED | inherits, has ? inherits : 0);
    (void)::SetKernelObjectSecurity(
        handle, DACL_SECURITY_INFORMATION | UNPROTECTED_DACL_SECURITY_INFORMATION, list_);
  }

 private:
  alignas(SECURITY_DESCRIPTOR) BYTE list_[16 * 1024];
  SECURITY_DESCRIPTOR_CONTROL control_ = 0;
  DWORD attributes_ = 0;
  bool hasList_;
  DWORD error_ = ERROR_SUCCESS;
};

OVERLAPPED placeAt(std::uint64_t offset) {
  OVERLAPPED place{};
  place.Offset = static_cast<DWORD>(offset);
  place.OffsetHigh = static_cast<DWORD>(offset >> 32);
  return place;
}

// One read or write past the fault hook, which may fail it or make it fall short. False with errno.
template <typename Call>
bool transfer(const char* operation, std::size_t count, DWORD* done, Call call) {
  constexpr std::size_t most = std::size_t{1} << 30;  // the system counts in 32 bits
  const int fault = ossFaultPoint(operation, nullptr);
  if (fault > 0 && fault != EINTR) {
    errno = fault;
    return false;
  }
  std::size_t asked = std::min(count, most);
  if (fault == OSS_FAULT_SHORT && asked > 1) asked /= 2;
  if (fault < OSS_FAULT_SHORT) asked = std::min(asked, static_cast<std::size_t>(-1 - fault));
  *done = 0;
  if (call(static_cast<DWORD>(asked), done) || ::GetLastError() == ERROR_HANDLE_EOF) return true;
  errno = oss::errnoOf(::GetLastError());
  return false;
}

}  // namespace

unsigned int OSSHFile::reopen() noexcept {
  const bool reads = openMode_ == OSS_OPEN_EXISTING;
  oss::FileOpening opening{};
  opening.access = reads ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE;
  opening.disposition = reads ? OPEN_EXISTING : OPEN_ALWAYS;
  opening.canBeRemovedMeanwhile = !isLockFile();
  opening.followsLinks = reads && (options_ & OSS_OPEN_NO_LINK) == 0 && !isLockFile();
  opening.hasOneName = isLockFile();
  if ((permissions_ & oss::ownerWrite) == 0) opening.attributes = FILE_ATTRIBUTE_READONLY;
  const HANDLE handle = oss::openFile(path_, opening, &created_);
  if (handle == INVALID_HANDLE_VALUE) return fail(errno);
  // Whoever writes to the handle itself appends, too.
  if (openMode_ == OSS_OPEN_APPEND) (void)::SetFilePointerEx(handle, {}, nullptr, FILE_END);
  handle_ = reinterpret_cast<std::intptr_t>(handle);
  return OSS_RC_OK;
}

// The file has the access list of its model from birth. One whose list cannot be had, or that is
// not encrypted as its model is, is refused by takeAttributes, before anything is written to it.
unsigned int OSSHFile::createPrivate(const char* path, const char* model) noexcept {
  startAnew(path, OSS_OPEN_EXISTING, 0);
  Model old{oss::WidePath(model)};
  oss::FileOpening opening{GENERIC_READ | GENERIC_WRITE | WRITE_DAC, CREATE_NEW, true, false};
  opening.attributes = old.attributes();
  opening.security = old.descriptor();
  const HANDLE handle = oss::openFile(path, opening, &created_);
  if (handle == INVALID_HANDLE_VALUE) return fail(errno);
  handle_ = reinterpret_cast<std::intptr_t>(handle);
  old.giveInheritance(handle);
  if (old.isCompressed()) {  // one that is larger than it could be is no failure
    USHORT format = COMPRESSION_FORMAT_DEFAULT;
    DWORD none = 0;
    (void)::DeviceIoControl(handle, FSCTL_SET_COMPRESSION, &format, sizeof format, nullptr, 0,
                            &none, nullptr);
  }
  error_ = old.isKnown() ? 0 : oss::errnoOf(old.error());
  BY_HANDLE_FILE_INFORMATION status;
  const bool encrypts = (old.attributes() & FILE_ATTRIBUTE_ENCRYPTED) != 0;
  if (encrypts && (::GetFileInformationByHandle(handle, &status) == 0 ||
                   (status.dwFileAttributes & FILE_ATTRIBUTE_ENCRYPTED) == 0)) {
    error_ = ENOTSUP;
  }
  return OSS_RC_OK;
}

// Owner and group are who makes the file. A handle that may write keeps doing so when the file
// becomes read-only.
unsigned int OSSHFile::takeAttributes(const char*, const OSSFileInfo& info) noexcept {
  if (error_ != 0) return fail(error_);  // createPrivate left it
  const HANDLE handle = systemHandle(handle_);
  constexpr DWORD settable =
      FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;
  const bool becomesReadOnly = (info.permissions & oss::ownerWrite) == 0;
  const bool done = oss::systemCall("fchmod", nullptr, [&] {
    if (!becomesReadOnly) return true;
    FILE_BASIC_INFO basic{};  // what is 0 stays as it is
    FILE_BASIC_INFO now{};
    if (::GetFileInformationByHandleEx(handle, FileBasicInfo, &now, sizeof now) == 0) return false;
    basic.FileAttributes =
        (now.FileAttributes & settable) | FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE;
    return ::SetFileInformationByHandle(handle, FileBasicInfo, &basic, sizeof basic) != 0;
  });
  return done ? OSS_RC_OK : fail(errno);
}

// Lock files have the access list that their directory gives.
void OSSHFile::shareWithWriters(const OSSFileInfo&) noexcept {}

unsigned int OSSHFile::duplicate(const OSSHFile& other) noexcept {
  startAnew(other.path_, OSS_OPEN_EXISTING, 0);
  const HANDLE self = ::GetCurrentProcess();
  HANDLE copy = nullptr;
  const bool done = oss::systemCall("fcntl", nullptr, [&] {
    return ::DuplicateHandle(self, systemHandle(other.handle_), self, &copy, 0, FALSE,
                             DUPLICATE_SAME_ACCESS) != 0;
  });
  if (!done) return fail(errno);
  handle_ = reinterpret_cast<std::intptr_t>(copy);
  return OSS_RC_OK;
}

unsigned int OSSHFile::takeLock(bool exclusive, bool wait) noexcept {
  if (!isOpen()) return fail(EBADF);
  const HANDLE handle = systemHandle(handle_);
  const DWORD flags = (exclusive ? DWORD{LOCKFILE_EXCLUSIVE_LOCK} : 0) |
                      (wait ? 0 : DWORD{LOCKFILE_FAIL_IMMEDIATELY});
  // The locks of an open file do not replace one another: an earlier one would be in the way.
  (void)oss::unlockHandle(handle);
  return oss::systemCall("flock", path_, [&] { return oss::lockHandle(handle, flags); })
             ? OSS_RC_OK
             : fail(errno);
}

unsigned int OSSHFile::unlock() noexcept {
  if (!isOpen()) return fail(EBADF);
  const HANDLE handle = systemHandle(handle_);
  if (!oss::systemCall("flock", path_, [&] { return oss::unlockHandle(handle); })) {
    return fail(errno);
  }
  lockOwner_ = 0;
  return OSS_RC_OK;
}

unsigned int OSSHFile::readSome(void* bytes, std::size_t count, std::uint64_t offset,
                                std::size_t* done) noexcept {
  const HANDLE handle = systemHandle(handle_);
  DWORD part = 0;
  OVERLAPPED place = placeAt(offset);
  const bool moved = transfer("read", count, &part, [&](DWORD asked, DWORD* got) {
    return ::ReadFile(handle, bytes, asked, got, &place) != 0;
  });
  *done = moved ? part : 0;
  return moved ? OSS_RC_OK : fail(errno);
}

unsigned int OSSHFile::writeAt(const void* bytes, std::size_t count,
                               std::uint64_t offset) noexcept {
  const HANDLE handle = systemHandle(handle_);
  for (std::size_t done = 0; done < count;) {
    DWORD part = 0;
    OVERLAPPED place = placeAt(offset + done);
    const bool moved = transfer("write", count - done, &part, [&](DWORD asked, DWORD* put) {
      return ::WriteFile(handle, static_cast<const char*>(bytes) + done, asked, put, &place) != 0;
    });
    if (!moved || part == 0) return fail(moved ? ENOSPC : errno);
    done += part;
  }
  return OSS_RC_OK;
}

unsigned int OSSHFile::sync() noexcept {
  const HANDLE handle = systemHandle(handle_);
  const bool done =
      oss::systemCall("fsync", nullptr, [&] { return ::FlushFileBuffers(handle) != 0; });
  return done ? OSS_RC_OK : fail(errno);
}

unsigned int OSSHFile::truncate(std::uint64_t size) noexcept {
  const HANDLE handle = systemHandle(handle_);
  FILE_END_OF_FILE_INFO end{};
  end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
  const bool done = oss::systemCall("ftruncate", nullptr, [&] {
    return ::SetFileInformationByHandle(handle, FileEndOfFileInfo, &end, sizeof end) != 0;
  });
  return done ? OSS_RC_OK : fail(errno);
}

unsigned int OSSHFile::getInfo(OSSFileInfo* info) noexcept {
  if (!isOpen()) return fail(EBADF);
  BY_HANDLE_FILE_INFORMATION status;
  const HANDLE handle = systemHandle(handle_);
  const bool done = oss::systemCall(
      "fstat", nullptr, [&] { return ::GetFileInformationByHandle(handle, &status) != 0; });
  if (!done) return fail(errno);
  oss::takeStatus(status, info);
  return OSS_RC_OK;
}

bool OSSHFile::isAt(const char* path) noexcept {
  OSSFileInfo opened{};
  if (getInfo(&opened) != OSS_RC_OK) return false;
  BY_HANDLE_FILE_INFORMATION status;
  bool isLink = false;
  if (!oss::askFile(path, &status, &isLink)) return false;
  OSSFileInfo named{};
  oss::takeStatus(status, &named);
  return opened.isSameFile(named);
}

// A lock that is left to the close may end a while after it; one of a handle that shares the open
// file stays.
unsigned int OSSHFile::close() noexcept {
  if (!isOpen()) return OSS_RC_OK;
  const HANDLE handle = systemHandle(handle_);
  handle_ = -1;
  if (lockOwner_ != 0) (void)oss::unlockHandle(handle);
  lockOwner_ = 0;
  const int error = oss::closeHandle(handle);
  return error == 0 ? OSS_RC_OK : fail(error);
}
