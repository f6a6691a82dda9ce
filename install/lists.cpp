// What the exports of both lists have in common: opening, walking, closing, looking up.
#include <cstring>

#include "install/allocate.h"
#include "install/copies.h"
#include "install/instances.h"

namespace install {
namespace {

using genreg::Function;
using genreg::Routine;

// The routines of one kind of list, and the probe points and codes in which the two kinds differ.
struct ListRoutines {
  struct {
    Function open, next, close, lookUp;
  } exported, inner;
  struct {
    unsigned int noList, openFailed, noMemory;
  } points;
  struct {
    unsigned int openFailed;  // 0: the inner routine's own
    unsigned int noRecord, nextFailed, notFound;
  } codes;
};

template <typename List>
constexpr ListRoutines routinesOf{};
template <>
constexpr ListRoutines routinesOf<ServiceList>{
    {Function::openServiceList, Function::getNextService, Function::closeServiceList,
     Function::getServiceInfo},
    {Function::serviceListOpen, Function::serviceListNext, Function::serviceListClose,
     Function::serviceLookup},
    {10, 20, 10},
    {GENREG_RC_LIST_OPEN, GENREG_RC_NO_SERVICE_RECORD, GENREG_RC_NEXT_SERVICE,
     GENREG_RC_SERVICE_INFO}};
template <>
constexpr ListRoutines routinesOf<InstanceList>{
    {Function::openInstanceList, Function::getNextInstance, Function::closeInstanceList,
     Function::getInstanceInfo},
    {Function::instanceListOpen, Function::instanceListNext, Function::instanceListClose,
     Function::instanceLookup},
    {25, 30, 5},
    {0, GENREG_RC_NO_INSTANCE_RECORD, GENREG_RC_NEXT_INSTANCE, GENREG_RC_INSTANCE_INFO}};

// What stands behind the opaque handle.
template <typename List>
struct OpenList {
  struct CloseMachine {
    void operator()(platform::Machine* held) const noexcept { platform::closeMachine(held); }
  };
  std::unique_ptr<platform::Machine, CloseMachine> machine{platform::openMachine()};
  List list{machine.get()};
};

// Logs that `callee` failed with `calleeCode` and gives back `code`, the export's own.
unsigned int failFrom(Function callee, unsigned int calleeCode, Function self, unsigned int code,
                      unsigned int point) {
  genreg::handOverNames();
  ossLogRC(0, genreg::probeOf(self), genreg::probeOf(callee), calleeCode, code, point,
           genreg::failureSeverity, 0);
  return code;
}

template <typename List>
unsigned int closeInner(OpenList<List>* opened) {
  Routine routine(routinesOf<List>.inner.close);
  return routine.answer(release(opened));
}

// Null with the code of the failure at *code. `kind` is that of a list of instances.
template <typename List, typename... Kind>
OpenList<List>* openInner(unsigned int* code, Kind... kind) {
  Routine routine(routinesOf<List>.inner.open);
  genreg::handOverNames();  // the platform may have something to log
  auto* const opened = allocate<OpenList<List>>();
  const bool complete = opened != nullptr && opened->machine != nullptr;
  *code = complete ? opened->list.open(routine, kind...)
                   : routine.refuse(OSS_RC_NO_MEMORY, routinesOf<List>.points.noMemory);
  (void)routine.answer(*code);
  if (*code == 0) return opened;
  if (opened != nullptr) (void)closeInner(opened);
  return nullptr;
}

template <typename List>
unsigned int nextInner(OpenList<List>& opened, typename List::Record& record) {
  Routine routine(routinesOf<List>.inner.next);
  return routine.answer(opened.list.next(routine, record));
}

template <typename List, typename... Kind>
unsigned int open(void** list, Kind... kind) {
  constexpr const ListRoutines& of = routinesOf<List>;
  const Function self = of.exported.open;
  if (list == nullptr) return genreg::logFailure(self, GENREG_RC_LIST_OPEN, of.points.noList);
  unsigned int code = 0;
  OpenList<List>* const opened = openInner<List>(&code, kind...);
  if (opened == nullptr) {
    const unsigned int own = of.codes.openFailed != 0 ? of.codes.openFailed : code;
    return failFrom(of.inner.open, code, self, own, of.points.openFailed);
  }
  *list = opened;
  return 0;
}

template <typename List>
unsigned int next(void* list, typename List::Record* record) {
  constexpr const ListRoutines& of = routinesOf<List>;
  const Function self = of.exported.next;
  if (list == nullptr) return genreg::logFailure(self, GENREG_RC_NO_LIST, 10);
  if (record == nullptr) return genreg::logFailure(self, of.codes.noRecord, 20);
  const unsigned int code = nextInner(*static_cast<OpenList<List>*>(list), *record);
  if (code == 0 || code == GENREG_RC_END) return code;
  return failFrom(of.inner.next, code, self, of.codes.nextFailed, 30);
}

template <typename List>
unsigned int close(void* list) {
  constexpr const ListRoutines& of = routinesOf<List>;
  const Function self = of.exported.close;
  if (list == nullptr) return genreg::logFailure(self, GENREG_RC_NO_LIST, 10);
  const unsigned int code = closeInner(static_cast<OpenList<List>*>(list));
  return code == 0 ? 0 : failFrom(of.inner.close, code, self, GENREG_RC_LIST_CLOSE, 20);
}

// The first entry that matches; the result of the step that ended the walk without one.
template <typename List, typename Wanted, typename... Kind>
unsigned int find(const Wanted& wanted, typename List::Record& record, Kind... kind) {
  Routine routine(routinesOf<List>.inner.lookUp);
  unsigned int code = 0;
  OpenList<List>* const opened = openInner<List>(&code, kind...);
  if (opened == nullptr) return routine.answer(code);
  do {
    code = nextInner(*opened, record);
  } while (code == 0 && !wanted.matches(record));
  (void)closeInner(opened);
  return routine.answer(code);
}

template <typename List, typename Wanted, typename... Kind>
unsigned int lookUp(const Wanted& wanted, typename List::Record* record, Kind... kind) {
  constexpr const ListRoutines& of = routinesOf<List>;
  const Function self = of.exported.lookUp;
  if (record == nullptr) return genreg::logFailure(self, of.codes.noRecord, 10);
  const unsigned int code = find<List>(wanted, *record, kind...);
  if (code == 0) return 0;
  if (code == GENREG_RC_END) return of.codes.notFound;
  (void)failFrom(of.inner.lookUp, code, self, of.codes.notFound, 20);
  if (genreg::tracingOn()) {
    _gtraceVar(static_cast<std::uint32_t>(ossThreadID()), genreg::probeOf(self), 20, 3, 1, 0,
               sizeof code, &code);
  }
  return of.codes.notFound;
}

bool agrees(const char* wanted, const char* found) {
  return wanted == nullptr || std::strcmp(wanted, found) == 0;
}

bool agrees(std::uint64_t wanted, std::uint64_t found) { return wanted == 0 || wanted == found; }

// What a lookup asks for; null or 0 matches any.
struct WantedService {
  const char* service;
  std::uint64_t versionCode;
  const char* installPath;
  const char* copyName;

