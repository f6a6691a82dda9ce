#include "support/surroundings.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "sysservices/environment.h"

namespace {

constexpr const char* childVariable = "ZORGENREG_TEST_CHILD";
constexpr const char* directoryVariable = "ZORGENREG_TEST_DIRECTORY";
constexpr int childDone = 100;  // added to the status of a child that did run its body

std::string currentDirectory;

// The tool stands beside the tests, wherever somebody has put them.
const bool findsTool = [] {
  char program[MAX_PATH];
  (void)::GetModuleFileNameA(nullptr, program, sizeof program);
  const char* const path = std::getenv("PATH");
  const std::string folder = std::filesystem::path(program).parent_path().string();
  return ossEnvironmentSet("PATH", (folder + ";" + (path == nullptr ? "" : path)).c_str()) == 0;
}();

const char* orEmpty(const char* text) { return text == nullptr ? "" : text; }

template <typename Visit>
void forEachFile(Visit visit) {
  for (std::uintptr_t value = 4; value < 0x2000; value += 4) {
    const auto handle = reinterpret_cast<HANDLE>(value);
    DWORD flags = 0;
    if (::GetHandleInformation(handle, &flags) != 0 && ::GetFileType(handle) == FILE_TYPE_DISK) {
      visit(handle, flags);
    }
  }
}

// The number, from 1, of this child among those of the running test.
unsigned int nextChild() {
  static const ::testing::TestInfo* test = nullptr;
  static unsigned int count = 0;
  const auto* const current = ::testing::UnitTest::GetInstance()->current_test_info();
  if (current != test) count = 0;
  test = current;
  return ++count;
}

// Runs this program again, for the running test alone, as child number `number`.
int runAgain(unsigned int number) {
  const auto* const test = ::testing::UnitTest::GetInstance()->current_test_info();
  char program[MAX_PATH];
  (void)::GetModuleFileNameA(nullptr, program, sizeof program);
  std::string command = std::string("\"") + program +
                        "\" --gtest_brief=1 --gtest_filter=" + test->test_suite_name() + "." +
                        test->name();
  (void)ossEnvironmentSet(childVariable, std::to_string(number).c_str());
  (void)ossEnvironmentSet(directoryVariable, currentDirectory.c_str());
  std::fflush(nullptr);
  STARTUPINFOA startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  const bool started = ::CreateProcessA(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr,
                                        nullptr, &startup, &process) != 0;
  (void)ossEnvironmentSet(childVariable, nullptr);
  (void)ossEnvironmentSet(directoryVariable, nullptr);
  if (!started) return -1;
  DWORD status = 0;
  (void)::WaitForSingleObject(process.hProcess, INFINITE);
  (void)::GetExitCodeProcess(process.hProcess, &status);
  ::CloseHandle(process.hThread);
  ::CloseHandle(process.hProcess);
  return static_cast<int>(status) - childDone;
}

}  // namespace

const char* lacking(Need need) {
  switch (need) {
    case Need::Links:
      return "symbolic links need a privilege here, and there are no pipes with names of files";
    case Need::PermissionBits:
      return "who may read a file is said by its access list, not by permission bits";
    case Need::Forks:
      return "no process starts with its parent's open files";
    case Need::RemovableLockFiles:
      return "a lock file that is open cannot be removed";
    case Need::StandingName:
      return "a file that a reader has open cannot be replaced, only renamed";
  }
  return nullptr;
}

std::string makeTestDirectory() {
  static unsigned int count = 0;
  currentDirectory = orEmpty(std::getenv(directoryVariable));
  if (!currentDirectory.empty()) return currentDirectory;
  char temporary[MAX_PATH];
  (void)::GetTempPathA(sizeof temporary, temporary);
  const std::string start =
      std::string(temporary) + "zorgenreg-test-" + std::to_string(::GetCurrentProcessId()) + "-";
  do {
    currentDirectory = start + std::to_string(++count);
  } while (::CreateDirectoryA(currentDirectory.c_str(), nullptr) == 0 &&
           ::GetLastError() == ERROR_ALREADY_EXISTS);
  return currentDirectory;
}

