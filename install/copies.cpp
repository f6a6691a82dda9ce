#include "install/copies.h"

#include <array>
#include <cstdio>
#include <cstring>

#include "genreg/core/diagnostics.h"
#include "genreg_codes.h"
#include "install/registry_access.h"
#include "install/version_codes.h"

namespace install {
namespace {

using genreg::Function;
using genreg::Routine;

constexpr std::uint32_t partTextSize = 16;  // bytes of one part of a version, with terminator
constexpr std::uint16_t lastDefaultVersion = 8;

constexpr const char* versionValues[versionParts] = {"Version", "Release", "Modification",
                                                     "Service Level"};

// Editions of the product whose version stands in for that of a copy without one: none today.
constexpr std::array<const char*, 0> editions{};

bool isDefault(const char* copyName) { return *copyName == '\0'; }

// The path of a copy's key, or of a key below it.
class CopyKeyPath {
 public:
  explicit CopyKeyPath(const char* copyName, const char* below = "") {
    const bool named = !isDefault(copyName);
    (void)std::snprintf(text_, sizeof text_, "%s%s%s%s%s", named ? copiesPath : productPath,
                        named ? "\\" : "", copyName, *below == '\0' ? "" : "\\", below);
  }
  const char* text() const { return text_; }

 private:
  char text_[copyPathSize];
};

unsigned int openVersionKey(const platform::Machine& machine, const char* copyName, OpenKey& key) {
  const platform::RegistryKey root = platform::localMachineKey(machine);
  unsigned int error = key.open(root, CopyKeyPath(copyName, "CurrentVersion").text());
  for (const char* edition : editions) {
    if (error == 0) break;
    char path[copyPathSize];
    (void)std::snprintf(path, sizeof path, "%s\\%s\\CurrentVersion", productPath, edition);
    error = key.open(root, path);
  }
  return error;
}

// Reads the parts of a version in turn, as far as they can be read; *read is how many were.
unsigned int readParts(platform::RegistryKey key, std::uint64_t* versionCode, std::uint32_t* read) {
  for (*read = 0; *read < versionParts; ++*read) {
    char value[partTextSize];
    const unsigned int error = readText(key, versionValues[*read], value, sizeof value);
    if (error != 0) return error;
    *versionCode = withPart(*versionCode, *read, partOfText(value));
  }
  return 0;
}

}  // namespace

bool isListedAsDefault(std::uint64_t versionCode) noexcept {
  return partOf(versionCode, 0) <= lastDefaultVersion;
}

unsigned int ossReadCopyVersion(const platform::Machine& machine, const char* copyName,
                                std::uint64_t* versionCode) noexcept {
  Routine routine(Function::readCopyVersion);
  OpenKey key;
  std::uint64_t code = 0;
  unsigned int error = openVersionKey(machine, copyName, key);
  std::uint32_t partsRead = 0;
  if (error == 0) error = readParts(key.get(), &code, &partsRead);
  routine.trace(20, genreg::number(code));
  if (error == 0) {
    *versionCode = code;
    return routine.answer(0);
  }
  if (!isDefault(copyName)) return routine.answer(error);
  (void)routine.refuse(error, 30, genreg::number(partsRead), genreg::number(code));
  return routine.answer(GENREG_RC_END);
}

unsigned int ossGetCopyPath(const platform::Machine& machine, const char* copyName,
                            char* buffer) noexcept {
  Routine routine(Function::getCopyPath);
  const std::uint8_t defaultEntry = isDefault(copyName) ? 1 : 0;
  const CopyKeyPath path(copyName);
  OpenKey key;
  unsigned int error = key.open(platform::localMachineKey(machine), path.text());
  if (error != 0) {
    (void)routine.refuse(error, 20, genreg::text(path.text()), genreg::flag(defaultEntry));
  } else {
    error = readText(key.get(), "ZOR Path Name", buffer, copyPathSize);
  }
  if (error != 0) return routine.answer(defaultEntry == 1 ? GENREG_RC_END : error);
  const std::size_t length = std::strlen(buffer);
  if (length > 0 && buffer[length - 1] == '\\') buffer[length - 1] = '\0';
  routine.trace(30, genreg::text(buffer));
  return routine.answer(0);
}

bool ossCopyHasZemProfiles(const platform::Machine& machine, const char* copyName) noexcept {
  Routine routine(Function::copyHasZemProfiles);
  OpenKey key;
  std::uint32_t profiles = 0;
  return key.open(platform::localMachineKey(machine),
                  CopyKeyPath(copyName, "ZEM_PROFILES").text()) == 0 &&
         platform::RegQueryInfoKeyA(key.get(), &profiles) == 0 && profiles > 0;
}

}  // namespace install
