#include "install/instances.h"

#include <cstdio>

#include "install/allocate.h"

namespace install {
namespace {

using genreg::Function;
using genreg::Routine;

constexpr unsigned int pathTooLong = 111;      // the registry's number for a buffer overflow
constexpr std::size_t hostNameSize = 16;       // bytes of a machine's or cluster's name
constexpr std::uint32_t remotePathSize = 260;  // bytes of a profile directory on another machine
constexpr unsigned int ignoredSeverity = 3;    // of a value that is there and cannot be used

const Kind* findKind(const char* text) {
  for (const Kind* kind : {&zorKind, &zemKind}) {
    if (std::strcmp(text, kind->service) == 0) return kind;
  }
  return nullptr;
}

// Reads the value that names a machine or cluster, if there is one. Its place decides where the
// profile is looked for, so one that is ignored is logged with the instance's name.
bool readHost(Routine& routine, const Key& key, const char* value, unsigned int point,
              const char* instanceName, OSSInstanceInfo_t& record) {
  char host[hostNameSize];
  const unsigned int error = readText(key, value, host, sizeof host);
  if (error == 0) copyText(record.hostName, host);
  if (error != 0 && error != platform::registryKeyMissing) {
    routine.note(error, point, ignoredSeverity, genreg::text(instanceName));
  }
  return error == 0;
}

// The profile directory of a "ZOR" instance is the one of its name in the directory that was read.
unsigned int appendName(const char* name, OSSInstanceInfo_t& record) {
  const std::size_t length = std::strlen(record.instancePath);
  const std::size_t nameLength = std::strlen(name);
  if (length == 0) return 0;
  if (length + nameLength + 2 > sizeof record.instancePath) return pathTooLong;
  record.instancePath[length] = '\\';
  std::memcpy(record.instancePath + length + 1, name, nameLength + 1);
  return 0;
}

// Records the value of an error that is not logged.
void traceError(Function routine, unsigned int point, unsigned int code) {
  if (!genreg::tracingOn()) return;
  _gtraceErrorVar(static_cast<std::uint32_t>(ossThreadID()), genreg::probeOf(routine), point, 4, 0,
                  1, 0, sizeof code, &code);
}

}  // namespace

unsigned int InstanceList::open(Routine& routine, const char* kind) noexcept {
  if (const unsigned int code = openCopies(routine); code != 0) return code;
  kind_ = findKind(kind);
  if (kind_ == nullptr) return routine.refuse(GENREG_RC_LIST_OPEN, 20, genreg::text(kind));
  if (const unsigned int error = nextCopyWithProfiles(); error != 0) {
    const unsigned int code =
        error == platform::registryKeyMissing ? GENREG_RC_KEY_NOT_FOUND : GENREG_RC_LIST_OPEN;
    return routine.refuseFrom(Function::nextCopyWithProfiles, error, code, 30);
  }
  serviceManager_.reset(platform::OpenSCManagerA(*machine_));
  return 0;
}

// That there are no copies is no failure: the default entry needs none.
unsigned int InstanceList::openCopies(Routine& routine) noexcept {
  const unsigned int error = openKey(platform::localMachineKey(*machine_), copiesPath, copiesKey_);
  if (error == 0 || error == platform::registryKeyMissing) return 0;
  const unsigned int code = mapRegistryError(Function::instanceListOpen, error);
  return routine.refuse(code, 10, genreg::text(copiesPath));
}

// Moves to the next copy that has a profiles key. Returns 0 or the registry's error.
unsigned int InstanceList::nextCopyWithProfiles() noexcept {
  Routine routine(Function::nextCopyWithProfiles);
  for (;;) {
    Key copyKey;
    unsigned int error = openNextCopy(routine, copyKey);
    profilesKey_.reset();
    if (error != 0) return routine.answer(error);
    error = openKey(copyKey.get(), kind_->profilesKey, profilesKey_);
    instanceIndex_ = 0;
    if (error == 0 || defaultReached_) return routine.answer(error);
  }
}

// Opens the key of the next copy, in the end that of the default entry.
unsigned int InstanceList::openNextCopy(Routine& routine, Key& copyKey) noexcept {
  copy_.enter("");
  if (copiesKey_ != nullptr) {
    char name[sizeof Record::copyName];
    auto size = static_cast<std::uint32_t>(sizeof name);
    const unsigned int error = platform::RegEnumKeyExA(copiesKey_.get(), copyIndex_, name, &size);
    if (error == 0) {
      ++copyIndex_;
      copy_.enter(name);
      return openKey(copiesKey_.get(), name, copyKey);
    }
    if (error != platform::registryNoMoreItems) return error;
    copiesKey_.reset();
  }
  defaultReached_ = true;
  const unsigned int error = openKey(platform::localMachineKey(*machine_), productPath, copyKey);
  return error == 0 ? 0 : routine.refuse(error, 30, genreg::text(productPath));
}

unsigned int InstanceList::next(Routine& routine, Record& record) noexcept {
  record = {};
  if (profilesKey_ == nullptr) return GENREG_RC_END;
  Name name;
  const unsigned int code = findName(routine, name);
  copyText(record.service, kind_->service);
  copyText(record.copyName, copy_.name());
  if (code != 0) return code;
  // A record has room for the beginning of a long name; the instance is found by the whole name.
  copyText(record.instanceName, name);
  return readInstance(routine, name, record);
}

// The whole name of the next instance of the current copy or of one after it.
unsigned int InstanceList::findName(Routine& routine, Name& name) noexcept {
  unsigned int error = nextName(name);
  while (error == platform::registryNoMoreItems) {
    if (defaultReached_) return GENREG_RC_END;
    const unsigned int moved = nextCopyWithProfiles();
    if (moved == platform::registryKeyMissing && defaultReached_) return GENREG_RC_END;
    if (moved != 0) {
      return routine.refuseFrom(Function::nextCopyWithProfiles, moved, GENREG_RC_NEXT_INSTANCE, 10);
    }
    error = nextName(name);
  }
  if (error == 0) return 0;
  return routine.refuse(GENREG_RC_NEXT_INSTANCE, 20, genreg::number(error),
                        genreg::number(instanceIndex_));
}

unsigned int InstanceList::nextName(Name& name) const noexcept {
  std::uint32_t size = sizeof name;
  return platform::RegEnumKeyExA(profilesKey_.get(), instanceIndex_, name, &size);
}

// Fills the record, and goes beyond the instance when that has worked or its profile alone could
// not be read.
unsigned int InstanceList::readInstance(Routine& routine, const Name& name,
                                        Record& record) noexcept {
  constexpr Copy::Failures failures{{GENREG_RC_INSTANCE_INFO, 20}, {GENREG_RC_INSTANCE_INFO, 30}};
  const unsigned int described =
      copy_.describe(routine, *machine_, failures, &record.versionCode, record.installPath);
  if (described != 0) return described;
  Key key;
  if (const unsigned int code = openInstance(routine, name, key); code != 0) return code;
  record.flags = serviceFlags(name);
  Profile profile = readProfile(routine, key, name, record);
  if (!profile.consumed) return profile.code;
  if (kind_ == &zorKind) {
    if (const unsigned int code = appendName(name, record); code != 0) profile.code = code;
  }
  ++instanceIndex_;
  return profile.code;
}

unsigned int InstanceList::openInstance(Routine& routine, const Name& name, Key& key) noexcept {
  const unsigned int error = openKey(profilesKey_.get(), name, key);
  if (error == 0) return 0;
  const unsigned int code = error == platform::registryKeyMissing
                                ? GENREG_RC_KEY_NOT_FOUND
                                : mapRegistryError(Function::instanceListNext, error);
  return routine.refuse(code, 40, genreg::text(name));
}

// An instance without a service that can be asked has neither flag.
std::uint64_t InstanceList::serviceFlags(const Name& name) const noexcept {
  if (serviceManager_ == nullptr) return 0;
  const std::unique_ptr<const platform::ServiceObject, CloseService> service(
      platform::OpenServiceA(serviceManager_.get(), name));
  std::uint32_t startType = 0;
  if (service == nullptr || !platform::QueryServiceConfigA(service.get(), &startType)) return 0;
  if (startType == platform::serviceStartsAutomatically) return OSS_INSTANCE_AUTOSTART;
  return startType == platform::serviceDisabled ? OSS_INSTANCE_DISABLED : 0;
}

InstanceList::Profile InstanceList::readProfile(Routine& routine, const Key& key, const Name& name,
                                                Record& record) noexcept {
  if (kind_ == &zorKind && readHost(routine, key, "ZORREMOTEPREG", 43, name, record)) {
    record.flags |= OSS_INSTANCE_REMOTE;
    return {readRemoteProfile(name, record), true};
  }
  if (readHost(routine, key, "ZORCLUSTER", 47, name, record)) {
    record.flags |= OSS_INSTANCE_CLUSTER;
    return readClusterProfile(routine, name, record);
  }
  // An instance that does not say where its profile is has it where its copy is.
  constexpr auto size = static_cast<std::uint32_t>(sizeof record.instancePath);
  if (readText(key, kind_->profileVariable, record.instancePath, size) != 0) {
    std::memcpy(record.instancePath, record.installPath, sizeof record.installPath);
  }
  return {0, true};
}

unsigned int InstanceList::readRemoteProfile(const Name& name, Record& record) noexcept {
  platform::RegistryKey connected = nullptr;
  unsigned int error = platform::RegConnectRegistryA(*machine_, record.hostName, &connected);
  if (error != 0) return error;
  const Key host(connected);
  char path[nameSize + sizeof record.copyName + sizeof copiesPath];
  (void)std::snprintf(path, sizeof path, "%s\\%s\\%s", copiesPath, copy_.name(), name);
  Key key;
  error = openKey(host.get(), path, key);
  if (error != 0) return error;
  return readText(key, kind_->profileVariable, record.instancePath, remotePathSize);
}

InstanceList::Profile InstanceList::readClusterProfile(Routine& routine, const Name& name,
                                                       Record& record) noexcept {
  if (cluster_ == nullptr) {
    std::unique_ptr<ClusterContext> made(allocate<ClusterContext>(*machine_));
    if (made == nullptr) return {routine.refuse(OSS_RC_NO_MEMORY, 60), false};
    if (const unsigned int error = made->open(*machine_); error != 0) {
      traceError(Function::instanceListNext, 120, error);
      return {error, true};
    }
    cluster_ = std::move(made);
  }
  return {cluster_->readProfile(*kind_, name, record.instancePath), true};
}

}  // namespace install
