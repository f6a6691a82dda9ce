// Paths, files and directories. Every function takes NUL-terminated paths, returns 0 or a code of
// sysservices/return_codes.h, and gives OSS_RC_NULL_ARGUMENT for a null argument.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "sysservices/export.h"
#include "sysservices/file_handle.h"

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

// Creates a directory with those permissions, whatever the umask, and makes its name durable. A
// directory that exists already is success.
ZOROSSE_API unsigned int ossDirectoryCreate(const OSSDirectoryCreateParam* param);

// True when `path`, links followed, is a directory or a plain file.
ZOROSSE_API bool ossIsDirectory(const char* path);
ZOROSSE_API bool ossIsFile(const char* path);

// True when anything, a dangling link included, has this name.
ZOROSSE_API bool ossPathExists(const char* path);

// `path` as it is found from the current directory now, whatever becomes of that: absolute, into
// `buffer` of `size` bytes. OSS_RC_BUFFER_TOO_SMALL when it does not fit; the mapped system error
// when the current directory has no name.
ZOROSSE_API unsigned int ossAbsolutePath(const char* path, char* buffer, std::size_t size);

// Removes a file's name, which is free at once, whoever has the file open. OSS_RC_FILE_NOT_FOUND
// when there is no such name, OSS_RC_NOT_A_FILE for a directory.
ZOROSSE_API unsigned int ossFileDelete(const char* path);

// The same for a lock file, which is removed only while its lock is held by this very call or,
// where the system keeps an open one from being removed, while nobody has it open: else, or when a
// newer file stands at the name, the name is left to that holder and the result is 0.
ZOROSSE_API unsigned int ossLockFileDelete(const char* path);

// Renames a file. OSS_RC_FILE_EXISTS when the target exists, OSS_RC_FILE_NOT_FOUND when the source
// does not.
ZOROSSE_API unsigned int ossFileRename(const char* source, const char* target);

// Gives a file a second name, on which nothing stands yet. OSS_RC_FILE_EXISTS when something does;
// OSS_RC_NOT_SUPPORTED where a file has only one name, or none can be added.
ZOROSSE_API unsigned int ossFileLink(const char* path, const char* second);

// Renames a file over another, which it replaces in one step: whoever opens `target` finds the one
// or the other. OSS_RC_NOT_SUPPORTED where the system refuses that while somebody has it open.
ZOROSSE_API unsigned int ossFileReplace(const char* source, const char* target);

// Exchanges the names of two files in one step. OSS_RC_FILE_NOT_FOUND when one is missing;
// OSS_RC_NOT_SUPPORTED where the system or the file system cannot do that.
ZOROSSE_API unsigned int ossFileExchange(const char* one, const char* other);

// Whether the system lets this process put another file in the place of the one at `path`, which
// `info` describes: in a directory that only lets owners do so, it may not be another user's.
ZOROSSE_API bool ossFileMayBeReplaced(const char* path, const OSSFileInfo* info);

// Makes the names in the directory of `path` durable. A directory that may not be read is synced
// with everything else on its file system. Returns 0 or the mapped system error.
ZOROSSE_API unsigned int ossDirectorySync(const char* path);

// Sets what the platform has of the permissions: all of them, or whether the file may be written.
// Never through a symbolic link (OSS_RC_NOT_A_FILE).
ZOROSSE_API unsigned int ossFileSetPermissions(const char* path, std::uint32_t permissions);

struct OSSFileInfoRequest {
  std::uint32_t level;  // OSS_PARAM_LEVEL
  const char* path;
};

// Information on the file that `path` leads to; OSS_RC_FILE_NOT_FOUND when there is none.
ZOROSSE_API unsigned int ossFileGetInfoV9(const OSSFileInfoRequest* request, OSSFileInfo* info);

// The time that a file changed now would have, in nanoseconds as OSSFileInfo counts them; it moves
// in the steps of the system's clock.
ZOROSSE_API std::int64_t ossFileClock();

// An existing file as a binary stream for reading, to be closed by the caller. It keeps nobody from
// renaming or deleting the file, and no child process inherits it. Null when it cannot be opened.
ZOROSSE_API std::FILE* ossFileOpenToRead(const char* path);

// The system error number (errno) behind the last failed function of this header, of this thread.
ZOROSSE_API int ossFileLastError();
