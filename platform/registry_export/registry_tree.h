// A registry in memory: keys below keys, values in them.
//
// Names are matched without regard to case and keep the spelling of their first appearance. A tree
// is filled, then finished, then only read; filling takes time in proportion to what is filled in.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
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

  // The root keys of a finished tree, as subkeys of a key without a name.
  RegistryKey roots() const { return &root_; }

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
  // A name below a key, with its hash; the name lies in the key or value that it leads to.
  struct Entry {
    Entry(const RegistryKeyObject* parent, std::string_view name) noexcept;

    const RegistryKeyObject* parent;
    std::string_view name;
    std::size_t hash;
  };
  struct EntryHash {
    std::size_t operator()(const Entry& entry) const noexcept { return entry.hash; }
  };
  struct EntryEqual {
    bool operator()(const Entry& left, const Entry& right) const noexcept;
  };
  template <typename Object>
  using Index = std::unordered_map<Entry, Object*, EntryHash, EntryEqual>;

  std::deque<RegistryKeyObject> keys_;
  std::deque<RegistryValue> values_;
  Index<RegistryKeyObject> keyIndex_;  // of what has many siblings, while the tree is filled
  Index<RegistryValue> valueIndex_;
  RegistryKeyObject root_;
  RegistryKeyObject* localMachine_;

  friend class SharedTree;
  mutable std::atomic<std::uint32_t> holders_{0};
};

// A finished tree that several hold, in any threads; the last to let go of it destroys it. (The
// library's own counted pointers would be exported with it.)
class SharedTree {
 public:
  SharedTree() = default;
  explicit SharedTree(std::unique_ptr<const RegistryTree> tree) noexcept : tree_(tree.release()) {
    hold();
  }
  SharedTree(const SharedTree& other) noexcept : tree_(other.tree_) { hold(); }
  SharedTree& operator=(const SharedTree& other) noexcept {
    SharedTree copy(other);
    std::swap(tree_, copy.tree_);
    return *this;
  }
  ~SharedTree() {
    if (tree_ != nullptr && tree_->holders_.fetch_sub(1) == 1) delete tree_;
  }

  const RegistryTree* get() const { return tree_; }

 private:
  void hold() const noexcept {
    if (tree_ != nullptr) tree_->holders_.fetch_add(1);
  }

  const RegistryTree* tree_ = nullptr;
};

}  // namespace platform
