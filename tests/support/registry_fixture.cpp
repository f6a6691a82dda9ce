#include "support/registry_fixture.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>

#include "sysservices/memory.h"

namespace fs = std::filesystem;

BinVarValRecord variable(const std::string& name, std::int32_t value, const std::string& comment) {
  BinVarValRecord record{};
  name.copy(record.Variable, sizeof record.Variable - 1);
  record.Value = value;
  comment.copy(record.Comment, sizeof record.Comment - 1);
  return record;
}

VarValRecord assignment(const char* name, const char* value, const char* comment) {
  VarValRecord record{VARVAL_HAS_VARIABLE, comment, name, value, {}};
  if (comment != nullptr) record.Contains |= VARVAL_HAS_COMMENT;
  return record;
}

std::string little(std::uint64_t number, std::size_t width) {
  std::string bytes;
  for (std::size_t i = 0; i < width; ++i) bytes += static_cast<char>(number >> (8 * i));
  return bytes;
}

std::string frameBytes(std::uint32_t length, const std::string& bytes) {
  return little(length, 4) + bytes;
}

std::string frame(const BinVarValRecord& record) {
  return frameBytes(36, std::string(reinterpret_cast<const char*>(&record), 36));
}

std::string readFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary | std::ios::ate);
  std::string bytes(stream ? static_cast<std::size_t>(stream.tellg()) : 0, '\0');
  stream.seekg(0).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return bytes;
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
  setPermissions(path, 0600);
}

bool exists(const std::string& path) {
  return fs::symlink_status(path).type() != fs::file_type::not_found;
}

void expectInChild(const std::function<bool()>& body) {
  EXPECT_EQ(inChild([&] { return body() && !::testing::Test::HasFailure() ? 0 : 1; }), 0);
}

void RegistryTest::SetUp() {
  directory_ = makeTestDirectory();
  descriptors_ = openDescriptors();
  blocks_ = ossMemBlocksInUse();
}

void RegistryTest::TearDown() {
  EXPECT_EQ(openDescriptors(), descriptors_) << "a descriptor leaked";
  EXPECT_EQ(ossMemBlocksInUse(), blocks_) << "memory leaked";
  fs::remove_all(directory_);
}

void RegistryTest::clearDirectory() const {
  for (const auto& entry : fs::directory_iterator(directory_)) fs::remove_all(entry.path());
}

std::string RegistryTest::files() const {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory_)) {
    names.insert(entry.path().filename().string());
  }
  std::string joined;
  for (const std::string& name : names) joined += (joined.empty() ? "" : " ") + name;
  return joined;
}

FaultHook::FaultHook(std::function<int(const std::string& call)> answer)
    : answer_(std::move(answer)) {
  ossSetFaultHook([](const char* call, const char*,
                     void* context) { return static_cast<FaultHook*>(context)->answer_(call); },
                  this);
}

FaultHook::~FaultHook() { ossSetFaultHook(nullptr, nullptr); }

FaultPlan::FaultPlan(unsigned long k, int fault, bool kill, const char* only)
    : hook_([=](const std::string& call) {
        if ((only != nullptr && only != call) || ++calls_ != k) return 0;
        if (kill) killThisProcess();
        return fault;
      }) {}

Diagnostics::Diagnostics() {
  ossSetDiagnosticCallback(
      [](const OSSDiagnosticRecord& record, void* context) {
        static_cast<Diagnostics*>(context)->records.push_back(record);
      },
      this);
}

Diagnostics::~Diagnostics() { ossSetDiagnosticCallback(nullptr, nullptr); }

std::size_t Diagnostics::logs(unsigned int probe, unsigned int code) const {
  return static_cast<std::size_t>(
      std::count_if(records.begin(), records.end(), [&](const OSSDiagnosticRecord& record) {
        return record.kind <= OSSRecordKind::LogCallee && record.probe == probe &&
               record.code == code;
      }));
}
