// Any bytes as a registry export: they are an export or they are not, and a tree that was read can
// be walked, every key found by its path and every value by its name.
#include <string>

#include "platform/registry_export/registry_export.h"
#include "targets.h"

namespace {

void walk(platform::RegistryKey root) {
  std::vector<std::pair<platform::RegistryKey, std::string>> open{{root, ""}};
  while (!open.empty()) {
    const auto [key, path] = open.back();
    open.pop_back();
    require(platform::findKey(root, path) == key);
    for (const auto& [name, value] : key->values) {
      require(platform::findValue(key, name) == &value);
    }
    for (const auto& [name, subkey] : key->subkeys) {
      require(platform::findKey(key, name) == subkey);
      if (path.size() < 1024) open.emplace_back(subkey, path + "\\" + name);
    }
  }
}

}  // namespace

int fuzzRegistryExport(const std::uint8_t* data, std::size_t size) {
  platform::RegistryTree tree;
  platform::ExportFault fault;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  if (platform::readRegistryExport(bytes, tree, fault)) {
    walk(tree.localMachine());
  } else {
    require(fault.line > 0 && fault.reason != nullptr);
  }
  return 0;
}
