// Construction and destruction of a registry handle, its features, its file names.
#include "genreg/core/registry_handle.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>

#include "genreg_codes.h"
#include "sysservices/file_system.h"

using genreg::Function;
using genreg::Routine;

namespace {

bool isFeatureValue(std::uint64_t feature) { return feature != 0 && feature <= GENREG_FEATURE_MAX; }

// Joins the parts of a name. GENREG_PATH_MAX leaves room for the longest: the lock file's is six
// characters longer than the path.
template <std::size_t Size>
void setName(char (&name)[Size], std::initializer_list<const char*> parts) {
  std::size_t length = 0;
  for (const char* part : parts) {
    const std::size_t count = std::min(std::strlen(part), Size - 1 - length);
    std::memcpy(name + length, part, count);
    length += count;
  }
  name[length] = '\0';
}

}  // namespace

GenRegBase::GenRegBase() noexcept
    : CompareRecord(nullptr),
      ValidateKey(nullptr),
      PrintRecord(nullptr),
      NotifyChange(nullptr),
      PostUpdate(nullptr),
      status(GENREG_STATUS_IDLE),
      features(0) {}

unsigned int GenRegBase::setFeature(std::uint64_t feature) noexcept {
  Routine routine(Function::setFeature);
  if (!isFeatureValue(feature)) return routine.exit(GENREG_RC_BAD_FEATURE);
  features |= feature;
  return routine.exit(GENREG_RC_OK);
}

unsigned int GenRegBase::unsetFeature(std::uint64_t feature) noexcept {
  Routine routine(Function::unsetFeature);
  if (!isFeatureValue(feature)) return routine.exit(GENREG_RC_BAD_FEATURE);
  if ((features & feature) == 0) return routine.exit(GENREG_RC_FEATURE_NOT_SET);
  features &= ~feature;
  return routine.exit(GENREG_RC_OK);
}

bool GenRegBase::isFeatureSet(std::uint64_t feature) const noexcept {
  Routine routine(Function::isFeatureSet);
  const bool set = (features & feature) != 0;
  (void)routine.exit(set ? 1 : 0);
  return set;
}

const GenRegSessionRoutines RegistryHandle::sessionRoutines = {
    RegistryHandle::lockRegistry, RegistryHandle::unlockRegistry, RegistryHandle::openRegFile,
    RegistryHandle::closeRegFile, RegistryHandle::getPath};

GenRegFile::GenRegFile() noexcept
    : engineKind(0),
      GetRecordLength(nullptr),
      GetRecordSize(nullptr),
      lockFileOpenParam{OSS_PARAM_LEVEL, nullptr, 0, 0, 0, 0, 0},
      mainStream(nullptr),
      secondStream(nullptr),
      registryPermissions(0),
      lockPermissions(0),
      GetPackedLength(nullptr),
      session(&RegistryHandle::sessionRoutines),
      storedForm(nullptr),
      mainBacking(nullptr),
      secondBacking(nullptr),
      appending(false),
      temporaryDurable(false) {
  Routine routine(Function::fileConstructor);
  // Empty texts; a kilobyte of zeros for each handle would cost more than naming its files.
  for (char* path : {registryPath, backupPath, temporaryPath, corruptPath, lockPath}) *path = '\0';
}

GenRegFile::~GenRegFile() {
  Routine routine(Function::fileDestructor);
  if ((status & GENREG_STATUS_LOCKED) != 0) {
    if (const unsigned int code = lockFile.close(); code != 0) {
      (void)routine.failFrom(genreg::probeFileClose, code, GENREG_RC_CLOSE_LOCK_FAILED, 10);
    }
  }
  if (const int error = RegistryHandle::closeMain(*this); error != 0) {
    (void)routine.failSystem(error, GENREG_RC_CLOSE_FAILED, 20, registryPath, OSS_SYSCALL_CLOSE);
  }
  if (const int error = RegistryHandle::closeSecond(*this); error != 0) {
    (void)routine.failSystem(error, GENREG_RC_CLOSE_TEMP_FAILED, 30, temporaryPath,
                             OSS_SYSCALL_CLOSE);
  }
  status = GENREG_STATUS_IDLE;
}

