// Construction and destruction of a registry handle, its features, its file names, and the table
// behind its protected members.
#include "genreg/core/handle.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string_view>

#include "genreg_codes.h"
#include "sysservices/file_system.h"
#include "sysservices/memory.h"

using genreg::Code;
using genreg::Function;
using genreg::Routine;
using genreg::Session;

namespace {

constexpr const char* sourceFile = "handle";

bool isFeatureValue(std::uint64_t feature) { return feature != 0 && feature <= GENREG_FEATURE_MAX; }

// Joins the parts of a name. GENREG_PATH_MAX leaves room for the longest: the lock file's is six
// characters longer than the path.
template <std::size_t Size>
void setName(char (&name)[Size], std::initializer_list<std::string_view> parts) {
  std::size_t length = 0;
  for (const std::string_view part : parts) {
    const std::size_t count = std::min(part.size(), Size - 1 - length);
    std::memcpy(name + length, part.data(), count);
    length += count;
  }
  name[length] = '\0';
}

Session* makeSession(GenRegFile& handle) {
  void* memory = nullptr;
  if (_ossMemAlloc(&memory, 0, sizeof(Session), 1, sourceFile, __LINE__) != 0) return nullptr;
  return new (memory) Session(handle);
}

// In an update of many changes the files are its own.
bool isManyOpen(Session* session) { return session != nullptr && session->pending() != nullptr; }

unsigned int lockRegistry(GenRegFile& handle, std::uint64_t request) {
  return genreg::HandleAccess(handle).lock(request);
}

unsigned int unlockRegistry(GenRegFile& handle) {
  Session* session = genreg::HandleAccess(handle).session();
  if (isManyOpen(session)) return GENREG_RC_UPDATE_OPEN;
  return session == nullptr ? GENREG_RC_UNLOCK_FILE_FAILED : session->unlock();
}

unsigned int openRegFile(GenRegFile& handle, std::uint64_t kind) {
  const genreg::HandleAccess access(handle);
  if (isManyOpen(access.session())) return GENREG_RC_UPDATE_OPEN;
  const Code code = access.open(kind);
  if (code != 0 || access.session()->showStreams()) return code;
  (void)access.session()->close(GENREG_OP_READ);
  return GENREG_RC_OPEN_FAILED;
}

unsigned int closeRegFile(GenRegFile& handle, std::uint64_t kind) {
  Session* session = genreg::HandleAccess(handle).session();
  if (isManyOpen(session)) return GENREG_RC_UPDATE_OPEN;
  return session == nullptr ? GENREG_RC_OK : session->close(kind);
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
  if (!isFeatureValue(feature)) return routine.answer(GENREG_RC_BAD_FEATURE);
  features |= feature;
  return GENREG_RC_OK;
}

unsigned int GenRegBase::unsetFeature(std::uint64_t feature) noexcept {
  Routine routine(Function::unsetFeature);
  if (!isFeatureValue(feature)) return routine.answer(GENREG_RC_BAD_FEATURE);
  if ((features & feature) == 0) return routine.answer(GENREG_RC_FEATURE_NOT_SET);
  features &= ~feature;
  return GENREG_RC_OK;
}

bool GenRegBase::isFeatureSet(std::uint64_t feature) const noexcept {
  Routine routine(Function::isFeatureSet);
  return routine.answer((features & feature) != 0 ? 1 : 0) != 0;
}

const GenRegSessionRoutines genreg::HandleAccess::sessionRoutines = {
    lockRegistry, unlockRegistry, openRegFile, closeRegFile,
    [](const GenRegFile& handle, unsigned int which, char* buffer, std::uint64_t size) {
      const struct {
        Function function;
        const char* path;
      } getters[] = {{Function::getRegFilePath, handle.registryPath},
                     {Function::getTempFilePath, handle.temporaryPath},
                     {Function::getCorruptFilePath, handle.corruptPath},
                     {Function::getLockFilePath, handle.lockPath},
                     {Function::getBackupFilePath, handle.backupPath}};
      const auto& getter = getters[which];
      Routine routine(getter.function);
      if (buffer == nullptr) return routine.answer(OSS_RC_NULL_ARGUMENT);
      const std::size_t needed = std::strlen(getter.path) + 1;
      if (size < needed) {
        if (size > 0) buffer[0] = '\0';
        return routine.answer(OSS_RC_BUFFER_TOO_SMALL);
      }
      std::memcpy(buffer, getter.path, needed);
      buffer[size - 1] = '\0';
      return GENREG_RC_OK;
    }};

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
      routines(&genreg::HandleAccess::sessionRoutines),
      session(makeSession(*this)),
      form(nullptr),
      committed(false) {
  Routine routine(Function::fileConstructor);
  // Empty texts; a kilobyte of zeros for each handle would cost more than naming its files.
  for (char* path : {registryPath, backupPath, temporaryPath, corruptPath, lockPath}) *path = '\0';
}

GenRegFile::~GenRegFile() {
  Routine routine(Function::fileDestructor);
  if (session != nullptr && session->pending() != nullptr) (void)AbandonUpdate();
  if ((status & GENREG_STATUS_LOCKED) != 0) {
    if (const Code code = lockFile.close(); code != 0) {
      (void)routine.failFrom(genreg::probeFileClose, code, GENREG_RC_CLOSE_LOCK_FAILED, 10);
    }
  }
  if (session != nullptr) {
    if (const int error = session->endScan(); error != 0) {
      (void)routine.failSystem(error, GENREG_RC_CLOSE_FAILED, 20, registryPath, OSS_SYSCALL_CLOSE);
    }
    if (const int error = session->second().close(); error != 0) {
      (void)routine.failSystem(error, GENREG_RC_CLOSE_TEMP_FAILED, 30, temporaryPath,
                               OSS_SYSCALL_CLOSE);
    }
    session->~Session();
    void* memory = session;
    (void)_ossMemFree(&memory, 0, 0, sourceFile, __LINE__);
  }
  status = GENREG_STATUS_IDLE;
}

bool GenRegFile::isUpdateCommitted() const noexcept { return committed; }

namespace genreg {

Code HandleAccess::checkPath(const char* path) noexcept {
  if (path == nullptr || *path == '\0') return GENREG_RC_NO_ARGUMENT;
  if (::strnlen(path, GENREG_PATH_MAX + 1) > GENREG_PATH_MAX) return GENREG_RC_PATH_TOO_LONG;
  return GENREG_RC_OK;
}

void HandleAccess::install(GenRegFile& handle, const RecordForm& form) noexcept {
  handle.CompareRecord = form.compareRecord;
  handle.ValidateKey = form.validateKey;
  handle.PrintRecord = form.printRecord;
  handle.NotifyChange = form.notifyChange;
  handle.UnpackRecord = form.unpackRecord;
  handle.PackRecord = form.packRecord;
  handle.GetRecordSize = form.getRecordSize;
  handle.GetRecordLength = form.getRecordLength;
  handle.GetPackedLength = form.getPackedLength;
  handle.form = &form;
}

Code HandleAccess::setUp(GenRegFile& handle, Routine& routine, const char* path,
                         const RecordForm* form, unsigned int* rc) noexcept {
  if (const Code code = checkPath(path); code != 0) {
    (void)routine.fail(code, 5);
  } else {
    if (form != nullptr) install(handle, *form);
    (void)nameFiles(handle, routine, path);
  }
  if (rc != nullptr) *rc = routine.code();
  return routine.code();
}

Code HandleAccess::nameFiles(GenRegFile& handle, Routine& routine, const char* path) noexcept {
  char base[GENREG_PATH_SIZE];
  char directory[GENREG_PATH_SIZE];
  if (handle.session == nullptr) return routine.refuse(OSS_RC_NO_MEMORY, 8);
  if (ossBaseName(path, base, sizeof base) != 0) {
    return routine.refuse(GENREG_RC_BASE_NAME, 10, text(path));
  }
  if (ossDirectoryName(path, directory, sizeof directory) != 0) {
    return routine.refuse(GENREG_RC_DIRECTORY_NAME, 20, text(path));
  }
  const std::string_view whole(path);
  setName(handle.registryPath, {whole});
  setName(handle.temporaryPath, {whole, ".tmp"});
  setName(handle.corruptPath, {whole, ".cor"});
  const char separator = ossPathSeparator;
  const bool bareName = std::strcmp(directory, ".") == 0;
  const std::string_view before(bareName ? "" : directory);
  const std::string_view joint(&separator, bareName ? 0 : 1);
  const std::string_view name(base);
  setName(handle.lockPath, {before, joint, ".", name, ".lock"});
  setName(handle.backupPath, {before, joint, ".", name, ".bkp"});
  if (handle.session->resolveNames() != 0) return routine.refuse(OSS_RC_NO_MEMORY, 30, text(path));
  handle.status |= GENREG_STATUS_READY;
  return GENREG_RC_OK;
}

}  // namespace genreg
