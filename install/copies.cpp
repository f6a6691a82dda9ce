#include "install/copies.h"

#include <cstdio>

#include "install/versions.h"

namespace install {
namespace {

using genreg::Function;
using genreg::Routine;

constexpr std::uint32_t partTextSize = 16;  // bytes of one part of a version, with terminator
constexpr std::uint16_t lastDefaultVersion = 8;

constexpr const char* versionValues[versionParts] = {"Version", "Release", "Modification",
                                                     "Service Level"};

// The path of a copy's key, or of a key below it.
class CopyKeyPath {
 public:
  explicit CopyKeyPath(const char* copyName, const char* below = "") {
    const bool named = *copyName != '\0';
    (void)std::snprintf(text_, sizeof text_, "%s%s%s%s%s", named ? copiesPath : productPath,
                        named ? "\\" : "", copyName, *below == '\0' ? "" : "\\", below);
  }
  const char* text() const { return text_; }

 private:
  char text_[copyPathSize];
};

// Reads the parts of a version in turn, as far as they can be read; *read is how many were.
unsigned int readParts(const Key& key, std::uint64_t* versionCode, std::uint32_t* read) {
  for (*read = 0; *read < versionParts; ++*read) {
    char value[partTextSize];
    const unsigned int error = readText(key, versionValues[*read], value, sizeof value);
    if (error != 0) return error;
    *versionCode = withPart(*versionCode, *read, partOfText(value));
  }
  return 0;
}

}  // namespace

void Copy::enter(const char* name) noexcept {
  copyText(name_, name);
  versionKnown_ = false;
  pathKnown_ = false;
}

unsigned int Copy::readVersion(const platform::Machine& machine,
                               std::uint64_t* versionCode) noexcept {
  if (!versionKnown_) {
    if (const unsigned int code = findVersion(machine); code != 0) return code;
    versionKnown_ = true;
  }
  *versionCode = version_;
  return 0;
}

unsigned int Copy::findVersion(const platform::Machine& machine) noexcept {
  Routine routine(Function::readCopyVersion);
  Key key;
  version_ = 0;
  unsigned int error =
      openKey(platform::localMachineKey(machine), CopyKeyPath(name_, "CurrentVersion").text(), key);
  std::uint32_t partsRead = 0;
  if (error == 0) error = readParts(key, &version_, &partsRead);
  routine.trace(20, genreg::number(version_));
  if (error == 0 || !isDefault()) return routine.answer(error);
  (void)routine.refuse(error, 30, genreg::number(partsRead), genreg::number(version_));
  return routine.answer(GENREG_RC_END);
}

unsigned int Copy::readPath(const platform::Machine& machine, char* buffer) noexcept {
  if (!pathKnown_) {
    Routine routine(Function::getCopyPath);
    const CopyKeyPath keyPath(name_);
    const std::uint8_t defaultEntry = isDefault() ? 1 : 0;
    Key key;
    unsigned int error = openKey(platform::localMachineKey(machine), keyPath.text(), key);
    if (error != 0) {
      (void)routine.refuse(error, 20, genreg::text(keyPath.text()), genreg::flag(defaultEntry));
    } else {
      error = readText(key, "ZOR Path Name", path_, copyPathSize);
    }
    if (error != 0) return routine.answer(isDefault() ? GENREG_RC_END : error);
    const std::size_t length = std::strlen(path_);
    if (length > 0 && path_[length - 1] == '\\') path_[length - 1] = '\0';
    routine.trace(30, genreg::text(path_));
    pathKnown_ = true;
  }
  std::memcpy(buffer, path_, std::strlen(path_) + 1);
  return 0;
}

bool Copy::hasZemProfiles(const platform::Machine& machine) const noexcept {
  Routine routine(Function::copyHasZemProfiles);
  Key key;
  std::uint32_t profiles = 0;
  return openKey(platform::localMachineKey(machine), CopyKeyPath(name_, "ZEM_PROFILES").text(),
                 key) == 0 &&
         platform::RegQueryInfoKeyA(key.get(), &profiles) == 0 && profiles > 0;
}

unsigned int Copy::describe(Routine& routine, const platform::Machine& machine,
                            const Failures& failures, std::uint64_t* versionCode,
                            char* path) noexcept {
  const auto fail = [&](Function callee, unsigned int calleeCode, const Failure& failure) {
    const unsigned int result = calleeCode == GENREG_RC_END ? calleeCode : failure.code;
    return routine.refuseFrom(callee, calleeCode, result, failure.point);
  };
  unsigned int code = readVersion(machine, versionCode);
  if (code != 0) return fail(Function::readCopyVersion, code, failures.version);
  const bool listed = !isDefault() || partOf(*versionCode, 0) <= lastDefaultVersion;
  if (!listed) return GENREG_RC_END;
  code = readPath(machine, path);
  return code == 0 ? 0 : fail(Function::getCopyPath, code, failures.path);
}

unsigned int ServiceList::open(Routine& routine) noexcept {
  const unsigned int error = openKey(platform::localMachineKey(*machine_), copiesPath, copiesKey_);
  if (error == 0) return 0;
  const unsigned int code = error == platform::registryKeyMissing
                                ? GENREG_RC_KEY_NOT_FOUND
                                : mapRegistryError(Function::serviceListOpen, error);
  return routine.refuse(code, 20, genreg::text(copiesPath));
}

unsigned int ServiceList::next(Routine& routine, Record& record) noexcept {
  record = {};
  if (defaultReached_) return GENREG_RC_END;
  if (const unsigned int code = nextCopy(routine, record); code != 0) return code;
  chooseService(record);
  return readCopy(routine, record);
}

// Puts the name of the next copy into the record, empty for the default entry. A copy whose name
// cannot be had is passed over: nothing else would ever bring the list beyond it.
unsigned int ServiceList::nextCopy(Routine& routine, Record& record) noexcept {
  auto size = static_cast<std::uint32_t>(sizeof record.copyName);
  const unsigned int error =
      platform::RegEnumKeyExA(copiesKey_.get(), copyIndex_, record.copyName, &size);
  if (error != 0) record.copyName[0] = '\0';
  copy_.enter(record.copyName);
  if (error == 0) return 0;
  if (error == platform::registryNoMoreItems) return enterDefault(routine);
  const std::uint32_t index = copyIndex_++;
  return routine.refuse(GENREG_RC_NEXT_SERVICE, 30, genreg::number(error), genreg::number(index));
}

unsigned int ServiceList::enterDefault(Routine& routine) noexcept {
  defaultReached_ = true;
  const unsigned int error = openKey(platform::localMachineKey(*machine_), productPath, copiesKey_);
  return error == 0 ? 0 : routine.refuse(error, 20, genreg::text(productPath));
}

// Decides as what the current copy is reported now.
void ServiceList::chooseService(Record& record) noexcept {
  if (!zemReported_ && copy_.hasZemProfiles(*machine_)) {
    zemReported_ = true;
    copyText(record.service, "ZEM");
  } else {
    ++copyIndex_;
    copyText(record.service, "ZOR");
  }
}

unsigned int ServiceList::readCopy(Routine& routine, Record& record) noexcept {
  constexpr Copy::Failures failures{{GENREG_RC_NEXT_SERVICE, 50}, {GENREG_RC_SERVICE_INFO, 70}};
  const unsigned int code =
      copy_.describe(routine, *machine_, failures, &record.versionCode, record.installPath);
  record.level = partOf(record.versionCode, 2);
  return code;
}

}  // namespace install