void setPermissions(const std::string& path, unsigned int permissions) {
  const bool writable = (permissions & 0200u) != 0;
  EXPECT_NE(::SetFileAttributesA(path.c_str(),
                                 writable ? FILE_ATTRIBUTE_NORMAL : FILE_ATTRIBUTE_READONLY),
            0);
}

unsigned int permissionsOf(const std::string& path) {
  const DWORD attributes = ::GetFileAttributesA(path.c_str());
  EXPECT_NE(attributes, INVALID_FILE_ATTRIBUTES) << path;
  return (attributes & FILE_ATTRIBUTE_READONLY) != 0 ? 0400 : 0600;
}

unsigned int keptPermissions(unsigned int permissions) { return 0400 | (permissions & 0200u); }

std::uint64_t inodeOf(const std::string& path) {
  const HANDLE file = ::CreateFileA(
      path.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  BY_HANDLE_FILE_INFORMATION status{};
  (void)::GetFileInformationByHandle(file, &status);
  ::CloseHandle(file);
  return std::uint64_t{status.nFileIndexHigh} << 32 | status.nFileIndexLow;
}

void plantLink(const std::string&, const std::string&) { FAIL() << lacking(Need::Links); }
void plantPipe(const std::string&) { FAIL() << lacking(Need::Links); }

std::FILE* scratchStream() {
  char directory[MAX_PATH];
  char name[MAX_PATH];
  (void)::GetTempPathA(sizeof directory, directory);
  (void)::GetTempFileNameA(directory, "zor", 0, name);
  return std::fopen(name, "w+bD");
}

std::size_t openDescriptors() {
  std::size_t count = 0;
  forEachFile([&](HANDLE, DWORD) { ++count; });
  return count;
}

void closeTwoStandardDescriptors() {
  ::_close(0);
  ::_close(2);
}

// A descriptor that is asked for gets the lowest number that is free.
bool standardDescriptorsAreFree() {
  const int first = ::_open("NUL", _O_RDONLY);
  const int second = ::_open("NUL", _O_RDONLY);
  ::_close(first);
  ::_close(second);
  return first == 0 && second == 2;
}

bool wouldInheritFilesOf(const std::string& directory) {
  const std::string name = std::filesystem::path(directory).filename().string();
  bool inherited = false;
  std::size_t ours = 0;
  forEachFile([&](HANDLE handle, DWORD flags) {
    char path[2 * MAX_PATH] = "";
    (void)::GetFinalPathNameByHandleA(handle, path, sizeof path, 0);
    if (std::strstr(path, name.c_str()) == nullptr) return;
    ++ours;
    inherited = inherited || (flags & HANDLE_FLAG_INHERIT) != 0;
  });
  EXPECT_GT(ours, 0u);
  return inherited;
}

// There is no fork: the child is this program once more, running the same test up to the same
// place.
int inChild(const std::function<int()>& body) {
  const unsigned int number = nextChild();
  const char* const child = std::getenv(childVariable);
  if (child == nullptr) return runAgain(number);
  if (std::to_string(number) != child) return 0;
  const int status = body();
  std::fflush(nullptr);
  ::_exit(childDone + status);
}

// Quotes within a word are escaped, and the shell takes the outermost pair away.
std::string shellCommand(const std::string& words) {
  std::string command = "\"";
  for (const char character : words) {
    if (character == '"') command += '\\';
    command += character == '\'' ? '"' : character;
  }
  return command + "\"";
}

int exitStatus(int status) { return status; }

void killThisProcess() { ::TerminateProcess(::GetCurrentProcess(), 9); }

ForkedChild::ForkedChild() = default;
ForkedChild::~ForkedChild() = default;
