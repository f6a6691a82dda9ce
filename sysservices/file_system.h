// Paths, files and directories. Every function takes NUL-terminated paths, returns 0 or a code of
// sysservices/return_codes.h, and gives OSS_RC_NULL_ARGUMENT for a null argument.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "sysservices/export.h"

// The separator between path components that this platform writes; "/" is understood everywhere.
extern ZOROSSE_API const char ossPathSeparator;

// The last component of `path` into `buffer` of `size` bytes.
// OSS_RC_BUFFER_TOO_SMALL when it does not fit; OSS_RC_BAD_PARAMETER when there is none.
ZOROSSE_API unsigned int ossBaseName(const char* path, char* buffer, std::size_t size);

// The directory of `path`; "." for a bare name, the drive before it if it has one. Codes as
// ossBaseName.
ZOROSSE_API unsigned int ossDirectoryName(const char* path, char* buffer, std::size_t size);

struct OSSDirectoryCreateParam {
  std::uint32_t level;  // OSS_PARAM_LEVEL
  const char* path;
  std::uint32_t permissions;
  std::uint32_t purpose;  // 1 or 2; both create the one directory, its parent must exist
};

// Creates a directory and makes its name durable. A directory that exists already is success.
ZOROSSE_API unsigned int ossDirectoryCreate(const OSSDirectoryCreateParam* param);

// True when `path`, links followed, is a directory or a plain file.
ZOROSSE_API bool ossIsDirectory(const char* path);
ZOROSSE_API bool ossIsFile(const char* path);

// True when anything, a dangling link included, has this name.
ZOROSSE_API bool ossPathExists(const char* path);

// Removes a file's name, which is free at once, whoever has the file open. A lock file (its name
// ends in ".lock") is removed only while its lock is held by this very call or, where the system
// keeps an open one from being removed, while nobody has it open: else, or when a newer file stands
// at the name, the name is left to that holder and the result is 0. OSS_RC_FILE_NOT_FOUND when
// there is no such name, OSS_RC_NOT_A_FILE for a directory.
ZOROSSE_API unsigned int ossFileDelete(const char* path);

// Renames a file. OSS_RC_FILE_EXISTS when the target exists, OSS_RC_FILE_NOT_FOUND when the source
// does not.
ZOROSSE_API unsigned int ossFileRename(const char* source, const char* target);

// Sets what the platform has of the permissions: all of them, or whether the file may be written.
// Never through a symbolic link (OSS_RC_NOT_A_FILE).
ZOROSSE_API unsigned int ossFileSetPermissions(const char* path, std::uint32_t permissions);

struct OSSFileInfoRequest {
  std::uint32_t level;  // OSS_PARAM_LEVEL
  const char* path;
};

struct OSSFileInfo {
  std::uint64_t size;  // bytes
  std::uint32_t permissions;
  std::uint32_t owner;
  std::uint32_t group;
  std::uint64_t links;  // names the file has
  bool isFile;          // a plain file, links followed
  bool isSymbolicLink;  // the path itself is a symbolic link
};

// Information on the file that `path` leads to; OSS_RC_FILE_NOT_FOUND when there is none.
ZOROSSE_API unsigned int ossFileGetInfoV9(const OSSFileInfoRequest* request, OSSFileInfo* info);

// An existing file as a binary stream for reading, to be closed by the caller. It keeps nobody from
// renaming or deleting the file, and no child process inherits it. Null when it cannot be opened.
ZOROSSE_API std::FILE* ossFileOpenToRead(const char* path);

// The system error number (errno) behind the last failed function of this header, of this thread.
ZOROSSE_API int ossFileLastError();
