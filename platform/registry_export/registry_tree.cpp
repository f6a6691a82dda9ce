#include "platform/registry_export/registry_tree.h"

#include <algorithm>
#include <functional>

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

// The registry's order of names: by their capitals; negative, 0 or positive.
int compareNames(std::string_view left, std::string_view right) noexcept {
  std::size_t l = 0;
  std::size_t r = 0;
  while (l < left.size() && r < right.size()) {
    const char32_t leftCapital = nextCapital(left, l);
    const char32_t rightCapital = nextCapital(right, r);
    if (leftCapital != rightCapital) return leftCapital < rightCapital ? -1 : 1;
  }
  if (l < left.size()) return 1;
  return r < right.size() ? -1 : 0;
}

template <typename Object>
bool precedes(const Object* left, const Object* right) noexcept {
  return compareNames(left->name, right->name) < 0;
}

// The object of that name among ordered ones, or null.
template <typename Object>
const Object* findOrdered(const std::vector<Object*>& ordered, std::string_view name) noexcept {
  const auto found = std::lower_bound(
      ordered.begin(), ordered.end(), name,
      [](const Object* object, std::string_view n) { return compareNames(object->name, n) < 0; });
  return found != ordered.end() && compareNames((*found)->name, name) == 0 ? *found : nullptr;
}

// Exports are in order already, as a rule.
template <typename Object>
void putInOrder(std::vector<Object*>& objects) {
  objects.erase(std::remove_if(objects.begin(), objects.end(),
                               [](const Object* object) { return object->erased; }),
                objects.end());
  if (!std::is_sorted(objects.begin(), objects.end(), precedes<Object>)) {
    std::sort(objects.begin(), objects.end(), precedes<Object>);
  }
}

template <typename Index, typename Entry>
auto findEntry(const Index& index, const Entry& entry) -> typename Index::mapped_type {
  const auto found = index.find(entry);
  return found == index.end() ? nullptr : found->second;
}

// The entry's object, made in `store` and added to `siblings` when it is missing.
template <typename Index, typename Entry, typename Store, typename Siblings>
auto findOrMake(Index& index, const Entry& entry, Store& store, Siblings& siblings) ->
    typename Index::mapped_type {
  if (const auto known = findEntry(index, entry)) return known;
  auto* made = &store.emplace_back();
  made->name = entry.name;
  index.emplace(Entry{entry.parent, made->name}, made);
  siblings.push_back(made);
  return made;
}

// What is taken out stays where it is until the tree is finished, and cannot be reached any more.
template <typename Index, typename Entry>
void eraseEntry(Index& index, const Entry& entry) {
  const auto found = index.find(entry);
  if (found == index.end()) return;
  auto* const object = found->second;
  index.erase(found);
  object->erased = true;
}

}  // namespace

RegistryKey findKey(RegistryKey key, std::string_view path) noexcept {
  for (std::size_t start = 0; key != nullptr && start < path.size();) {
    const std::size_t end = std::min(path.find('\\', start), path.size());
    if (end > start) key = findOrdered(key->subkeys, path.substr(start, end - start));
    start = end + 1;
  }
  return key;
}

const RegistryValue* findValue(RegistryKey key, std::string_view name) noexcept {
  return findOrdered(key->values, name);
}

std::size_t RegistryTree::EntryHash::operator()(const Entry& entry) const noexcept {
  constexpr std::size_t prime = 0x100000001B3u;
  std::size_t hash = std::hash<const void*>()(entry.parent);
  for (std::size_t i = 0; i < entry.name.size();) {
    hash = (hash ^ nextCapital(entry.name, i)) * prime;
  }
  return hash;
}

bool RegistryTree::EntryEqual::operator()(const Entry& left, const Entry& right) const noexcept {
  return left.parent == right.parent && compareNames(left.name, right.name) == 0;
}

RegistryTree::RegistryTree() {
  for (const char* name : rootKeyNames) addKey(&root_, name);
  localMachine_ = rootKey(localMachineName);
}

RegistryKeyObject* RegistryTree::rootKey(std::string_view name) { return subkey(&root_, name); }

RegistryKeyObject* RegistryTree::addKey(RegistryKeyObject* parent, std::string_view name) {
  return findOrMake(keyIndex_, Entry{parent, name}, keys_, parent->subkeys);
}

RegistryValue* RegistryTree::addValue(RegistryKeyObject* key, std::string_view name) {
  return findOrMake(valueIndex_, Entry{key, name}, values_, key->values);
}

RegistryKeyObject* RegistryTree::subkey(RegistryKeyObject* parent, std::string_view name) {
  return findEntry(keyIndex_, Entry{parent, name});
}

void RegistryTree::eraseKey(RegistryKeyObject* parent, std::string_view name) {
  eraseEntry(keyIndex_, Entry{parent, name});
}

void RegistryTree::eraseValue(RegistryKeyObject* key, std::string_view name) {
  eraseEntry(valueIndex_, Entry{key, name});
}

void RegistryTree::finish() {
  keyIndex_ = {};
  valueIndex_ = {};
  for (RegistryKeyObject& key : keys_) {
    putInOrder(key.subkeys);
    putInOrder(key.values);
  }
}

}  // namespace platform
