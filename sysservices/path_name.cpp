// The parts of a path, told from its text alone.
#include <cstring>

#include "sysservices/file_system.h"
#include "sysservices/inner/path_rules.h"
#include "sysservices/return_codes.h"

namespace {

unsigned int copyText(const char* text, std::size_t length, char* buffer, std::size_t size) {
  if (length >= size) return OSS_RC_BUFFER_TOO_SMALL;
  std::memcpy(buffer, text, length);
  buffer[length] = '\0';
  return OSS_RC_OK;
}

bool isSeparator(const char* path, std::size_t at) {
  const bool looksSo = path[at] == ossPathSeparator || path[at] == oss::otherPathSeparator;
  return looksSo && !oss::isInsideCharacter(path, at);
}

// Characters of a drive's name at the start of a path.
std::size_t driveLength(const char* path) {
  return oss::pathsHaveDrives && path[0] != '\0' && path[1] == ':' ? 2 : 0;
}

// Length of `path` without trailing separators, the root's own excepted.
std::size_t trimmedLength(const char* path) {
  const std::size_t root = driveLength(path) + 1;
  std::size_t length = std::strlen(path);
  while (length > root && isSeparator(path, length - 1)) --length;
  return length;
}

// Where the last component starts in the first `length` characters.
std::size_t baseStart(const char* path, std::size_t length) {
  const std::size_t drive = driveLength(path);
  std::size_t start = length;
  while (start > drive && !isSeparator(path, start - 1)) --start;
  return start;
}

}  // namespace

unsigned int ossBaseName(const char* path, char* buffer, std::size_t size) {
  if (path == nullptr || buffer == nullptr) return OSS_RC_NULL_ARGUMENT;
  const std::size_t length = trimmedLength(path);
  const std::size_t start = baseStart(path, length);
  if (start == length) return OSS_RC_BAD_PARAMETER;
  return copyText(path + start, length - start, buffer, size);
}

unsigned int ossDirectoryName(const char* path, char* buffer, std::size_t size) {
  if (path == nullptr || buffer == nullptr) return OSS_RC_NULL_ARGUMENT;
  const std::size_t drive = driveLength(path);
  const std::size_t start = baseStart(path, trimmedLength(path));
  if (start == drive) {
    // A bare name stands in the current directory, or in that of its drive.
    if (drive + 1 >= size) return OSS_RC_BUFFER_TOO_SMALL;
    std::memcpy(buffer, path, drive);
    return copyText(".", 1, buffer + drive, size - drive);
  }
  std::size_t length = start - 1;
  while (length > drive && isSeparator(path, length - 1)) --length;
  return copyText(path, length == drive ? drive + 1 : length, buffer, size);
}
