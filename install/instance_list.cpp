// The list of instances: opening, closing, looking up, and the exported functions.
#include "install/instance_list.h"

#include <cctype>
#include <cstring>

#include "install/copies.h"
#include "install/export_log.h"
#include "install/list_memory.h"
#include "install/registry_access.h"

namespace install {
namespace {

using genreg::Function;
using genreg::Routine;

unsigned int closeList(OSSInstanceList_t* list) noexcept {
  Routine routine(Function::instanceListClose);
  if (list->cluster != nullptr) (void)ossCloseClusterContext(*list->machine, list->cluster);
  if (list->serviceManager != nullptr) platform::CloseServiceHandle(list->serviceManager);
  closeKey(list->profilesKey);
  closeKey(list->copiesKey);
  platform::closeMachine(list->machine);
  return routine.answer(release(list));
}

bool findKind(const char* text, Kind* kind) {
  for (const Kind known : kinds) {
    if (std::strcmp(text, kindNames[known].service) != 0) continue;
    *kind = known;
    return true;
  }
  return false;
}

// Opens the copies' key. That there is none is no failure: the default entry needs none.
unsigned int openCopies(Routine& routine, OSSInstanceList_t& list) {
  const unsigned int error = platform::RegOpenKeyExA(platform::localMachineKey(*list.machine),
                                                     copiesPath, &list.copiesKey);
  if (error == 0 || error == platform::registryKeyMissing) return 0;
  const unsigned int code = mapRegistryError(Function::instanceListOpen, error);
  return routine.refuse(code, 10, genreg::text(copiesPath));
}

// What a new list needs before it can be handed out.
unsigned int prepare(Routine& routine, const char* kind, OSSInstanceList_t& list) {
  if (const unsigned int code = openCopies(routine, list); code != 0) return code;
  if (!findKind(kind, &list.kind)) {
    return routine.refuse(GENREG_RC_LIST_OPEN, 20, genreg::text(kind));
  }
  if (const unsigned int error = ossNextCopyWithProfiles(list); error != 0) {
    const unsigned int code =
        error == platform::registryKeyMissing ? GENREG_RC_KEY_NOT_FOUND : GENREG_RC_LIST_OPEN;
    return routine.refuseFrom(Function::nextCopyWithProfiles, error, code, 30);
  }
  list.serviceManager = platform::OpenSCManagerA(*list.machine);
  return 0;
}

// Null with the code of the failure at *code.
OSSInstanceList_t* openList(const char* kind, unsigned int* code) {
  Routine routine(Function::instanceListOpen);
  NewList<OSSInstanceList_t, closeList> list;
  *code = list.made() ? prepare(routine, kind, *list) : routine.refuse(OSS_RC_NO_MEMORY, 5);
  (void)routine.answer(*code);
  return *code == 0 ? list.handOut() : nullptr;
}

// What a lookup asks for; a null name matches any.
class WantedInstance {
 public:
  WantedInstance(std::uint64_t versionCode, const char* instanceName, const char* copyName)
      : versionCode_(versionCode), anyName_(instanceName == nullptr), copyName_(copyName) {
    for (std::size_t i = 0; !anyName_ && i < sizeof name_ && instanceName[i] != '\0'; ++i) {
      name_[i] = static_cast<char>(std::toupper(static_cast<unsigned char>(instanceName[i])));
    }
  }

  // A name that fills its buffer equals none: those in records are terminated.
  bool matches(const OSSInstanceInfo_t& record) const {
    return (anyName_ || std::strncmp(name_, record.instanceName, sizeof name_) == 0) &&
           (copyName_ == nullptr || std::strcmp(copyName_, record.copyName) == 0) &&
           (versionCode_ == 0 || versionCode_ == record.versionCode);
  }

