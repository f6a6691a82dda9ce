#include "support/registry_fixture.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "sysservices/memory.h"

namespace fs = std::filesystem;

BinVarValRecord variable(const std::string& name, std::int32_t value, const std::string& comment) {
  BinVarValRecord record{};
  name.copy(record.Variable, sizeof record.Variable - 1);
  record.Value = value;
  comment.copy(record.Comment, sizeof record.Comment - 1);
  return record;
}

std::string frameBytes(std::uint32_t length, const std::string& bytes) {
  std::string field;
  for (unsigned int shift = 0; shift < 32; shift += 8) {
    field += static_cast<char>(length >> shift);
  }
  return field + bytes;
}

std::string frame(const BinVarValRecord& record) {
  std::string bytes(36, '\0');
  std::memcpy(bytes.data(), &record, bytes.size());
  return frameBytes(36, bytes);
}

std::string readFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
  (void)::chmod(path.c_str(), 0600);
}

bool exists(const std::string& path) {
  return fs::symlink_status(path).type() != fs::file_type::not_found;
}

std::size_t openDescriptors() {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
}

int inChild(const std::function<int()>& body) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(body());
  int status = 0;
  (void)::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

void RegistryTest::SetUp() {
  char name[] = "/tmp/zorgenreg-test-XXXXXX";
  directory_ = ::mkdtemp(name);
  descriptors_ = openDescriptors();
  blocks_ = ossMemBlocksInUse();
}

void RegistryTest::TearDown() {
  EXPECT_EQ(openDescriptors(), descriptors_) << "a descriptor leaked";
  EXPECT_EQ(ossMemBlocksInUse(), blocks_) << "memory leaked";
  fs::remove_all(directory_);
}

std::string RegistryTest::files() const {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory_)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  std::string joined;
  for (const std::string& name : names) joined += (joined.empty() ? "" : " ") + name;
  return joined;
}

FaultPlan::FaultPlan(unsigned long k, int fault, bool kill, const char* only)
    : k_(k), fault_(fault), kill_(kill), only_(only) {
  ossSetFaultHook(answer, this);
}

FaultPlan::~FaultPlan() { ossSetFaultHook(nullptr, nullptr); }

int FaultPlan::answer(const char* operation, const char*, void* context) {
  auto& plan = *static_cast<FaultPlan*>(context);
  if (plan.only_ != nullptr && std::strcmp(plan.only_, operation) != 0) return 0;
  if (++plan.calls_ != plan.k_) return 0;
  if (plan.kill_) (void)::raise(SIGKILL);
  plan.operation_ = operation;
  return plan.fault_;
}

Diagnostics::Diagnostics() {
  ossSetDiagnosticCallback(
      [](const OSSDiagnosticRecord& record, void* context) {
        static_cast<Diagnostics*>(context)->records.push_back({record.kind, record.probe,
                                                               record.code, record.calleeProbe,
                                                               record.calleeCode, record.severity});
      },
      this);
}

Diagnostics::~Diagnostics() { ossSetDiagnosticCallback(nullptr, nullptr); }

std::size_t Diagnostics::logs(unsigned int probe, unsigned int code) const {
  return static_cast<std::size_t>(
      std::count_if(records.begin(), records.end(), [&](const Record& record) {
        return record.kind <= OSSRecordKind::LogCallee && record.probe == probe &&
               record.code == code;
      }));
}
