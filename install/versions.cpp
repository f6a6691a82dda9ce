#include "install/versions.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ossinstall.h"

namespace install {

std::uint16_t partOfText(const char* text) noexcept {
  return static_cast<std::uint16_t>(std::strtoll(text, nullptr, 10));
}

namespace {

constexpr std::size_t workSize = 24;  // bytes of a version text that are looked at, with NUL
constexpr unsigned int pairsOfDigits = 100;

bool allDigits(const char* text, std::size_t length) {
  return std::strspn(text, "0123456789") >= length;
}

unsigned int parse(const char* text, std::uint64_t* versionCode) {
  std::uint64_t code = 0;
  for (unsigned int index = 0; *text != '\0'; ++index) {
    const bool last = index == versionParts - 1;
    const std::size_t length = last ? std::strlen(text) : std::strcspn(text, ".");
    if (!allDigits(text, length)) return GENREG_RC_VERSION_SYNTAX;
    code = withPart(code, index, partOfText(text));
    text += length;
    if (*text == '.') ++text;
  }
  *versionCode = code;
  return GENREG_RC_OK;
}

}  // namespace
}  // namespace install

using install::partOf;

unsigned int ossVersionStringToCode(const char* text, std::uint64_t* versionCode) noexcept {
  if (text == nullptr || versionCode == nullptr) return GENREG_RC_VERSION_ARGUMENT;
  char work[install::workSize] = {};
  std::strncpy(work, text, sizeof work - 1);
  return install::parse(work, versionCode);
}

unsigned int ossVersionCodeToString(std::uint64_t versionCode, char* buffer,
                                    std::uint64_t size) noexcept {
  if (buffer == nullptr) return GENREG_RC_VERSION_ARGUMENT;
  char work[install::workSize];
  const int length =
      std::snprintf(work, sizeof work, "%u.%u.%u.%u", partOf(versionCode, 0),
                    partOf(versionCode, 1), partOf(versionCode, 2), partOf(versionCode, 3));
  if (length < 0) return GENREG_RC_VERSION_FORMAT;
  const std::size_t needed = static_cast<std::size_t>(length) + 1;
  if (size < needed) return GENREG_RC_VERSION_BUFFER;
  std::memcpy(buffer, work, needed);
  buffer[size - 1] = '\0';
  return GENREG_RC_OK;
}

int ossVersionCodeServiceToZOR(std::uint64_t versionCode) noexcept {
  char work[install::workSize];
  (void)std::snprintf(work, sizeof work, "%2u%02u%02u%02u\n", partOf(versionCode, 0),
                      partOf(versionCode, 1), partOf(versionCode, 2), partOf(versionCode, 3));
  return static_cast<int>(std::strtoll(work, nullptr, 10));
}

std::uint64_t ossVersionCodeZORToService(unsigned int packed) noexcept {
  std::uint64_t code = 0;
  for (unsigned int index = install::versionParts; index-- > 0; packed /= install::pairsOfDigits) {
    code =
        install::withPart(code, index, static_cast<std::uint16_t>(packed % install::pairsOfDigits));
  }
  return code;
}