 private:
  std::uint64_t versionCode_;
  bool anyName_;
  char name_[sizeof OSSInstanceInfo_t::instanceName] = {};
  const char* copyName_;
};

// The first entry that matches; the result of the step that ended the walk without one.
unsigned int findEntry(Kind kind, const WantedInstance& wanted, OSSInstanceInfo_t& record) {
  Routine routine(Function::instanceLookup);
  unsigned int code = 0;
  OSSInstanceList_t* const list = openList(kindNames[kind].service, &code);
  if (list == nullptr) return routine.answer(code);
  do {
    code = nextInstance(*list, record);
  } while (code == 0 && !wanted.matches(record));
  (void)closeList(list);
  return routine.answer(code);
}

unsigned int lookUp(const char* kind, const WantedInstance& wanted, OSSInstanceInfo_t* record) {
  constexpr Function self = Function::getInstanceInfo;
  if (record == nullptr) return genreg::logFailure(self, GENREG_RC_NO_INSTANCE_RECORD, 10);
  const bool zor = kind == nullptr || std::strcmp(kind, kindNames[kindZor].service) == 0;
  const unsigned int code = findEntry(zor ? kindZor : kindZem, wanted, *record);
  if (code == 0) return 0;
  if (code == GENREG_RC_END) return GENREG_RC_INSTANCE_INFO;
  (void)logCallee(self, Function::instanceLookup, code, GENREG_RC_INSTANCE_INFO, 20);
  traceCode(self, 20, code);
  return GENREG_RC_INSTANCE_INFO;
}

}  // namespace
}  // namespace install

using genreg::Function;
using install::OSSInstanceList_t;

unsigned int ossOpenInstanceList(const char* kind, void** list) noexcept {
  constexpr Function self = Function::openInstanceList;
  if (kind == nullptr) return genreg::logFailure(self, GENREG_RC_NO_KIND, 20);
  if (list == nullptr) return genreg::logFailure(self, GENREG_RC_LIST_OPEN, 25);
  unsigned int code = 0;
  OSSInstanceList_t* const made = install::openList(kind, &code);
  if (made == nullptr) {
    return install::logCallee(self, Function::instanceListOpen, code, code, 30);
  }
  *list = made;
  return 0;
}

unsigned int ossGetNextInstance(void* list, OSSInstanceInfo_t* record) noexcept {
  constexpr Function self = Function::getNextInstance;
  if (list == nullptr) return genreg::logFailure(self, GENREG_RC_NO_LIST, 10);
  if (record == nullptr) return genreg::logFailure(self, GENREG_RC_NO_INSTANCE_RECORD, 20);
  const unsigned int code = install::nextInstance(*static_cast<OSSInstanceList_t*>(list), *record);
  if (code == 0 || code == GENREG_RC_END) return code;
  return install::logCallee(self, Function::instanceListNext, code, GENREG_RC_NEXT_INSTANCE, 30);
}

unsigned int ossCloseInstanceList(void* list) noexcept {
  constexpr Function self = Function::closeInstanceList;
  if (list == nullptr) return genreg::logFailure(self, GENREG_RC_NO_LIST, 10);
  const unsigned int code = install::closeList(static_cast<OSSInstanceList_t*>(list));
  if (code == 0) return 0;
  return install::logCallee(self, Function::instanceListClose, code, GENREG_RC_LIST_CLOSE, 20);
}

unsigned int ossGetInstanceInfo(const char* kind, std::uint64_t versionCode,
                                const char* instanceName, OSSInstanceInfo_t* record) noexcept {
  return install::lookUp(kind, {versionCode, instanceName, nullptr}, record);
}

unsigned int ossGetInstanceInfo(const char* kind, std::uint64_t versionCode,
                                const char* instanceName, const char* copyName,
                                OSSInstanceInfo_t* record) noexcept {
  return install::lookUp(kind, {versionCode, instanceName, copyName}, record);
}

unsigned int ossSetInstanceInfo(OSSInstanceInfo_t* record) noexcept {
  if (record != nullptr) return OSS_RC_NOT_SUPPORTED;
  return genreg::logFailure(Function::setInstanceInfo, GENREG_RC_NO_INSTANCE_RECORD, 10);
}

unsigned int ossRemoveInstanceInfo(const char*, std::uint64_t, const char*) noexcept {
  return OSS_RC_NOT_SUPPORTED;
}
