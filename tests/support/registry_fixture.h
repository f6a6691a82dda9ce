// What the tests share: a directory of their own, records and files spelled out by hand, a handle
// that shows its protected side, and a plan that makes the k-th system call fail or kill.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "genreg.h"
#include "sysservices/diagnostics.h"
#include "sysservices/fault_hook.h"

// A handle that shows its protected side.
template <typename Flavour>
class Exposed : public Flavour {
 public:
  explicit Exposed(const std::string& path, std::uint64_t wanted = 0) noexcept
      : Flavour(path.c_str(), nullptr) {
    if (wanted != 0) useFeatures(wanted);
  }
  // Exactly these features from now on.
  void useFeatures(std::uint64_t wanted) { this->features = wanted; }

  using GenRegFile::CloseRegFile;
  using GenRegFile::getBackupFilePath;
  using GenRegFile::getCorruptFilePath;
  using GenRegFile::getLockFilePath;
  using GenRegFile::getRegFilePath;
  using GenRegFile::getTempFilePath;
  using GenRegFile::LockRegistry;
  using GenRegFile::OpenRegFile;
  using GenRegFile::UnlockRegistry;

  using GenRegBase::NotifyChange;
  using GenRegBase::PostUpdate;
  using GenRegBase::status;
  using GenRegBase::ValidateKey;
  using GenRegFile::GetPackedLength;
  using GenRegFile::GetRecordLength;
  using GenRegFile::GetRecordSize;
  using GenRegFile::PackRecord;
  using GenRegFile::UnpackRecord;
  GenRegCompareHook& compareHook() { return GenRegBase::CompareRecord; }
};
using TestRegistry = Exposed<GenRegBinVarVal>;

BinVarValRecord variable(const std::string& name, std::int32_t value = 0,
                         const std::string& comment = "");

// A frame as it stands in the file, length least significant byte first.
std::string frame(const BinVarValRecord& record);
std::string frameBytes(std::uint32_t length, const std::string& bytes);

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);
bool exists(const std::string& path);
// Open descriptors of this process.
std::size_t openDescriptors();

// Runs `body` in a child process; gives its exit status, or minus the signal that ended it.
int inChild(const std::function<int()>& body);

class RegistryTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  std::string path(const std::string& name) const { return directory_ + "/" + name; }
  std::string registry() const { return path("r"); }
  std::string backup() const { return path(".r.bkp"); }
  std::string lockFile() const { return path(".r.lock"); }
  std::string temporary() const { return registry() + ".tmp"; }
  std::string corrupt() const { return registry() + ".cor"; }
  // Names in the directory, sorted, joined by blanks.
  std::string files() const;

  std::string directory_;

 private:
  std::size_t descriptors_ = 0;
  std::size_t blocks_ = 0;
};

// While it lives, system call number `k` (from 1) fails as `fault` says; 0 only counts. With
// `kill`, the process dies right before it instead. With `only`, calls of that name alone count.
class FaultPlan {
 public:
  FaultPlan(unsigned long k, int fault, bool kill = false, const char* only = nullptr);
  ~FaultPlan();
  FaultPlan(const FaultPlan&) = delete;
  FaultPlan& operator=(const FaultPlan&) = delete;

  unsigned long calls() const { return calls_; }
  const std::string& operation() const { return operation_; }

 private:
  static int answer(const char* operation, const char* path, void* context);

  unsigned long k_;
  int fault_;
  bool kill_;
  const char* only_;
  unsigned long calls_ = 0;
  std::string operation_;
};

// Collects the diagnostic records made while it lives.
class Diagnostics {
 public:
  Diagnostics();
  ~Diagnostics();
  Diagnostics(const Diagnostics&) = delete;
  Diagnostics& operator=(const Diagnostics&) = delete;

  struct Record {
    OSSRecordKind kind;
    unsigned int probe;
    unsigned int code;
    unsigned int calleeProbe;
    unsigned int calleeCode;
    unsigned int severity;
  };
  std::vector<Record> records;
  // Failure logs of one routine's probe with one code.
  std::size_t logs(unsigned int probe, unsigned int code) const;
};
