// The machine's registry is the system's own: the keys of an export are written into it, and
// services are made in the service control manager. A machine that has the product is left alone.
#include <windows.h>

#include "platform/posix/registry_export.h"
#include "platform/posix/unicode.h"
#include "support/machine_fixture.h"

namespace {

constexpr const char* maker = "SOFTWARE\\NUV";
constexpr const char* madeByTests = "made by the tests of zorgenreg64";

std::vector<std::string> services;

std::wstring wide(const std::string& utf8) {
  std::wstring text(utf8.size(), L'\0');
  text.resize(static_cast<std::size_t>(
      ::MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), text.data(),
                            static_cast<int>(text.size()))));
  return text;
}

HKEY createKey(HKEY parent, const std::string& name) {
  HKEY key = nullptr;
  EXPECT_EQ(::RegCreateKeyExW(parent, wide(name).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                              &key, nullptr),
            ERROR_SUCCESS)
      << name;
  return key;
}

void setValue(HKEY key, const platform::RegistryValue& value) {
  const bool isText = platform::isRegistryText(value.type);
  const std::wstring text = isText ? wide(value.data) : std::wstring();
  const std::string bytes =
      isText ? std::string(reinterpret_cast<const char*>(text.data()), text.size() * sizeof text[0])
             : value.data;
  EXPECT_EQ(::RegSetValueExW(key, wide(value.name).c_str(), 0, value.type,
                             reinterpret_cast<const BYTE*>(bytes.data()),
                             static_cast<DWORD>(bytes.size())),
            ERROR_SUCCESS);
}

void writeKey(HKEY parent, const platform::RegistryKeyObject& object) {
  const HKEY key = createKey(parent, object.name);
  for (const auto* value : object.values) setValue(key, *value);
  for (const auto* subkey : object.subkeys) writeKey(key, *subkey);
  ::RegCloseKey(key);
}

// A service of which only the start type counts; one that the manager would not have is not made.
void createService(const platform::RegistryKeyObject& object) {
  const platform::RegistryValue* const start = platform::findValue(&object, "Start");
  if (start == nullptr || start->type != platform::registryDword || start->data[1] != 0) return;
  const SC_HANDLE manager = ::OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE);
  const SC_HANDLE service =
      ::CreateServiceA(manager, object.name.c_str(), nullptr, DELETE, SERVICE_WIN32_OWN_PROCESS,
                       static_cast<DWORD>(start->data[0]), SERVICE_ERROR_IGNORE, "none.exe",
                       nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_NE(service, nullptr) << object.name << ": " << ::GetLastError();
  ::CloseServiceHandle(service);
  ::CloseServiceHandle(manager);
  services.push_back(object.name);
}

void deleteServices() {
  const SC_HANDLE manager = ::OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT);
  for (const std::string& name : services) {
    const SC_HANDLE service = ::OpenServiceA(manager, name.c_str(), DELETE);
    EXPECT_NE(::DeleteService(service), 0) << name << ": " << ::GetLastError();
    ::CloseServiceHandle(service);
  }
  ::CloseServiceHandle(manager);
  services.clear();
}

// Whether the maker's key is there, and was not made by a test.
bool belongsToSomebody() {
  HKEY key = nullptr;
  if (::RegOpenKeyExA(HKEY_LOCAL_MACHINE, maker, 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
  const bool ours = ::RegQueryValueExA(key, madeByTests, nullptr, nullptr, nullptr, nullptr) == 0;
  ::RegCloseKey(key);
  return !ours;
}

void clearMachine() {
  deleteServices();
  if (!belongsToSomebody()) (void)::RegDeleteTreeA(HKEY_LOCAL_MACHINE, maker);
}

void importExport(const std::string& bytes) {
  platform::RegistryTree tree;
  platform::ExportFault fault;
  ASSERT_TRUE(platform::readRegistryExport(bytes, tree, fault)) << fault.line << fault.reason;
  const HKEY key = createKey(HKEY_LOCAL_MACHINE, maker);
  ::RegSetValueExA(key, madeByTests, 0, REG_SZ, nullptr, 0);
  ::RegCloseKey(key);
  const platform::RegistryKey root = tree.localMachine();
  const platform::RegistryKey software = platform::findKey(root, "SOFTWARE");
  if (software != nullptr) writeKey(HKEY_LOCAL_MACHINE, *software);
  const platform::RegistryKey manager =
      platform::findKey(root, "SYSTEM\\CurrentControlSet\\Services");
  if (manager == nullptr) return;
  for (const auto* service : manager->subkeys) createService(*service);
}

}  // namespace

// What reading an export takes from the platform.
char32_t platform::capitalOf(char32_t letter) noexcept {
  if (letter > 0xFFFF) return letter;
  auto unit = static_cast<wchar_t>(letter);
  (void)::CharUpperBuffW(&unit, 1);
  return static_cast<char32_t>(unit);
}

std::string systemText(const std::string& utf8) {
  const std::wstring text = wide(utf8);
  std::string converted(4 * text.size(), '\0');
  converted.resize(static_cast<std::size_t>(
      ::WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), converted.data(),
                            static_cast<int>(converted.size()), nullptr, nullptr)));
  return converted;
}

void MachineTest::SetUp() {
  RegistryTest::SetUp();
  if (belongsToSomebody()) GTEST_SKIP() << "the tests would overwrite what this machine has";
}

void MachineTest::TearDown() {
  clearMachine();
  RegistryTest::TearDown();
}

void MachineTest::machine(const std::string& lines) {
  machineBytes("Windows Registry Editor Version 5.00\n" + lines);
}

void MachineTest::machineBytes(const std::string& bytes) {
  clearMachine();
  if (!belongsToSomebody()) importExport(bytes);
}

void MachineTest::machineOf(const std::string& path) { machineBytes(readFile(path)); }

void MachineTest::remoteMachine(const std::string&, const std::string&) {
  FAIL() << lacking(Need::OtherMachines);
}
