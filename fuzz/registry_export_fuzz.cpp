// Any bytes as a registry export: they are an export or they are not, and a tree that was read can
// be walked, every key found by its path and every value by its name. What they say of copies and
// instances is listed, or refused.
#include <cstring>

#include "ossinstall.h"
#include "platform/registry_export/registry_export.h"
#include "scratch_directory.h"
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

// A failure may be met again and again.
template <typename Record>
void list(void* entries, unsigned int (*next)(void*, Record*), unsigned int (*close)(void*)) {
  Record record;
  for (int i = 0; i < 64 && next(entries, &record) != GENREG_RC_END; ++i) {
    require(::strnlen(record.copyName, sizeof record.copyName) < sizeof record.copyName);
  }
  require(close(entries) == 0);
}

}  // namespace

int fuzzRegistryExport(const std::uint8_t* data, std::size_t size) {
  platform::RegistryTree tree;
  platform::ExportFault fault;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  if (platform::readRegistryExport(bytes, tree, fault)) {
    static const ScratchDirectory directory;
    walk(tree.localMachine());
    writeContent(directory.registry, std::string(bytes));
    void* entries = nullptr;
    ::setenv("ZOROSSE_REGISTRY_FILE", directory.registry.c_str(), 1);
    if (ossOpenServiceList(&entries) == 0) list(entries, ossGetNextService, ossCloseServiceList);
    for (const char* kind : {"ZOR", "ZEM"}) {
      if (ossOpenInstanceList(kind, &entries) != 0) continue;
      list(entries, ossGetNextInstance, ossCloseInstanceList);
    }
    ::unsetenv("ZOROSSE_REGISTRY_FILE");
  } else {
    require(fault.line > 0 && fault.reason != nullptr);
  }
  return 0;
}
