// What the tests share: a directory of their own, records and files spelled out by hand, a handle
// that shows its protected side, and a plan that makes the k-th system call fail or kill.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "genreg.h"
#include "support/surroundings.h"
#include "sysservices/diagnostics.h"
#include "sysservices/fault_hook.h"

using Code = unsigned int;

// The codes, masks and features that the rows of the tests' tables name most.
constexpr Code notFound = GENREG_RC_NOT_FOUND;
constexpr Code unchanged = GENREG_RC_UNCHANGED;
constexpr Code ambiguous = GENREG_RC_AMBIGUOUS;
constexpr Code duplicate = GENREG_RC_DUPLICATE;
constexpr Code rejected = GENREG_RC_KEY_REJECTED;
constexpr Code opening = GENREG_RC_OPEN_FOR_OPERATION;
constexpr Code closing = GENREG_RC_CLOSE_AFTER_OPERATION;
constexpr Code readFailed = GENREG_RC_READ_FAILED;
constexpr Code writeNewFailed = GENREG_RC_WRITE_NEW_FAILED;
constexpr Code verifying = GENREG_RC_VERIFY_FAILED;
constexpr Code packLineFailed = GENREG_RC_PACK_LINE_FAILED;
constexpr Code hookMissing = GENREG_RC_HOOK_MISSING;
constexpr Code noValidate = GENREG_RC_NO_VALIDATE_HOOK;
constexpr Code noSize = GENREG_RC_NO_SIZE_HOOK;
constexpr Code noCompare = GENREG_RC_NO_COMPARE_HOOK;
constexpr std::uint64_t byName = BINVARVAL_VARIABLE;
constexpr std::uint64_t unique = GENREG_VERIFY_UPDATES;
constexpr std::uint64_t verified = GENREG_VERIFY_UPDATES | GENREG_ALLOW_DUPLICATES;
constexpr std::uint64_t unverified = GENREG_ALLOW_DUPLICATES;

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
  using GenRegFile::mainStream;
  using GenRegFile::PackRecord;
  using GenRegFile::secondStream;
  using GenRegFile::UnpackRecord;
  GenRegCompareHook& compareHook() { return GenRegBase::CompareRecord; }
  GenRegPrintHook printHook() const { return GenRegBase::PrintRecord; }
};
using TestRegistry = Exposed<GenRegBinVarVal>;

BinVarValRecord variable(const std::string& name, std::int32_t value = 0,
                         const std::string& comment = "");

// A profile variable line; without a comment where that is null.
VarValRecord assignment(const char* name, const char* value, const char* comment = nullptr);

// A number as it stands in a file, in so many bytes, the least significant first.
std::string little(std::uint64_t number, std::size_t width);

// A frame as it stands in the file.
std::string frame(const BinVarValRecord& record);
std::string frameBytes(std::uint32_t length, const std::string& bytes);

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);
bool exists(const std::string& path);

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
  void clearDirectory() const;
  // Names in the directory, sorted, joined by blanks.
  std::string files() const;

  std::string directory_;

 private:
  std::size_t descriptors_ = 0;
  std::size_t blocks_ = 0;
};

// While it lives, `answer` is asked before each system call: 0, or the error with which it fails.
class FaultHook {
 public:
  explicit FaultHook(std::function<int(const std::string& call)> answer);
  ~FaultHook();
  FaultHook(const FaultHook&) = delete;
  FaultHook& operator=(const FaultHook&) = delete;

 private:
  std::function<int(const std::string& call)> answer_;
};

// While it lives, system call number `k` (from 1) fails as `fault` says; 0 only counts. With
// `kill`, the process dies right before it instead. With `only`, calls of that name alone count.
class FaultPlan {
 public:
  FaultPlan(unsigned long k, int fault, bool kill = false, const char* only = nullptr);
  unsigned long calls() const { return calls_; }

 private:
  unsigned long calls_ = 0;
  FaultHook hook_;
};

// Runs `work`, the `n`-th allocation (from 1) by `new` of which, on this thread, fails; swallows
// what it throws. Whether it came to that.
bool endsInTheMidst(long n, const std::function<void()>& work);

// Collects the diagnostic records made while it lives.
class Diagnostics {
 public:
  Diagnostics();
  ~Diagnostics();
  Diagnostics(const Diagnostics&) = delete;
  Diagnostics& operator=(const Diagnostics&) = delete;

  std::vector<OSSDiagnosticRecord> records;  // without the values that they point to
  // Failure logs of one routine's probe with one code.
  std::size_t logs(unsigned int probe, unsigned int code) const;
};
