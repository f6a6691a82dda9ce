// The machine registry as registry exports: the local machine's is the file that
// ZOROSSE_REGISTRY_FILE names, another machine's is <machine>.reg in the same directory.
#include "platform/machine_registry.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>

#include "platform/posix/machine.h"
#include "platform/posix/registry_export_file.h"
#include "platform/registry_export/unicode.h"
#include "sysservices/fault_hook.h"
#include "sysservices/return_codes.h"

namespace platform {
namespace {

SharedTree emptyTree() { return std::make_shared<const RegistryTree>(); }

// A refused export is logged, and an empty registry.
SharedTree treeOf(const std::string& path, const ExportContent& content) {
  if (content.tree != nullptr) return content.tree;
  logRefusal(path, content);
  return emptyTree();
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
    if (path.empty()) return registryHostUnknown;
    const ExportContent content = loadRegistryExport(path);
    if (content.code == OSS_RC_FILE_NOT_FOUND) return registryHostUnknown;
    known = machine.others.emplace(host, treeOf(path, content)).first;
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
    const std::string& file = machine->exportPath;
    machine->local = file.empty() ? emptyTree() : treeOf(file, loadRegistryExport(file));
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
  if (index >= key->subkeyNames.size()) return registryNoMoreItems;
  const std::string& found = *key->subkeyNames[index];
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

// A sequence is cut before its first byte.
std::size_t wholeCharacters(const char* text, std::size_t room) noexcept {
  std::size_t length = ::strnlen(text, room + 1);
  if (length <= room) return length;
  for (length = room; length > 0 && isContinuation(text[length]);) --length;
  return length;
}

}  // namespace platform
