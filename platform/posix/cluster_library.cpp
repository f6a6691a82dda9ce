// The cluster's registry as it is mounted in the machine's: the key "Cluster". Without that key the
// machine belongs to no cluster and there is no cluster library.
#include "platform/cluster_library.h"

#include <cstring>
#include <string_view>

#include "platform/registry_export/registry_tree.h"
#include "platform/registry_export/unicode.h"
#include "sysservices/fault_hook.h"

namespace platform {
namespace {

constexpr unsigned int invalidParameter = 87;
constexpr unsigned int moduleMissing = 126;
constexpr std::size_t pathRoom = 1024;  // bytes of a key's path in the cluster's registry

thread_local unsigned int lastError = 0;

// Cluster and cluster key are keys of the machine's registry.
RegistryKey keyOf(Cluster cluster) { return reinterpret_cast<RegistryKey>(cluster); }
RegistryKey keyOf(ClusterKey key) { return reinterpret_cast<RegistryKey>(key); }

RegistryKey mountedCluster(const Machine& machine) {
  return findKey(localMachineKey(machine), "Cluster");
}

// Writes UTF-16 units as long as there is room, and counts them all.
class Utf16Writer {
 public:
  Utf16Writer(void* buffer, std::size_t room)
      : bytes_(static_cast<unsigned char*>(buffer)), room_(room) {}

  void add(char32_t codePoint) {
    if (utf16Units(codePoint) == 1) {
      addUnit(codePoint);
    } else {
      addUnit(0xD7C0 + (codePoint >> 10));
      addUnit(0xDC00 | (codePoint & 0x3FF));
    }
  }
  std::size_t count() const { return count_; }
  bool fits() const { return count_ <= room_; }

 private:
  void addUnit(char32_t value) {
    const auto unit = static_cast<char16_t>(value);
    if (count_ < room_) std::memcpy(bytes_ + count_ * sizeof unit, &unit, sizeof unit);
    ++count_;
  }

  unsigned char* bytes_;
  std::size_t room_;  // units
  std::size_t count_ = 0;
};

Cluster openCluster(const Machine& machine) noexcept {
  const RegistryKey root = mountedCluster(machine);
  lastError = ossFaultPoint("OpenCluster", nullptr) > 0 || root == nullptr ? registryKeyMissing : 0;
  return lastError == 0 ? reinterpret_cast<Cluster>(root) : nullptr;
}

bool closeCluster(Cluster) noexcept { return true; }

ClusterKey getClusterKey(Cluster cluster) noexcept {
  lastError = ossFaultPoint("GetClusterKey", nullptr) > 0 ? registryKeyMissing : 0;
  return lastError == 0 ? reinterpret_cast<ClusterKey>(keyOf(cluster)) : nullptr;
}

unsigned int openKey(ClusterKey parent, const char16_t* path, ClusterKey* key) noexcept {
  char converted[pathRoom];
  if (!WideCharToMultiByte(path, converted, sizeof converted)) return invalidParameter;
  const RegistryKey found = findKey(keyOf(parent), converted);
  if (found == nullptr) return registryKeyMissing;
  *key = reinterpret_cast<ClusterKey>(found);
  return 0;
}

unsigned int closeKey(ClusterKey) noexcept { return 0; }

unsigned int queryValue(ClusterKey key, const char16_t* name, void* data,
                        std::uint32_t* size) noexcept {
  char converted[pathRoom];
  if (!WideCharToMultiByte(name, converted, sizeof converted)) return invalidParameter;
  const RegistryValue* const value = findValue(keyOf(key), converted);
  if (value == nullptr) return registryKeyMissing;
  const std::size_t room = *size;
  if (isRegistryText(value->type)) {
    Utf16Writer writer(data, room / sizeof(char16_t));
    for (std::size_t i = 0; i < value->data.size();) writer.add(nextCodePoint(value->data, i));
    *size = static_cast<std::uint32_t>(writer.count() * sizeof(char16_t));
    return writer.fits() ? 0 : registryMoreData;
  }
  *size = static_cast<std::uint32_t>(value->data.size());
  if (value->data.size() > room) return registryMoreData;
  std::memcpy(data, value->data.data(), value->data.size());
  return 0;
}

}  // namespace

void loadClusterLibrary(const Machine& machine, ClusterEntryPoints* entryPoints) noexcept {
  // A test counts here how often the library is looked for.
  if (ossFaultPoint("LoadLibraryA", "CLUSAPI.DLL") > 0 || mountedCluster(machine) == nullptr) {
    lastError = moduleMissing;
    return;
  }
  *entryPoints = {openCluster, closeCluster, getClusterKey, openKey, closeKey, queryValue};
}

unsigned int GetLastError() noexcept { return lastError; }

bool MultiByteToWideChar(const char* text, char16_t* buffer, std::size_t size) noexcept {
  const std::string_view source(text, std::strlen(text) + 1);
  Utf16Writer writer(buffer, size);
  for (std::size_t i = 0; i < source.size();) {
    const char32_t codePoint = nextCodePoint(source, i);
    if (codePoint == invalidCodePoint) return false;
    writer.add(codePoint);
  }
  return writer.fits();
}

bool WideCharToMultiByte(const char16_t* text, char* buffer, std::size_t size) noexcept {
  std::size_t units = 0;
  while (text[units] != 0) ++units;
  // Units lie in memory as they do in a file: this platform is little-endian.
  const std::string_view source(reinterpret_cast<const char*>(text), units * sizeof *text);
  std::size_t length = 0;
  for (std::size_t i = 0; i < source.size();) {
    const char32_t codePoint = nextUtf16CodePoint(source, i);
    if (codePoint == invalidCodePoint) return false;
    char encoded[4];
    const std::size_t count = encodeUtf8(codePoint, encoded);
    if (size - length <= count) return false;
    std::memcpy(buffer + length, encoded, count);
    length += count;
  }
  if (size == 0) return false;
  buffer[length] = '\0';
  return true;
}

}  // namespace platform
