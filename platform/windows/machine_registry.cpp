// The machine registry: the system's own, and those of other machines through it.
#include "platform/machine_registry.h"

#include <cstring>
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

// Paths of keys, names of keys and values. None is longer than the system's 255 characters a
// component; the library composes none of more than a few.
constexpr std::size_t longestName = 2048;  // UTF-16 units, terminator included
using WideName = oss::Wide<longestName>;
constexpr std::size_t longestText = 4096;  // bytes of a value; what is longer fits no record

// Spells `units` of a text in `text` of *size bytes, and stores how many it takes.
unsigned int give(const wchar_t* wide, std::size_t units, oss::Spelled spelled, char* text,
                  std::uint32_t* size) {
  const std::size_t length = oss::narrow(wide, units, spelled, text, *size);
  if (length == oss::noText || length > UINT32_MAX) return ERROR_NO_UNICODE_TRANSLATION;
  const bool fits = length <= *size;
  *size = static_cast<std::uint32_t>(length);
  return fits ? ERROR_SUCCESS : registryMoreData;
}

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
  const WideName wide(path, oss::Spelled::Text);
  if (!wide) return registryKeyMissing;
  HKEY opened = nullptr;
  const LSTATUS status =
      ::RegOpenKeyExW(asSystems<HKEY>(parent), wide.get(), 0, readAccess, &opened);
  if (status == ERROR_SUCCESS) *key = asOurs<RegistryKey>(opened);
  return result(status);
}

unsigned int RegEnumKeyExA(RegistryKey key, std::uint32_t index, char* name,
                           std::uint32_t* size) noexcept {
  if (const DWORD error = injectedError("RegEnumKeyExA", nullptr); error != 0) return error;
  if (*size == 0) return registryMoreData;
  wchar_t wide[256];
  DWORD units = 256;
  FILETIME lastWrite;
  const LSTATUS status = ::RegEnumKeyExW(asSystems<HKEY>(key), index, wide, &units, nullptr,
                                         nullptr, nullptr, &lastWrite);
  if (status != ERROR_SUCCESS) return result(status);
  std::uint32_t room = *size - 1;
  const unsigned int error = give(wide, units, oss::Spelled::Text, name, &room);
  if (error == 0) name[room] = '\0';
  *size = room;
  return error;
}

// A text is read as the system has it and spelled, as a path, which most are; anything else is
// bytes.
unsigned int RegQueryValueExA(RegistryKey key, const char* name, std::uint32_t* type, void* data,
                              std::uint32_t* size) noexcept {
  if (const DWORD error = injectedError("RegQueryValueExA", name); error != 0) return error;
  const WideName wide(name, oss::Spelled::Text);
  if (!wide) return registryKeyMissing;
  alignas(wchar_t) BYTE bytes[longestText];
  DWORD room = sizeof bytes;
  DWORD stored = REG_NONE;
  const LSTATUS status =
      ::RegQueryValueExW(asSystems<HKEY>(key), wide.get(), nullptr, &stored, bytes, &room);
  *type = stored;
  if (status != ERROR_SUCCESS) {
    *size = room;
    return result(status);
  }
  if (isRegistryText(stored)) {
    return give(reinterpret_cast<const wchar_t*>(bytes), room / sizeof(wchar_t), oss::Spelled::Path,
                static_cast<char*>(data), size);
  }
  const bool fits = room <= *size;
  if (fits) std::memcpy(data, bytes, room);
  *size = room;
  return fits ? ERROR_SUCCESS : registryMoreData;
}

unsigned int RegQueryInfoKeyA(RegistryKey key, std::uint32_t* subkeys) noexcept {
  if (const DWORD error = injectedError("RegQueryInfoKeyA", nullptr); error != 0) return error;
  DWORD count = 0;
  const LSTATUS status =
      ::RegQueryInfoKeyW(asSystems<HKEY>(key), nullptr, nullptr, nullptr, &count, nullptr, nullptr,
                         nullptr, nullptr, nullptr, nullptr, nullptr);
  *subkeys = count;
  return result(status);
}

void RegCloseKey(RegistryKey key) noexcept { (void)::RegCloseKey(asSystems<HKEY>(key)); }

unsigned int RegConnectRegistryA(Machine&, const char* host, RegistryKey* key) noexcept {
  if (const DWORD error = injectedError("RegConnectRegistryA", host); error != 0) return error;
  const WideName wide(host, oss::Spelled::Path);  // as the value that named it was spelled
  if (!wide) return registryHostUnknown;
  HKEY opened = nullptr;
  const LSTATUS status = ::RegConnectRegistryW(wide.get(), HKEY_LOCAL_MACHINE, &opened);
  if (status == ERROR_SUCCESS) *key = asOurs<RegistryKey>(opened);
  return result(status);
}

std::size_t wholeCharacters(const char* text, std::size_t room) noexcept {
  return oss::wholeCharacters(text, room);
}

}  // namespace platform
