// Return codes of the system-services space, one row each: name, value, meaning.
//
// The registry library adds its own rows in genreg_codes.h; a row is the only place where a code is
// spelled out, so the constant, the log and the tool cannot disagree.
#pragma once

#define OSS_RETURN_CODES(CODE)                                                                   \
  CODE(OSS_RC_NOT_SUPPORTED, 0x90000005u, "the operation is not supported on this platform")     \
  CODE(OSS_RC_ACCESS_DENIED, 0x90000006u, "access to a file or directory is denied")             \
  CODE(OSS_RC_BUFFER_TOO_SMALL, 0x90000008u, "a buffer is too small")                            \
  CODE(OSS_RC_IO_ERROR, 0x90000009u, "the device reported an input or output error")             \
  CODE(OSS_RC_DISK_FULL, 0x9000000Au, "no space is left on the device or in the quota")          \
  CODE(OSS_RC_TOO_MANY_FILES, 0x9000000Bu, "too many files are open")                            \
  CODE(OSS_RC_NULL_ARGUMENT, 0x9000000Cu, "a required pointer argument is null")                 \
  CODE(OSS_RC_NO_MEMORY, 0x9000000Du, "memory cannot be allocated")                              \
  CODE(OSS_RC_FILE_EXISTS, 0x9000000Eu, "the target file exists already")                        \
  CODE(OSS_RC_NOT_A_FILE, 0x9000000Fu, "the path names something other than a plain file")       \
  CODE(OSS_RC_SYSTEM_ERROR, 0x90000010u, "a system call failed; its error number is in the log") \
  CODE(OSS_RC_BAD_PARAMETER, 0x90000011u, "a parameter record is not acceptable")                \
  CODE(OSS_RC_NAME_TOO_LONG, 0x90000012u, "a file name is too long for the file system")         \
  CODE(OSS_RC_LOCK_BUSY, 0x90000014u, "another holder has the lock")                             \
  CODE(OSS_RC_FILE_NOT_FOUND, 0x9000003Fu, "the file does not exist")

#define OSS_DEFINE_CODE(name, value, meaning) constexpr unsigned int name = value;
OSS_RETURN_CODES(OSS_DEFINE_CODE)
#undef OSS_DEFINE_CODE

constexpr unsigned int OSS_RC_OK = 0;
