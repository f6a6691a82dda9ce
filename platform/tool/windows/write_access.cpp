#include "platform/tool/write_access.h"

#include <windows.h>

#include <cerrno>

#include "sysservices/windows/wide_text.h"

namespace platform {

// Opening a directory with the right to add files is refused to whoever has it not.
int directoryWriteError(const std::string& directory) noexcept {
  constexpr DWORD everybody = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  const HANDLE handle =
      ::CreateFileW(oss::WidePath(directory.c_str()).get(), FILE_ADD_FILE, everybody, nullptr,
                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    return ::GetLastError() == ERROR_WRITE_PROTECT ? EROFS : EACCES;
  }
  (void)::CloseHandle(handle);
  return 0;
}

}  // namespace platform
