// The list of installed copies.
//
// A list walks the subkeys of INSTALLEDCOPIES, then the default entry; after that it has ended. A
// copy is consumed when it is reported as "ZOR", or could not be read; reported as "ZEM" it comes
// again, as "ZOR", at the next call.
#include <cstring>

#include "genreg/core/diagnostics.h"
#include "install/copies.h"
#include "install/export_log.h"
#include "install/list_memory.h"
#include "install/registry_access.h"
#include "install/version_codes.h"
#include "ossinstall.h"

namespace install {
namespace {

using genreg::Function;
using genreg::Routine;

struct OSSServiceList_t {
  platform::Machine* machine;
  platform::RegistryKey copiesKey;  // after its last subkey: the product's key
  std::uint32_t copyIndex;          // of the next subkey
  std::uint32_t zemReported;        // 1 once an entry has been reported as "ZEM"
  std::uint8_t defaultReached;      // 1 once the default entry is the current one
};

unsigned int closeList(OSSServiceList_t* list) noexcept {
  Routine routine(Function::serviceListClose);
  closeKey(list->copiesKey);
  platform::closeMachine(list->machine);
  return routine.answer(release(list));
}

unsigned int openCopies(Routine& routine, OSSServiceList_t& list) {
  const unsigned int error = platform::RegOpenKeyExA(platform::localMachineKey(*list.machine),
                                                     copiesPath, &list.copiesKey);
  if (error == 0) return 0;
  const unsigned int code = error == platform::registryKeyMissing
                                ? GENREG_RC_KEY_NOT_FOUND
                                : mapRegistryError(Function::serviceListOpen, error);
  return routine.refuse(code, 20, genreg::text(copiesPath));
}

// Null with the code of the failure at *code.
OSSServiceList_t* openList(unsigned int* code) {
  Routine routine(Function::serviceListOpen);
  NewList<OSSServiceList_t, closeList> list;
  *code = list.made() ? openCopies(routine, *list) : routine.refuse(OSS_RC_NO_MEMORY, 10);
  (void)routine.answer(*code);
  return *code == 0 ? list.handOut() : nullptr;
}

unsigned int enterDefault(Routine& routine, OSSServiceList_t& list) {
  closeKey(list.copiesKey);
  list.defaultReached = 1;
  const unsigned int error = platform::RegOpenKeyExA(platform::localMachineKey(*list.machine),
                                                     productPath, &list.copiesKey);
  return error == 0 ? 0 : routine.refuse(error, 20, genreg::text(productPath));
}

// Puts the name of the next copy into the record, empty for the default entry. A copy whose name
// cannot be had is passed over: nothing else would ever bring the list beyond it.
unsigned int nextCopy(Routine& routine, OSSServiceList_t& list, OSSServiceInfo_t& record) {
  auto size = static_cast<std::uint32_t>(sizeof record.copyName);
  const unsigned int error =
      platform::RegEnumKeyExA(list.copiesKey, list.copyIndex, record.copyName, &size);
  if (error == 0) return 0;
  record.copyName[0] = '\0';
  if (error == platform::registryNoMoreItems) return enterDefault(routine, list);
  const std::uint32_t index = list.copyIndex++;
  return routine.refuse(GENREG_RC_NEXT_SERVICE, 30, genreg::number(error), genreg::number(index));
}

// Decides as what the copy in the record is reported now.
void chooseService(OSSServiceList_t& list, OSSServiceInfo_t& record) {
  if (list.zemReported == 0 && ossCopyHasZemProfiles(*list.machine, record.copyName)) {
    list.zemReported = 1;
    copyText(record.service, "ZEM");
  } else {
    ++list.copyIndex;
    copyText(record.service, "ZOR");
  }
}

// The result for a failure of a callee: the end stays the end, anything else becomes `code`.
unsigned int failUnlessEnd(Routine& routine, Function callee, unsigned int calleeCode,
                           unsigned int code, unsigned int point) {
  const unsigned int result = calleeCode == GENREG_RC_END ? calleeCode : code;
  return routine.refuseFrom(callee, calleeCode, result, point);
}

unsigned int readCopy(Routine& routine, const OSSServiceList_t& list,
                      OSSServiceInfo_t& record) {
  unsigned int code = ossReadCopyVersion(*list.machine, record.copyName, &record.versionCode);
  if (code != 0) {
    return failUnlessEnd(routine, Function::readCopyVersion, code, GENREG_RC_NEXT_SERVICE, 50);
  }
  if (list.defaultReached != 0 && !isListedAsDefault(record.versionCode)) return GENREG_RC_END;
  code = ossGetCopyPath(*list.machine, record.copyName, record.installPath);
  if (code != 0) {
    return failUnlessEnd(routine, Function::getCopyPath, code, GENREG_RC_SERVICE_INFO, 70);
  }
  record.text2[0] = '\0';
  record.text3[0] = '\0';
  record.flags = 0;
  record.level = partOf(record.versionCode, 2);
  record.number1 = 0;
  record.byte1 = 0;
  record.number2 = 0;
  record.number3 = 0;
  return 0;
}

unsigned int nextEntry(OSSServiceList_t& list, OSSServiceInfo_t& record) {
  Routine routine(Function::serviceListNext);
  if (list.defaultReached != 0) return routine.answer(GENREG_RC_END);
  const unsigned int code = nextCopy(routine, list, record);
  if (code != 0) return routine.answer(code);
  chooseService(list, record);
  return routine.answer(readCopy(routine, list, record));
}

bool agrees(const char* wanted, const char* found) {
  return wanted == nullptr || std::strcmp(wanted, found) == 0;
}

struct WantedService {
  const char* service;
  std::uint64_t versionCode;
  const char* installPath;
  const char* copyName;

