// What the parts of the session ask of the system in the same words.
#pragma once

#include <cstdint>

#include "genreg/core/diagnostics.h"
#include "genreg_handle.h"
#include "sysservices/file_system.h"
#include "sysservices/return_codes.h"

namespace genreg {

constexpr std::uint32_t ownerReadWrite = 0600;

inline bool isUpdate(std::uint64_t kind) noexcept {
  return kind == GENREG_OP_CHANGE || kind == GENREG_OP_ADD || kind == GENREG_OP_DELETE;
}

// `permissions` of a new file: 0 for the owner's alone.
inline OSSFileOpenParam openParam(const char* path, std::uint32_t mode,
                                  std::uint64_t permissions) noexcept {
  const auto bits = permissions == 0 ? ownerReadWrite : static_cast<std::uint32_t>(permissions);
  return {OSS_PARAM_LEVEL, path, OSS_ACCESS_READ_WRITE, mode, 0, bits, 0};
}

inline Code infoOf(const char* path, OSSFileInfo* info) noexcept {
  const OSSFileInfoRequest request{OSS_PARAM_LEVEL, path};
  return ossFileGetInfoV9(&request, info);
}

inline Code deleteIfThere(const char* path) noexcept {
  const Code code = ossFileDelete(path);
  return code == OSS_RC_FILE_NOT_FOUND ? OSS_RC_OK : code;
}

}  // namespace genreg