  bool matches(const OSSServiceInfo_t& record) const {
    return agrees(service, record.service) && agrees(installPath, record.installPath) &&
           agrees(copyName, record.copyName) && agrees(versionCode, record.versionCode);
  }
};

// A capital for a small letter. Any other has one in some locales only, and the second byte of a
// character may look like one.
char capitalAt(const char* text, std::size_t at) {
  const char byte = text[at];
  const bool isSmall = byte >= 'a' && byte <= 'z' && platform::wholeCharacters(text, at) == at;
  return isSmall ? static_cast<char>(byte - 'a' + 'A') : byte;
}

class WantedInstance {
 public:
  WantedInstance(std::uint64_t versionCode, const char* instanceName, const char* copyName)
      : versionCode_(versionCode), anyName_(instanceName == nullptr), copyName_(copyName) {
    for (std::size_t i = 0; !anyName_ && i < sizeof name_ && instanceName[i] != '\0'; ++i) {
      name_[i] = capitalAt(instanceName, i);
    }
  }

  // A name that fills its buffer equals none: those in records are terminated.
  bool matches(const OSSInstanceInfo_t& record) const {
    return (anyName_ || std::strncmp(name_, record.instanceName, sizeof name_) == 0) &&
           agrees(copyName_, record.copyName) && agrees(versionCode_, record.versionCode);
  }