unsigned int RegistryHandle::getPath(const GenRegFile& handle, unsigned int which, char* buffer,
                                     std::uint64_t size) {
  struct Getter {
    Function function;
    const char* path;
  };
  const Getter getters[] = {{Function::getRegFilePath, handle.registryPath},
                            {Function::getTempFilePath, handle.temporaryPath},
                            {Function::getCorruptFilePath, handle.corruptPath},
                            {Function::getLockFilePath, handle.lockPath},
                            {Function::getBackupFilePath, handle.backupPath}};
  const Getter& getter = getters[which];
  Routine routine(getter.function);
  if (buffer == nullptr) return routine.exit(OSS_RC_NULL_ARGUMENT);
  const std::size_t needed = std::strlen(getter.path) + 1;
  if (size < needed) {
    if (size > 0) buffer[0] = '\0';
    return routine.exit(OSS_RC_BUFFER_TOO_SMALL);
  }
  std::memcpy(buffer, getter.path, needed);
  buffer[size - 1] = '\0';
  return routine.exit(GENREG_RC_OK);
}

unsigned int RegistryHandle::checkPath(const char* path) noexcept {
  if (path == nullptr || *path == '\0') return GENREG_RC_NO_ARGUMENT;
  if (::strnlen(path, GENREG_PATH_MAX + 1) > GENREG_PATH_MAX) return GENREG_RC_PATH_TOO_LONG;
  return GENREG_RC_OK;
}

unsigned int RegistryHandle::setUp(GenRegFile& handle, const Routine& routine, const char* path,
                                   const FlavourHooks& hooks, unsigned int* rc) noexcept {
  unsigned int code = checkPath(path);
  if (code != 0) {
    (void)routine.fail(code, 5);
  } else {
    handle.CompareRecord = hooks.compareRecord;
    handle.ValidateKey = hooks.validateKey;
    handle.PrintRecord = hooks.printRecord;
    handle.UnpackRecord = hooks.unpackRecord;
    handle.PackRecord = hooks.packRecord;
    handle.GetRecordSize = hooks.getRecordSize;
    handle.GetRecordLength = hooks.getRecordLength;
    handle.storedForm = hooks.storedForm;
    code = nameFiles(handle, routine, path);
  }
  if (rc != nullptr) *rc = code;
  return code;
}

unsigned int RegistryHandle::nameFiles(GenRegFile& handle, const Routine& routine,
                                       const char* path) noexcept {
  char base[GENREG_PATH_SIZE];
  char directory[GENREG_PATH_SIZE];
  if (ossBaseName(path, base, sizeof base) != 0) {
    return routine.fail(GENREG_RC_BASE_NAME, 10, genreg::text(path));
  }
  if (ossDirectoryName(path, directory, sizeof directory) != 0) {
    return routine.fail(GENREG_RC_DIRECTORY_NAME, 20, genreg::text(path));
  }
  setName(handle.registryPath, {path});
  setName(handle.temporaryPath, {path, ".tmp"});
  setName(handle.corruptPath, {path, ".cor"});
  const char separator[] = {ossPathSeparator, '\0'};
  const bool bareName = std::strcmp(directory, ".") == 0;
  const char* before = bareName ? "" : directory;
  const char* joint = bareName ? "" : separator;
  setName(handle.lockPath, {before, joint, ".", base, ".lock"});
  setName(handle.backupPath, {before, joint, ".", base, ".bkp"});
  handle.status |= GENREG_STATUS_READY;
  return GENREG_RC_OK;
}

int RegistryHandle::closeMain(GenRegFile& handle) noexcept {
  if (handle.mainStream == nullptr) return 0;
  const int error = platform::closeStream(handle.mainStream, handle.mainBacking);
  handle.mainStream = nullptr;
  handle.mainBacking = nullptr;
  return error;
}

int RegistryHandle::closeSecond(GenRegFile& handle) noexcept {
  if (handle.secondStream == nullptr) return 0;
  const int error = platform::closeStream(handle.secondStream, handle.secondBacking);
  handle.secondStream = nullptr;
  handle.secondBacking = nullptr;
  return error;
}
