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

// So many names below a key are searched one by one; an index pays from there on.
constexpr std::size_t fewNames = 8;

// The object of that name below `parent`, or null.
template <typename Index, typename Object>
Object* findBelow(const Index& index, const std::vector<Object*>& siblings,
                  const RegistryKeyObject* parent, std::string_view name) {
  if (siblings.size() > fewNames) {
    const auto found = index.find({parent, name});
    return found == index.end() ? nullptr : found->second;
  }
  const auto found = std::find_if(siblings.begin(), siblings.end(), [&](const Object* object) {
    return !object->erased && compareNames(object->name, name) == 0;
  });
  return found == siblings.end() ? nullptr : *found;
}

// The same, made in `store` and added to the siblings when it is missing.
template <typename Index, typename Store, typename Object>
Object* findOrMake(Index& index, Store& store, std::vector<Object*>& siblings,
                   const RegistryKeyObject* parent, std::string_view name) {
  if (Object* const known = findBelow(index, siblings, parent, name)) return known;
  Object* const made = &store.emplace_back();
  made->name = name;
  siblings.push_back(made);
  if (siblings.size() <= fewNames) return made;
  auto from = siblings.size() == fewNames + 1 ? siblings.begin() : siblings.end() - 1;
  for (; from != siblings.end(); ++from) {
    if (!(*from)->erased) index.emplace(typename Index::key_type{parent, (*from)->name}, *from);
  }
  return made;
}

// What is taken out stays where it is until the tree is finished, and cannot be reached any more.
template <typename Index, typename Object>
void eraseBelow(Index& index, const std::vector<Object*>& siblings, const RegistryKeyObject* parent,
                std::string_view name) {
  Object* const object = findBelow(index, siblings, parent, name);
  if (object == nullptr) return;
  if (siblings.size() > fewNames) index.erase({parent, name});
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

RegistryTree::Entry::Entry(const RegistryKeyObject* key, std::string_view text) noexcept
    : parent(key), name(text), hash(std::hash<const void*>()(key)) {
  constexpr std::size_t prime = 0x100000001B3u;
  for (std::size_t i = 0; i < name.size();) hash = (hash ^ nextCapital(name, i)) * prime;
}

bool RegistryTree::EntryEqual::operator()(const Entry& left, const Entry& right) const noexcept {
  return left.hash == right.hash && left.parent == right.parent &&
         compareNames(left.name, right.name) == 0;
}

RegistryTree::RegistryTree() {
  for (const char* name : rootKeyNames) addKey(&root_, name);
  localMachine_ = rootKey(localMachineName);
}

RegistryKeyObject* RegistryTree::rootKey(std::string_view name) { return subkey(&root_, name); }

RegistryKeyObject* RegistryTree::addKey(RegistryKeyObject* parent, std::string_view name) {
  return findOrMake(keyIndex_, keys_, parent->subkeys, parent, name);
}

RegistryValue* RegistryTree::addValue(RegistryKeyObject* key, std::string_view name) {
  return findOrMake(valueIndex_, values_, key->values, key, name);
}

RegistryKeyObject* RegistryTree::subkey(RegistryKeyObject* parent, std::string_view name) {
  return findBelow(keyIndex_, parent->subkeys, parent, name);
}

void RegistryTree::eraseKey(RegistryKeyObject* parent, std::string_view name) {
  eraseBelow(keyIndex_, parent->subkeys, parent, name);
}

void RegistryTree::eraseValue(RegistryKeyObject* key, std::string_view name) {
  eraseBelow(valueIndex_, key->values, key, name);
}

void RegistryTree::finish() {
  keyIndex_ = {};
  valueIndex_ = {};
  putInOrder(root_.subkeys);
  for (RegistryKeyObject& key : keys_) {
    putInOrder(key.subkeys);
    putInOrder(key.values);
  }
}

}  // namespace platform
