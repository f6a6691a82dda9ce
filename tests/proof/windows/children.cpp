#include "proof/children.h"

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "sysservices/environment.h"

namespace proof {
namespace {

// What a child finds in its environment; its parent's directory names the shared memory, too.
constexpr const char* directoryVariable = "ZORGENREG_PROOF_DIRECTORY";
constexpr const char* jobVariable = "ZORGENREG_PROOF_JOB";
constexpr UINT killed = 9;  // as killThisProcess ends a process
constexpr UINT tooLong = 8;

// The processes in it end with the last handle of it, which is this process's.
HANDLE endingWithUs() {
  static const HANDLE group = ::CreateJobObjectA(nullptr, nullptr);
  static const bool isSet = [] {
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    return ::SetInformationJobObject(group, JobObjectExtendedLimitInformation, &limits,
                                     sizeof limits) != 0;
  }();
  return isSet ? group : nullptr;
}

}  // namespace

std::string makeDirectory() {
  const char* const given = std::getenv(directoryVariable);
  if (given != nullptr) return given;
  const std::string name = "zorgenreg-proof-" + std::to_string(::GetCurrentProcessId());
  const std::filesystem::path memory = "Z:/dev/shm";  // where Wine shows that of its machine
  const auto place =
      std::filesystem::exists(memory) ? memory : std::filesystem::temp_directory_path();
  const auto path = place / name;
  std::filesystem::remove_all(path);
  if (!std::filesystem::create_directory(path)) std::abort();
  (void)ossEnvironmentSet(directoryVariable, path.generic_string().c_str());
  return path.generic_string();
}

void* sharedMemory(std::size_t size) {
  static void* const memory = [&] {
    const std::string name = std::filesystem::path(makeDirectory()).filename().string();
    const HANDLE mapping = ::CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                                static_cast<DWORD>(size), name.c_str());
    return mapping == nullptr ? nullptr : ::MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, size);
  }();
  if (memory == nullptr) std::abort();
  return memory;
}

void takeJobs(int (*work)(int job)) {
  const char* const job = std::getenv(jobVariable);
  if (job != nullptr) ::ExitProcess(static_cast<UINT>(work(std::atoi(job))));
}

struct Child::Process {
  PROCESS_INFORMATION information{};
  bool ended = false;
};

// It is this program once more, which finds in takeJobs that it has a job.
Child::Child(int job) : process_(new Process) {
  char program[MAX_PATH];
  (void)::GetModuleFileNameA(nullptr, program, sizeof program);
  STARTUPINFOA startup{};
  startup.cb = sizeof startup;
  (void)ossEnvironmentSet(jobVariable, std::to_string(job).c_str());
  const auto start = [&] {
    return ::CreateProcessA(program, nullptr, nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr,
                            nullptr, &startup, &process_->information) != 0;
  };
  bool started = start();
  // A busy machine may have no room for a process right now.
  for (int tries = 0; !started && tries < 20; ++tries, started = start()) {
    std::fprintf(stderr, "no process: error %lu\n", ::GetLastError());
    ::Sleep(250);
  }
  (void)ossEnvironmentSet(jobVariable, nullptr);
  if (!started) std::abort();
  (void)::AssignProcessToJobObject(endingWithUs(), process_->information.hProcess);
  (void)::ResumeThread(process_->information.hThread);
}

Child::~Child() {
  if (!process_->ended) kill();
  ::CloseHandle(process_->information.hThread);
  ::CloseHandle(process_->information.hProcess);
}

int Child::wait() {
  constexpr DWORD tenMinutes = 600 * 1000;
  const HANDLE process = process_->information.hProcess;
  if (::WaitForSingleObject(process, tenMinutes) != WAIT_OBJECT_0) {
    (void)::TerminateProcess(process, tooLong);
    (void)::WaitForSingleObject(process, tenMinutes);
  }
  DWORD status = 1;
  (void)::GetExitCodeProcess(process, &status);
  process_->ended = true;
  return status == killed ? wasKilled : static_cast<int>(status);
}

void Child::kill() {
  (void)::TerminateProcess(process_->information.hProcess, killed);
  (void)wait();
}

}  // namespace proof
