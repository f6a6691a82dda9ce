// A registry in memory: keys below keys, values in them.
//
// Names are matched without regard to case and keep the spelling of their first appearance. A tree
// is filled, then finished, then only read; filling takes time in proportion to what is filled in.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/machine_registry.h"

namespace platform {

constexpr std::uint32_t registryBinary = 3;
constexpr std::uint32_t registryDword = 4;

struct RegistryValue {
  std::string name;
  std::uint32_t type = 0;
  std::string data;  // text types in UTF-8
  bool erased = false;
};

// A key; after the tree is finished, subkeys and values stand in the order of their names.
struct RegistryKeyObject {
  std::string name;
  std::vector<RegistryKeyObject*> subkeys;
  std::vector<RegistryValue*> values;
  bool erased = false;
};

// The key at `path` (components separated by one or more backslashes; empty: `key` itself) or the
// value of a key in a finished tree; null when there is none.
RegistryKey findKey(RegistryKey key, std::string_view path) noexcept;
const RegistryValue* findValue(RegistryKey key, std::string_view name) noexcept;

class RegistryTree {
 public:
  // Has the root keys, empty.
  RegistryTree();
  RegistryTree(const RegistryTree&) = delete;
  RegistryTree& operator=(const RegistryTree&) = delete;

  // The root key HKEY_LOCAL_MACHINE, and any root key by name (null when there is none).
  RegistryKey localMachine() const { return localMachine_; }
  RegistryKeyObject* rootKey(std::string_view name);

  // A subkey or value of that name, made when it is missing.
  RegistryKeyObject* addKey(RegistryKeyObject* parent, std::string_view name);
  RegistryValue* addValue(RegistryKeyObject* key, std::string_view name);

  // The same without making one; null when it is missing.
  RegistryKeyObject* subkey(RegistryKeyObject* parent, std::string_view name);

  // Takes a key with all below it, or a value, out of the tree; a missing one is nothing to do.
  void eraseKey(RegistryKeyObject* parent, std::string_view name);
  void eraseValue(RegistryKeyObject* key, std::string_view name);

  // Puts everything in order; the tree is read only from now on.
  void finish();

 private:
  // A name below a key; the name lies in the key or value that it leads to.
  struct Entry {
    const RegistryKeyObject* parent;
    std::string_view name;
  };
  struct EntryHash {
    std::size_t operator()(const Entry& entry) const noexcept;
  };
  struct EntryEqual {
    bool operator()(const Entry& left, const Entry& right) const noexcept;
  };
  template <typename Object>
  using Index = std::unordered_map<Entry, Object*, EntryHash, EntryEqual>;

  std::deque<RegistryKeyObject> keys_;
  std::deque<RegistryValue> values_;
  Index<RegistryKeyObject> keyIndex_;  // while the tree is filled
  Index<RegistryValue> valueIndex_;
  RegistryKeyObject root_;
  RegistryKeyObject* localMachine_;
};

// A finished tree that several hold, in any threads.
using SharedTree = std::shared_ptr<const RegistryTree>;

}  // namespace platform
