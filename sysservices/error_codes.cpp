#include "sysservices/inner/error_codes.h"

#include <cerrno>

#include "sysservices/return_codes.h"

#ifndef EDQUOT  // this platform tells a full quota as a full disk
#define EDQUOT ENOSPC
#endif

namespace oss {

unsigned int codeOfError(int error) noexcept {
  struct Row {
    int error;
    unsigned int code;
  };
  static constexpr Row rows[] = {
      {ENOENT, OSS_RC_FILE_NOT_FOUND}, {ENOTDIR, OSS_RC_FILE_NOT_FOUND},
      {EACCES, OSS_RC_ACCESS_DENIED},  {EPERM, OSS_RC_ACCESS_DENIED},
      {EROFS, OSS_RC_ACCESS_DENIED},   {ENOMEM, OSS_RC_NO_MEMORY},
      {EEXIST, OSS_RC_FILE_EXISTS},    {ENOTEMPTY, OSS_RC_FILE_EXISTS},
      {EWOULDBLOCK, OSS_RC_LOCK_BUSY}, {EIO, OSS_RC_IO_ERROR},
      {ENOSPC, OSS_RC_DISK_FULL},      {EDQUOT, OSS_RC_DISK_FULL},
      {EFBIG, OSS_RC_DISK_FULL},       {EMFILE, OSS_RC_TOO_MANY_FILES},
      {ENFILE, OSS_RC_TOO_MANY_FILES}, {EISDIR, OSS_RC_NOT_A_FILE},
      {ELOOP, OSS_RC_NOT_A_FILE},      {ENXIO, OSS_RC_NOT_A_FILE},
      {EINVAL, OSS_RC_BAD_PARAMETER},  {ENAMETOOLONG, OSS_RC_NAME_TOO_LONG},
      {ENOTSUP, OSS_RC_NOT_SUPPORTED},
  };
  for (const Row& row : rows) {
    if (row.error == error) return row.code;
  }
  return OSS_RC_SYSTEM_ERROR;
}

}  // namespace oss