  bool matches(const OSSServiceInfo_t& record) const {
    return agrees(service, record.service) && agrees(installPath, record.installPath) &&
           agrees(copyName, record.copyName) &&
           (versionCode == 0 || versionCode == record.versionCode);
  }
};

// The first entry that matches; the result of the step that ended the walk without one.
unsigned int findEntry(const WantedService& wanted, OSSServiceInfo_t& record) {
  Routine routine(Function::serviceLookup);
  unsigned int code = 0;
  OSSServiceList_t* const list = openList(&code);
  if (list == nullptr) return routine.answer(code);
  do {
    code = nextEntry(*list, record);
  } while (code == 0 && !wanted.matches(record));
  (void)closeList(list);
  return routine.answer(code);
}

unsigned int lookUp(const WantedService& wanted, OSSServiceInfo_t* record) {
  constexpr Function self = Function::getServiceInfo;
  if (record == nullptr) return genreg::logFailure(self, GENREG_RC_NO_SERVICE_RECORD, 10);
  const unsigned int code = findEntry(wanted, *record);
  if (code == 0) return 0;
  if (code == GENREG_RC_END) return GENREG_RC_SERVICE_INFO;
  (void)logCallee(self, Function::serviceLookup, code, GENREG_RC_SERVICE_INFO, 20);
  traceCode(self, 20, code);
  return GENREG_RC_SERVICE_INFO;
}

}  // namespace
}  // namespace install

using genreg::Function;
using install::OSSServiceList_t;

unsigned int ossOpenServiceList(void** list) noexcept {
  constexpr Function self = Function::openServiceList;
  if (list == nullptr) return genreg::logFailure(self, GENREG_RC_LIST_OPEN, 10);
  unsigned int code = 0;
  OSSServiceList_t* const made = install::openList(&code);
  if (made == nullptr) {
    return install::logCallee(self, Function::serviceListOpen, code, GENREG_RC_LIST_OPEN, 20);
  }
  *list = made;
  return 0;
}

unsigned int ossGetNextService(void* list, OSSServiceInfo_t* record) noexcept {
  constexpr Function self = Function::getNextService;
  if (list == nullptr) return genreg::logFailure(self, GENREG_RC_NO_LIST, 10);
  if (record == nullptr) return genreg::logFailure(self, GENREG_RC_NO_SERVICE_RECORD, 20);
  const unsigned int code = install::nextEntry(*static_cast<OSSServiceList_t*>(list), *record);
  if (code == 0 || code == GENREG_RC_END) return code;
  return install::logCallee(self, Function::serviceListNext, code, GENREG_RC_NEXT_SERVICE, 30);
}

unsigned int ossCloseServiceList(void* list) noexcept {
  constexpr Function self = Function::closeServiceList;
  if (list == nullptr) return genreg::logFailure(self, GENREG_RC_NO_LIST, 10);
  const unsigned int code = install::closeList(static_cast<OSSServiceList_t*>(list));
  if (code == 0) return 0;
  return install::logCallee(self, Function::serviceListClose, code, GENREG_RC_LIST_CLOSE, 20);
}

unsigned int ossGetServiceInfo(const char* service, std::uint64_t versionCode,
                               const char* installPath, OSSServiceInfo_t* record) noexcept {
  return install::lookUp({service, versionCode, installPath, nullptr}, record);
}

unsigned int ossGetServiceInfo(const char* service, std::uint64_t versionCode,
                               const char* installPath, const char* copyName,
                               OSSServiceInfo_t* record) noexcept {
  return install::lookUp({service, versionCode, installPath, copyName}, record);
}

unsigned int ossSetServiceInfo(OSSServiceInfo_t* record) noexcept {
  if (record != nullptr) return OSS_RC_NOT_SUPPORTED;
  return genreg::logFailure(Function::setServiceInfo, GENREG_RC_NO_SERVICE_RECORD, 10);
}

unsigned int ossRemoveServiceInfo(const char*, std::uint64_t) noexcept {
  return OSS_RC_NOT_SUPPORTED;
}
