// The machine's registry is the system's own: exports are imported into it, and services are made
// in the service control manager. A machine that has the product is left alone.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

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

// Makes a service that has nothing but its start type; one that the manager would not have is not
// made. `lines` are its name, which a bracket ends, and the values of its key.
void createService(const std::string& lines) {
  const std::size_t end = lines.find(']');
  const std::string name = lines.substr(0, end);
  unsigned int start = 0;
  const char* const values = lines.c_str() + end;
  if (std::sscanf(values, "] \"Start\"=dword:%x", &start) != 1 || start > 0xFF) return;
  const SC_HANDLE manager = ::OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE);
  const SC_HANDLE service = ::CreateServiceA(
      manager, name.c_str(), nullptr, DELETE, SERVICE_WIN32_OWN_PROCESS, start,
      SERVICE_ERROR_IGNORE, "none.exe", nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_NE(service, nullptr) << name << ": " << ::GetLastError();
  ::CloseServiceHandle(service);
  ::CloseServiceHandle(manager);
  services.push_back(name);
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

// Makes the services of an export, and gives its keys of software alone.
std::string takeServices(const std::string& bytes) {
  const std::string software = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\";
  const std::string service = "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\";
  std::string kept = "Windows Registry Editor Version 5.00\n";
  std::size_t end = 0;
  for (std::size_t at = bytes.find("\n["); at != std::string::npos; at = end) {
    end = bytes.find("\n[", ++at);
    const std::string key = bytes.substr(at, end - at) + "\n";
    if (key.compare(0, software.size(), software) == 0) kept += key;
    if (key.compare(0, service.size(), service) == 0) createService(key.substr(service.size()));
  }
  return kept;
}

// The system's own importer wants its file in UTF-16.
void importExport(const std::string& bytes) {
  HKEY key = nullptr;
  ASSERT_EQ(::RegCreateKeyA(HKEY_LOCAL_MACHINE, maker, &key), ERROR_SUCCESS);
  ::RegSetValueExA(key, madeByTests, 0, REG_SZ, nullptr, 0);
  ::RegCloseKey(key);
  const std::wstring text = L'\xFEFF' + wide(takeServices(bytes));
  const std::string file = (std::filesystem::temp_directory_path() / "zorgenreg-test.reg").string();
  writeFile(file, {reinterpret_cast<const char*>(text.data()), text.size() * sizeof text[0]});
  EXPECT_EQ(std::system(("reg.exe import \"" + file + "\" >NUL 2>&1").c_str()), 0);
  std::filesystem::remove(file);
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
