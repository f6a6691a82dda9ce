#include "platform/registry_export/registry_tree.h"

#include <algorithm>

#include "platform/registry_export/unicode.h"

namespace platform {
namespace {

const char* const localMachineName = "HKEY_LOCAL_MACHINE";
const char* const rootKeyNames[] = {localMachineName, "HKEY_CLASSES_ROOT", "HKEY_CURRENT_USER",
                                    "HKEY_USERS", "HKEY_CURRENT_CONFIG"};

// Nearly every character of a registry is an ASCII one.
char32_t nextCapital(std::string_view name, std::size_t& position) noexcept {
  const auto byte = static_cast<unsigned char>(name[position]);
  if (byte < 0x80) {
    ++position;
    return byte >= 'a' && byte <= 'z' ? byte - ('a' - 'A') : byte;
  }
  return capitalOf(nextCodePoint(name, position));
}

}  // namespace

bool NameOrder::operator()(std::string_view left, std::string_view right) const noexcept {
  std::size_t l = 0;
  std::size_t r = 0;
  while (l < left.size() && r < right.size()) {
    const char32_t leftCapital = nextCapital(left, l);
    const char32_t rightCapital = nextCapital(right, r);
    if (leftCapital != rightCapital) return leftCapital < rightCapital;
  }
  return l == left.size() && r < right.size();
}

RegistryKey findKey(RegistryKey key, std::string_view path) noexcept {
  for (std::size_t start = 0; key != nullptr && start < path.size();) {
    const std::size_t end = std::min(path.find('\\', start), path.size());
    if (end > start) {
      const auto found = key->subkeys.find(path.substr(start, end - start));
      key = found == key->subkeys.end() ? nullptr : found->second;
    }
    start = end + 1;
  }
  return key;
}

const RegistryValue* findValue(RegistryKey key, std::string_view name) noexcept {
  const auto found = key->values.find(name);
  return found == key->values.end() ? nullptr : &found->second;
}

RegistryTree::RegistryTree() {
  for (const char* name : rootKeyNames) addKey(&root_, name);
  localMachine_ = rootKey(localMachineName);
}

RegistryKeyObject* RegistryTree::addKey(RegistryKeyObject* parent, std::string_view name) {
  if (RegistryKeyObject* const known = subkey(parent, name)) return known;
  RegistryKeyObject* const made = &keys_.emplace_back();
  parent->subkeys.emplace(name, made);
  return made;
}

RegistryKeyObject* RegistryTree::subkey(RegistryKeyObject* parent, std::string_view name) {
  const auto found = parent->subkeys.find(name);
  return found == parent->subkeys.end() ? nullptr : found->second;
}

void RegistryTree::finish() {
  for (RegistryKeyObject& key : keys_) {
    for (const auto& subkey : key.subkeys) key.subkeyNames.push_back(&subkey.first);
  }
}

}  // namespace platform
