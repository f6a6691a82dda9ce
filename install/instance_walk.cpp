// From copy to copy, and from instance to instance.
#include "install/copies.h"
#include "install/instance_list.h"
#include "install/list_memory.h"
#include "install/registry_access.h"

namespace install {
namespace {

using genreg::Function;
using genreg::Routine;

// Opens the key of the next copy, in the end that of the default entry.
unsigned int openNextCopy(Routine& routine, OSSInstanceList_t& list, OpenKey& copy) {
  if (list.copiesKey != nullptr) {
    auto size = static_cast<std::uint32_t>(sizeof list.copyName);
    const unsigned int error = platform::RegEnumKeyExA(
        list.copiesKey, static_cast<std::uint32_t>(list.copyIndex), list.copyName, &size);
    if (error == 0) {
      ++list.copyIndex;
      return copy.open(list.copiesKey, list.copyName);
    }
    if (error != platform::registryNoMoreItems) return error;
    closeKey(list.copiesKey);
  }
  list.copyIndex = defaultEntryIndex;
  list.copyName[0] = '\0';
  const unsigned int error = copy.open(platform::localMachineKey(*list.machine), productPath);
  return error == 0 ? 0 : routine.refuse(error, 30, genreg::text(productPath));
}

unsigned int nextCopy(Routine& routine, OSSInstanceList_t& list) {
  for (;;) {
    OpenKey copy;
    unsigned int error = openNextCopy(routine, list, copy);
    closeKey(list.profilesKey);
    if (error != 0) return error;
    OpenKey profiles;
    error = profiles.open(copy.get(), kindNames[list.kind].profilesKey);
    list.profilesKey = profiles.release();
    const bool isDefault = list.copyIndex == defaultEntryIndex;
    if (error == 0 || isDefault) {
      list.instanceIndex = 0;
      return error;
    }
  }
}

// The whole name of the next instance of the current copy.
unsigned int instanceNameAt(const OSSInstanceList_t& list, char (&name)[keyNameSize]) {
  std::uint32_t size = sizeof name;
  return platform::RegEnumKeyExA(list.profilesKey, list.instanceIndex, name, &size);
}

// The same, with the copies after it.
unsigned int findInstanceName(Routine& routine, OSSInstanceList_t& list,
                              char (&name)[keyNameSize]) {
  unsigned int error = instanceNameAt(list, name);
  while (error == platform::registryNoMoreItems) {
    if (list.copyIndex == defaultEntryIndex) return GENREG_RC_END;
    const unsigned int moved = ossNextCopyWithProfiles(list);
    if (moved == platform::registryKeyMissing && list.copyIndex == defaultEntryIndex) {
      return GENREG_RC_END;
    }
    if (moved != 0) {
      return routine.refuseFrom(Function::nextCopyWithProfiles, moved, GENREG_RC_NEXT_INSTANCE, 10);
    }
    error = instanceNameAt(list, name);
  }
  if (error == 0) return 0;
  return routine.refuse(GENREG_RC_NEXT_INSTANCE, 20, genreg::number(error),
                      genreg::number(list.instanceIndex));
}

}  // namespace

unsigned int ossNextCopyWithProfiles(OSSInstanceList_t& list) noexcept {
  Routine routine(Function::nextCopyWithProfiles);
  return routine.answer(nextCopy(routine, list));
}

unsigned int nextInstance(OSSInstanceList_t& list, OSSInstanceInfo_t& record) noexcept {
  Routine routine(Function::instanceListNext);
  if (list.profilesKey == nullptr) return routine.answer(GENREG_RC_END);
  char name[keyNameSize];
  if (const unsigned int code = findInstanceName(routine, list, name); code != 0) {
    return routine.answer(code);
  }
  // A record has room for the beginning of a long name; the instance is found by the whole name.
  copyText(record.instanceName, name);
  return routine.answer(readInstance(routine, list, name, record));
}

}  // namespace install
