// The machine registry: the system's own, and those of other machines through it.
#include "platform/machine_registry.h"

#include <new>

#include "platform/windows/machine.h"

namespace platform {
namespace {

static_assert(registryKeyMissing == ERROR_FILE_NOT_FOUND);
static_assert(registryNoMemory == ERROR_NOT_ENOUGH_MEMORY);
static_assert(registryHostUnknown == ERROR_BAD_NETPATH);
static_assert(registryMoreData == ERROR_MORE_DATA);
static_assert(registryNoMoreItems == ERROR_NO_MORE_ITEMS);
static_assert(registryNotText == ERROR_DATATYPE_MISMATCH);

constexpr REGSAM readAccess = KEY_READ;
static_assert(readAccess == 0x20019);

unsigned int result(LSTATUS status) { return static_cast<unsigned int>(status); }

}  // namespace

Machine* openMachine() noexcept {
  if (ossFaultPoint("malloc", nullptr) > 0) return nullptr;
  return new (std::nothrow) Machine;
}

void closeMachine(Machine* machine) noexcept { delete machine; }

RegistryKey localMachineKey(const Machine&) noexcept {
  return asOurs<RegistryKey>(HKEY_LOCAL_MACHINE);
}

unsigned int RegOpenKeyExA(RegistryKey parent, const char* path, RegistryKey* key) noexcept {
  if (const DWORD error = injectedError("RegOpenKeyExA", path); error != 0) return error;
  HKEY opened = nullptr;
  const LSTATUS status = ::RegOpenKeyExA(asSystems<HKEY>(parent), path, 0, readAccess, &opened);
  if (status == ERROR_SUCCESS) *key = asOurs<RegistryKey>(opened);
  return result(status);
}

unsigned int RegEnumKeyExA(RegistryKey key, std::uint32_t index, char* name,
                           std::uint32_t* size) noexcept {
  if (const DWORD error = injectedError("RegEnumKeyExA", nullptr); error != 0) return error;
  DWORD room = *size;
  FILETIME lastWrite;
  const LSTATUS status = ::RegEnumKeyExA(asSystems<HKEY>(key), index, name, &room, nullptr, nullptr,
                                         nullptr, &lastWrite);
  *size = room;
  return result(status);
}

unsigned int RegQueryValueExA(RegistryKey key, const char* name, std::uint32_t* type, void* data,
                              std::uint32_t* size) noexcept {
  if (const DWORD error = injectedError("RegQueryValueExA", name); error != 0) return error;
  DWORD room = *size;
  DWORD stored = REG_NONE;
  const LSTATUS status = ::RegQueryValueExA(asSystems<HKEY>(key), name, nullptr, &stored,
                                            static_cast<BYTE*>(data), &room);
  *type = stored;
  *size = room;
  return result(status);
}

unsigned int RegQueryInfoKeyA(RegistryKey key, std::uint32_t* subkeys) noexcept {
  if (const DWORD error = injectedError("RegQueryInfoKeyA", nullptr); error != 0) return error;
  DWORD count = 0;
  const LSTATUS status =
      ::RegQueryInfoKeyA(asSystems<HKEY>(key), nullptr, nullptr, nullptr, &count, nullptr, nullptr,
                         nullptr, nullptr, nullptr, nullptr, nullptr);
  *subkeys = count;
  return result(status);
}

void RegCloseKey(RegistryKey key) noexcept { (void)::RegCloseKey(asSystems<HKEY>(key)); }

unsigned int RegConnectRegistryA(Machine&, const char* host, RegistryKey* key) noexcept {
  if (const DWORD error = injectedError("RegConnectRegistryA", host); error != 0) return error;
  HKEY opened = nullptr;
  const LSTATUS status = ::RegConnectRegistryA(host, HKEY_LOCAL_MACHINE, &opened);
  if (status == ERROR_SUCCESS) *key = asOurs<RegistryKey>(opened);
  return result(status);
}

// Where the encoding is UTF-8, no byte counts as the first of two.
std::size_t wholeCharacters(const char* text, std::size_t room) noexcept {
  const bool utf8 = ::GetACP() == CP_UTF8;
  std::size_t length = 0;
  while (text[length] != '\0') {
    const auto first = static_cast<BYTE>(text[length]);
    std::size_t end = length + 1;
    if (::IsDBCSLeadByte(first) != 0 && text[end] != '\0') ++end;
    while (utf8 && (text[end] & 0xC0) == 0x80) ++end;
    if (end > room) break;
    length = end;
  }
  return length;
}

}  // namespace platform