 private:
  std::uint64_t versionCode_;
  bool anyName_;
  char name_[sizeof OSSInstanceInfo_t::instanceName] = {};
  const char* copyName_;
};

}  // namespace
}  // namespace install

using genreg::Function;
using install::InstanceList;
using install::ServiceList;

unsigned int ossOpenServiceList(void** list) noexcept { return install::open<ServiceList>(list); }

unsigned int ossGetNextService(void* list, OSSServiceInfo_t* record) noexcept {
  return install::next<ServiceList>(list, record);
}

unsigned int ossCloseServiceList(void* list) noexcept { return install::close<ServiceList>(list); }

unsigned int ossGetServiceInfo(const char* service, std::uint64_t versionCode,
                               const char* installPath, OSSServiceInfo_t* record) noexcept {
  return ossGetServiceInfo(service, versionCode, installPath, nullptr, record);
}

unsigned int ossGetServiceInfo(const char* service, std::uint64_t versionCode,
                               const char* installPath, const char* copyName,
                               OSSServiceInfo_t* record) noexcept {
  const install::WantedService wanted{service, versionCode, installPath, copyName};
  return install::lookUp<ServiceList>(wanted, record);
}

unsigned int ossSetServiceInfo(OSSServiceInfo_t* record) noexcept {
  if (record != nullptr) return OSS_RC_NOT_SUPPORTED;
  return genreg::logFailure(Function::setServiceInfo, GENREG_RC_NO_SERVICE_RECORD, 10);
}

unsigned int ossRemoveServiceInfo(const char*, std::uint64_t) noexcept {
  return OSS_RC_NOT_SUPPORTED;
}

unsigned int ossOpenInstanceList(const char* kind, void** list) noexcept {
  if (kind != nullptr) return install::open<InstanceList>(list, kind);
  return genreg::logFailure(Function::openInstanceList, GENREG_RC_NO_KIND, 20);
}

unsigned int ossGetNextInstance(void* list, OSSInstanceInfo_t* record) noexcept {
  return install::next<InstanceList>(list, record);
}

unsigned int ossCloseInstanceList(void* list) noexcept {
  return install::close<InstanceList>(list);
}

unsigned int ossGetInstanceInfo(const char* kind, std::uint64_t versionCode,
                                const char* instanceName, OSSInstanceInfo_t* record) noexcept {
  return ossGetInstanceInfo(kind, versionCode, instanceName, nullptr, record);
}

unsigned int ossGetInstanceInfo(const char* kind, std::uint64_t versionCode,
                                const char* instanceName, const char* copyName,
                                OSSInstanceInfo_t* record) noexcept {
  const install::WantedInstance wanted(versionCode, instanceName, copyName);
  const bool zor = kind == nullptr || std::strcmp(kind, install::zorKind.service) == 0;
  const install::Kind& searched = zor ? install::zorKind : install::zemKind;
  return install::lookUp<InstanceList>(wanted, record, searched.service);
}

unsigned int ossSetInstanceInfo(OSSInstanceInfo_t* record) noexcept {
  if (record != nullptr) return OSS_RC_NOT_SUPPORTED;
  return genreg::logFailure(Function::setInstanceInfo, GENREG_RC_NO_INSTANCE_RECORD, 10);
}

unsigned int ossRemoveInstanceInfo(const char*, std::uint64_t, const char*) noexcept {
  return OSS_RC_NOT_SUPPORTED;
}
