// The registry of this machine and of those it refers to, read only.
//
// Every function gives 0 or an error number of the registry (below), and never throws. The names
// are those of the operations that they stand for; arguments that never vary are left out.
#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

// Error numbers on which the callers rely; any other number is a failure of its own kind.
constexpr unsigned int registryKeyMissing = 2;     // the key or value does not exist
constexpr unsigned int registryNoMemory = 8;       // memory cannot be allocated
constexpr unsigned int registryHostUnknown = 53;   // another machine cannot be reached
constexpr unsigned int registryMoreData = 234;     // the buffer is too small
constexpr unsigned int registryNoMoreItems = 259;  // the enumeration has ended
constexpr unsigned int registryNotText = 1629;     // the value is of another type than text

// Whether a value of this type holds text: one, one with variables to expand, or a list of them.
constexpr std::uint32_t registryText = 1;
constexpr bool isRegistryText(std::uint32_t type) {
  return type == registryText || type == 2 || type == 7;
}

// The registries as one list sees them: this machine's and, once asked for, those of others. What
// had to be loaded stays as it was until closeMachine.
struct Machine;

// Null when there is no memory. A registry that cannot be read as a whole is logged with the
// reason, and empty.
Machine* openMachine() noexcept;
// All keys, service handles and clusters opened through it must be closed before. Null is allowed.
void closeMachine(Machine* machine) noexcept;

// An open key; null stands for none. It lives no longer than its machine.
struct RegistryKeyObject;
using RegistryKey = const RegistryKeyObject*;

// The key below which everything is found. It need not be closed.
RegistryKey localMachineKey(const Machine& machine) noexcept;

// Opens `path`, components separated by backslashes, below `parent`.
unsigned int RegOpenKeyExA(RegistryKey parent, const char* path, RegistryKey* key) noexcept;

// Name of the subkey number `index` in the registry's order. *size is the buffer's bytes, and the
// name's without terminator after success. registryMoreData when name and terminator do not fit;
// the buffer's content is then undefined.
unsigned int RegEnumKeyExA(RegistryKey key, std::uint32_t index, char* name,
                           std::uint32_t* size) noexcept;

// The bytes of a value as they are stored, in the services' spelling for the text types, not
// necessarily terminated. *size is the buffer's bytes, then the value's. registryMoreData when they
// do not fit.
unsigned int RegQueryValueExA(RegistryKey key, const char* name, std::uint32_t* type, void* data,
                              std::uint32_t* size) noexcept;

// Number of subkeys.
unsigned int RegQueryInfoKeyA(RegistryKey key, std::uint32_t* subkeys) noexcept;

void RegCloseKey(RegistryKey key) noexcept;

// The root key of another machine's registry, to be closed; registryHostUnknown when it cannot be
// reached. `host` may begin with two backslashes.
unsigned int RegConnectRegistryA(Machine& machine, const char* host, RegistryKey* key) noexcept;

// How many bytes of `text`, at most `room`, are whole characters.
std::size_t wholeCharacters(const char* text, std::size_t room) noexcept;

}  // namespace platform
