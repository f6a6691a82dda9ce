// Filling the record of one instance.
#include <cstdio>
#include <cstring>

#include "install/copies.h"
#include "install/export_log.h"
#include "install/instance_list.h"
#include "install/list_memory.h"
#include "install/registry_access.h"

namespace install {
namespace {

using genreg::Function;
using genreg::Routine;

constexpr unsigned int pathTooLong = 111;      // the registry's number for a buffer overflow
constexpr std::uint32_t hostNameSize = 16;     // bytes of a machine's or cluster's name
constexpr std::uint32_t remotePathSize = 260;  // bytes of a profile directory on another machine

// The result of reading a profile. What is not consumed is met again by the next call.
struct Profile {
  unsigned int code;
  bool consumed;
};

// The result for a failure of a callee: the end stays the end.
unsigned int failUnlessEnd(Routine& routine, Function callee, unsigned int calleeCode,
                           unsigned int point) {
  const unsigned int code = calleeCode == GENREG_RC_END ? calleeCode : GENREG_RC_INSTANCE_INFO;
  return routine.refuseFrom(callee, calleeCode, code, point);
}

unsigned int readCopy(Routine& routine, const OSSInstanceList_t& list,
                      OSSInstanceInfo_t& record) {
  unsigned int code = ossReadCopyVersion(*list.machine, list.copyName, &record.versionCode);
  if (code != 0) return failUnlessEnd(routine, Function::readCopyVersion, code, 20);
  const bool isDefault = list.copyIndex == defaultEntryIndex;
  if (isDefault && !isListedAsDefault(record.versionCode)) return GENREG_RC_END;
  copyText(record.service, kindNames[list.kind].service);
  copyText(record.copyName, list.copyName);
  record.flags = 0;
  record.instancePath[0] = '\0';
  record.usage[0] = '\0';
  record.installPath[0] = '\0';
  record.hostName[0] = '\0';
  record.comment[0] = '\0';
  code = ossGetCopyPath(*list.machine, list.copyName, record.installPath);
  return code == 0 ? 0 : failUnlessEnd(routine, Function::getCopyPath, code, 30);
}

unsigned int openInstance(Routine& routine, const OSSInstanceList_t& list, const char* name,
                          OpenKey& key) {
  const unsigned int error = key.open(list.profilesKey, name);
  if (error == 0) return 0;
  const unsigned int code = error == platform::registryKeyMissing
                                ? GENREG_RC_KEY_NOT_FOUND
                                : mapRegistryError(Function::instanceListNext, error);
  return routine.refuse(code, 40, genreg::text(name));
}

// An instance without a service that can be asked has neither flag.
std::uint64_t serviceFlags(platform::ServiceManager manager, const char* name) {
  if (manager == nullptr) return 0;
  const platform::Service service = platform::OpenServiceA(manager, name);
  if (service == nullptr) return 0;
  std::uint32_t startType = 0;
  std::uint64_t flags = 0;
  if (platform::QueryServiceConfigA(service, &startType)) {
    if (startType == platform::serviceStartsAutomatically) flags = OSS_INSTANCE_AUTOSTART;
    if (startType == platform::serviceDisabled) flags = OSS_INSTANCE_DISABLED;
  }
  platform::CloseServiceHandle(service);
  return flags;
}

unsigned int readRemoteProfile(OSSInstanceList_t& list, const char* name,
                               OSSInstanceInfo_t& record) {
  OpenKey host;
  unsigned int error = host.connect(*list.machine, record.hostName);
  if (error != 0) return error;
  char path[keyNameSize + sizeof list.copyName + sizeof copiesPath];
  (void)std::snprintf(path, sizeof path, "%s\\%s\\%s", copiesPath, list.copyName, name);
  OpenKey key;
  error = key.open(host.get(), path);
  if (error != 0) return error;
  return readText(key.get(), kindNames[kindZor].profileVariable, record.instancePath,
                  remotePathSize);
}

Profile readClusterProfile(Routine& routine, OSSInstanceList_t& list, const char* name,
                           OSSInstanceInfo_t& record) {
  if (list.cluster == nullptr) {
    const unsigned int code = ossOpenClusterContext(*list.machine, &list.cluster);
    if (code == OSS_RC_NO_MEMORY) return {routine.refuse(code, 60), false};
    if (code != 0) {
      traceErrorCode(Function::instanceListNext, 120, code);
      return {code, true};
    }
  }
  return {ossReadClusterProfile(*list.machine, *list.cluster, name, list.kind, record.instancePath),
          true};
}

// An instance that does not say where its profile is has it where its copy is.
Profile readLocalProfile(Routine& routine, const OSSInstanceList_t& list, const OpenKey& key,
                         OSSInstanceInfo_t& record) {
  constexpr auto size = static_cast<std::uint32_t>(sizeof record.instancePath);
  const char* const variable = kindNames[list.kind].profileVariable;
  if (readText(key.get(), variable, record.instancePath, size) == 0) return {0, true};
  const unsigned int code = ossGetCopyPath(*list.machine, list.copyName, record.instancePath);
  if (code == 0) return {0, true};
  return {failUnlessEnd(routine, Function::getCopyPath, code, 50), false};
}

Profile readProfile(Routine& routine, OSSInstanceList_t& list, const OpenKey& key,
                    const char* name, OSSInstanceInfo_t& record) {
  char host[hostNameSize];
  if (list.kind == kindZor && readText(key.get(), "ZORREMOTEPREG", host, sizeof host) == 0) {
    record.flags |= OSS_INSTANCE_REMOTE;
    copyText(record.hostName, host);
    return {readRemoteProfile(list, name, record), true};
  }
  if (readText(key.get(), "ZORCLUSTER", host, sizeof host) == 0) {
    record.flags |= OSS_INSTANCE_CLUSTER;
    copyText(record.hostName, host);
    return readClusterProfile(routine, list, name, record);
  }
  return readLocalProfile(routine, list, key, record);
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

}  // namespace

unsigned int readInstance(Routine& routine, OSSInstanceList_t& list, const char* instanceName,
                          OSSInstanceInfo_t& record) noexcept {
  if (const unsigned int code = readCopy(routine, list, record); code != 0) return code;
  OpenKey key;
  if (const unsigned int code = openInstance(routine, list, instanceName, key); code != 0) {
    return code;
  }
  record.flags = serviceFlags(list.serviceManager, instanceName);
  Profile profile = readProfile(routine, list, key, instanceName, record);
  if (!profile.consumed) return profile.code;
  if (list.kind == kindZor) {
    const unsigned int code = appendName(instanceName, record);
    if (code != 0) profile.code = code;
  }
  ++list.instanceIndex;
  return profile.code;
}

}  // namespace install
