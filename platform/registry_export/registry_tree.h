// A registry in memory: keys below keys, values in them.
//
// Names are matched without regard to case and keep the spelling of their first appearance. A tree
// is filled, then finished, then only read.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/machine_registry.h"

namespace platform {

constexpr std::uint32_t registryBinary = 3;
constexpr std::uint32_t registryDword = 4;

// The registry's order of names: by their capitals.
struct NameOrder {
  using is_transparent = void;
  bool operator()(std::string_view left, std::string_view right) const noexcept;
};

struct RegistryValue {
  std::uint32_t type = 0;
  std::string data;  // text types in UTF-8
};

struct RegistryKeyObject {
  std::map<std::string, RegistryKeyObject*, NameOrder> subkeys;
  std::map<std::string, RegistryValue, NameOrder> values;
  std::vector<const std::string*> subkeyNames;  // by their numbers, in a finished tree
};

// The key at `path` (components separated by one or more backslashes; empty: `key` itself) or the
// value of a key; null when there is none.
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
  RegistryKeyObject* rootKey(std::string_view name) { return subkey(&root_, name); }

  // The root keys, as subkeys of a key without a name.
  RegistryKey roots() const { return &root_; }

  // A subkey of that name, made when it is missing, or null then.
  RegistryKeyObject* addKey(RegistryKeyObject* parent, std::string_view name);
  static RegistryKeyObject* subkey(RegistryKeyObject* parent, std::string_view name);

  // Numbers the subkeys of every key; the tree is read only from now on.
  void finish();

 private:
  std::deque<RegistryKeyObject> keys_;  // those that were taken out of the tree included
  RegistryKeyObject root_;
  RegistryKeyObject* localMachine_;
};

// A finished tree that several hold, in any threads.
using SharedTree = std::shared_ptr<const RegistryTree>;

}  // namespace platform
