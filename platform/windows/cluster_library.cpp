// The cluster library of the system, loaded when it is first needed and never unloaded. A machine
// that belongs to no cluster need not have it, so nothing here is linked to.
#include "platform/cluster_library.h"

#include <cwchar>
#include <string_view>

#include "platform/windows/machine.h"

namespace platform {
namespace {

using WideName = oss::Wide<514>;

// The library's functions, as its own interface declares them.
struct SystemEntryPoints {
  void*(WINAPI* openCluster)(const wchar_t* name);
  BOOL(WINAPI* closeCluster)(void* cluster);
  HKEY(WINAPI* getClusterKey)(void* cluster, REGSAM access);
  LONG(WINAPI* openKey)(HKEY parent, const wchar_t* path, REGSAM access, HKEY* key);
  LONG(WINAPI* closeKey)(HKEY key);
  LONG(WINAPI* queryValue)(HKEY key, const wchar_t* name, DWORD* type, BYTE* data, DWORD* size);
};
SystemEntryPoints library{};

// Fails a call as a test wants it: false with GetLastError.
bool passes(const char* operation) {
  const DWORD error = injectedError(operation, nullptr);
  if (error != 0) ::SetLastError(error);
  return error == 0;
}

Cluster openCluster(const Machine&) noexcept {
  return passes("OpenCluster") ? asOurs<Cluster>(library.openCluster(nullptr)) : nullptr;
}

bool closeCluster(Cluster cluster) noexcept {
  return library.closeCluster(asSystems<void*>(cluster)) != 0;
}

ClusterKey getClusterKey(Cluster cluster) noexcept {
  if (!passes("GetClusterKey")) return nullptr;
  return asOurs<ClusterKey>(library.getClusterKey(asSystems<void*>(cluster), KEY_READ));
}

unsigned int openKey(ClusterKey parent, const char* path, ClusterKey* key) noexcept {
  const WideName widePath(path, oss::Spelled::Text);
  if (!widePath) return ::GetLastError();
  HKEY opened = nullptr;
  const LONG status = library.openKey(asSystems<HKEY>(parent), widePath.get(), KEY_READ, &opened);
  if (status == ERROR_SUCCESS) *key = asOurs<ClusterKey>(opened);
  return static_cast<unsigned int>(status);
}

unsigned int closeKey(ClusterKey key) noexcept {
  return static_cast<unsigned int>(library.closeKey(asSystems<HKEY>(key)));
}

unsigned int queryValue(ClusterKey key, const char* name, char* text, std::size_t size) noexcept {
  const WideName wideName(name, oss::Spelled::Text);
  if (!wideName) return ::GetLastError();
  wchar_t value[longestClusterValue + 1] = {};  // the last unit stays 0: a text need not end in one
  DWORD type = REG_NONE;
  DWORD room = longestClusterValue * sizeof *value;
  const LONG status = library.queryValue(asSystems<HKEY>(key), wideName.get(), &type,
                                         reinterpret_cast<BYTE*>(value), &room);
  if (status != ERROR_SUCCESS) return static_cast<unsigned int>(status);
  const std::size_t length = oss::narrow(value, std::wcslen(value), oss::Spelled::Path, text, size);
  text[length < size ? length : 0] = '\0';
  return ERROR_SUCCESS;
}

// Null with GetLastError. By its name alone the system could find one beside the program, or in the
// current directory.
HMODULE loadFromSystem() {
  constexpr std::wstring_view file = L"\\CLUSAPI.DLL";
  wchar_t path[MAX_PATH + file.size() + 1];
  const UINT length = ::GetSystemDirectoryW(path, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) return nullptr;
  path[length + file.copy(path + length, file.size())] = L'\0';
  // What it needs itself is looked for where it is, too.
  return ::LoadLibraryExW(path, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
}

// Finds one function of the library and gives ours that calls it, or null.
template <typename Function, typename Ours>
void resolve(HMODULE module, const char* name, Function* function, Ours* ours, Ours wrapper) {
  const FARPROC found = ::GetProcAddress(module, name);
  *function = reinterpret_cast<Function>(reinterpret_cast<void*>(found));
  *ours = found == nullptr ? nullptr : wrapper;
}

}  // namespace

void loadClusterLibrary(const Machine&, ClusterEntryPoints* entryPoints) noexcept {
  constexpr const char* name = "CLUSAPI.DLL";
  if (const DWORD error = injectedError("LoadLibraryA", name); error != 0) {
    ::SetLastError(error);
    return;
  }
  const HMODULE module = loadFromSystem();
  if (module == nullptr) return;
  ClusterEntryPoints& ours = *entryPoints;
  resolve(module, "OpenCluster", &library.openCluster, &ours.OpenCluster, openCluster);
  resolve(module, "CloseCluster", &library.closeCluster, &ours.CloseCluster, closeCluster);
  resolve(module, "GetClusterKey", &library.getClusterKey, &ours.GetClusterKey, getClusterKey);
  resolve(module, "ClusterRegOpenKey", &library.openKey, &ours.ClusterRegOpenKey, openKey);
  resolve(module, "ClusterRegCloseKey", &library.closeKey, &ours.ClusterRegCloseKey, closeKey);
  resolve(module, "ClusterRegQueryValue", &library.queryValue, &ours.ClusterRegQueryValue,
          queryValue);
}

unsigned int GetLastError() noexcept { return ::GetLastError(); }

}  // namespace platform
