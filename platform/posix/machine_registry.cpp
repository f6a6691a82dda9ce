// The machine registry as registry exports: the local machine's is the file that
// ZOROSSE_REGISTRY_FILE names, another machine's is <machine>.reg in the same directory.
#include "platform/machine_registry.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>

#include "platform/posix/machine.h"
#include "platform/posix/registry_export.h"
#include "sysservices/diagnostics.h"
#include "sysservices/fault_hook.h"
#include "sysservices/file_handle.h"
#include "sysservices/return_codes.h"

namespace platform {
namespace {

constexpr unsigned int probeRegistryExport = 0x081A0100u;
constexpr unsigned int failureSeverity = 2;
constexpr std::uint64_t largestExport = std::uint64_t{1} << 30;  // bytes

void logUnreadable(unsigned int code, unsigned int point, const std::string& path,
                   const ExportFault& fault) {
  ossLog(0, probeRegistryExport, code, point, failureSeverity, 3, path.c_str(), path.size(),
         OSS_LOG_STRING, &fault.line, sizeof fault.line, OSS_LOG_INT32, fault.reason,
         std::strlen(fault.reason), OSS_LOG_STRING);
}

// Reads a whole file; gives 0 or the system error.
int readWhole(const std::string& path, std::string& bytes) {
  OSSHFile file;
  const OSSFileOpenParam param{
      OSS_PARAM_LEVEL, path.c_str(), OSS_ACCESS_READ_WRITE, OSS_OPEN_EXISTING, 0, 0, 0};
  OSSFileInfo info{};
  if (file.open(&param) != 0 || file.getInfo(&info) != 0) return file.lastError();
  if (info.size > largestExport) return EFBIG;
  std::size_t done = 0;
  try {
    bytes.resize(static_cast<std::size_t>(info.size));
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
  const bool read = file.readAt(bytes.data(), bytes.size(), 0, &done) == 0;
  bytes.resize(done);
  return read && file.close() == 0 ? 0 : file.lastError();
}

// The registry in the file at `path`, or null with *error when the file is not there. One that
// cannot be read is logged, and empty.
std::unique_ptr<const RegistryTree> loadRegistry(const std::string& path, int* error) {
  auto tree = std::make_unique<RegistryTree>();
  std::string bytes;
  *error = readWhole(path, bytes);
  if (*error == ENOMEM) throw std::bad_alloc();
  if (*error == ENOENT) return nullptr;
  ExportFault fault;
  if (*error != 0) {
    // What is no plain file is opened no further, and told by one of these numbers.
    const bool noFile = *error == ELOOP || *error == EISDIR || *error == ENXIO;
    char message[128];
    fault.reason = noFile ? "not a plain file" : ::strerror_r(*error, message, sizeof message);
    logUnreadable(noFile ? OSS_RC_NOT_A_FILE : OSS_RC_IO_ERROR, 10, path, fault);
    return tree;
  }
  if (readRegistryExport(bytes, *tree, fault)) return tree;
  logUnreadable(OSS_RC_BAD_PARAMETER, 20, path, fault);
  return std::make_unique<RegistryTree>();
}

std::unique_ptr<const RegistryTree> loadLocalRegistry(const std::string& path) {
  if (path.empty()) return std::make_unique<RegistryTree>();
  int error = 0;
  auto tree = loadRegistry(path, &error);
  if (tree != nullptr) return tree;
  logUnreadable(OSS_RC_FILE_NOT_FOUND, 30, path, {0, "the file does not exist"});
  return std::make_unique<RegistryTree>();
}

// The export of a host, beside that of the local machine. A host's name must not lead elsewhere.
std::string exportPathOf(const Machine& machine, const std::string& host) {
  if (machine.exportPath.empty() || host.empty()) return {};
  if (host.find_first_of("/\\") != std::string::npos) return {};
  const std::size_t directory = machine.exportPath.rfind('/') + 1;  // 0 without a slash
  std::string path;
  path.append(machine.exportPath, 0, directory).append(host).append(".reg");
  return path;
}

unsigned int connect(Machine& machine, const char* name, RegistryKey* key) {
  std::string host;
  host = std::strncmp(name, "\\\\", 2) == 0 ? name + 2 : name;
  auto known = machine.others.find(host);
  if (known == machine.others.end()) {
    const std::string path = exportPathOf(machine, host);
    int error = 0;
    auto tree = path.empty() ? nullptr : loadRegistry(path, &error);
    if (tree == nullptr) return registryHostUnknown;
    known = machine.others.emplace(host, std::move(tree)).first;
  }
  *key = known->second->localMachine();
  return 0;
}

// What a test wants an operation to fail with; 0 as a rule.
unsigned int injected(const char* operation, const char* name) {
  return static_cast<unsigned int>(std::max(0, ossFaultPoint(operation, name)));
}

}  // namespace

Machine* openMachine() noexcept {
  try {
    if (ossFaultPoint("malloc", nullptr) > 0) return nullptr;
    auto machine = std::make_unique<Machine>();
    const char* const path = std::getenv("ZOROSSE_REGISTRY_FILE");
    if (path != nullptr) machine->exportPath = path;
    machine->local = loadLocalRegistry(machine->exportPath);
    return machine.release();
  } catch (const std::exception&) {
    return nullptr;
  }
}

void closeMachine(Machine* machine) noexcept { delete machine; }

RegistryKey localMachineKey(const Machine& machine) noexcept {
  return machine.local->localMachine();
}

unsigned int RegOpenKeyExA(RegistryKey parent, const char* path, RegistryKey* key) noexcept {
  if (const unsigned int error = injected("RegOpenKeyExA", path); error != 0) return error;
  const RegistryKey found = findKey(parent, path);
  if (found == nullptr) return registryKeyMissing;
  *key = found;
  return 0;
}

unsigned int RegEnumKeyExA(RegistryKey key, std::uint32_t index, char* name,
                           std::uint32_t* size) noexcept {
  if (const unsigned int error = injected("RegEnumKeyExA", nullptr); error != 0) return error;
  if (index >= key->subkeys.size()) return registryNoMoreItems;
  const std::string& found = key->subkeys[index]->name;
  if (found.size() >= *size) return registryMoreData;
  std::memcpy(name, found.c_str(), found.size() + 1);
  *size = static_cast<std::uint32_t>(found.size());
  return 0;
}

unsigned int RegQueryValueExA(RegistryKey key, const char* name, std::uint32_t* type, void* data,
                              std::uint32_t* size) noexcept {
  if (const unsigned int error = injected("RegQueryValueExA", name); error != 0) return error;
  const RegistryValue* const value = findValue(key, name);
  if (value == nullptr) return registryKeyMissing;
  const std::size_t room = *size;
  *type = value->type;
  *size = static_cast<std::uint32_t>(value->data.size());
  if (value->data.size() > room) return registryMoreData;
  std::memcpy(data, value->data.data(), value->data.size());
  return 0;
}

unsigned int RegQueryInfoKeyA(RegistryKey key, std::uint32_t* subkeys) noexcept {
  if (const unsigned int error = injected("RegQueryInfoKeyA", nullptr); error != 0) return error;
  *subkeys = static_cast<std::uint32_t>(key->subkeys.size());
  return 0;
}

// A key is a place in a tree, which its machine keeps.
void RegCloseKey(RegistryKey) noexcept {}

unsigned int RegConnectRegistryA(Machine& machine, const char* host, RegistryKey* key) noexcept {
  if (const unsigned int error = injected("RegConnectRegistryA", host); error != 0) return error;
  try {
    return connect(machine, host, key);
  } catch (const std::exception&) {
    return registryNoMemory;
  }
}

}  // namespace platform
