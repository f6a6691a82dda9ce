// A machine whose registry the test writes, as an export or, where the registry is the system's
// own, from the lines of one.
#pragma once

#include "ossinstall.h"
#include "support/registry_fixture.h"

// Lines of an export: a text value, a key below the product's, copies with their version and path.
std::string textValue(const std::string& name, const std::string& text);
std::string productKey(const std::string& below, const std::string& values = "");
std::string versionKey(const std::string& copy, const std::string& version);
std::string copyKeys(const std::string& name, const std::string& version = "9",
                     const std::string& path = "C:\\\\X");
std::string defaultKeys(const std::string& version);
// An instance of a copy (empty: the default entry); `profiles` is PROFILES or ZEM_PROFILES.
std::string instanceKey(const std::string& copy, const std::string& name,
                        const std::string& values = "", const std::string& profiles = "PROFILES");

// Text as the system's 8-bit encoding has it.
std::string systemText(const std::string& utf8);

// All that a list gives, each step with ";": "SERVICE copy" or "NAME copy path flags host" for an
// entry, the code and which entry it was for a failure, "-" for an empty text. It ends with "end;"
// or with the third failure; of a list that is not opened the code is all.
std::string copies();
std::string instances(const char* kind = "ZOR");

// Collects the failures that are logged while it lives: "routine.point:code;" for each, and
// "path|line|reason;" for an export that is refused.
class FailureLog {
 public:
  FailureLog();
  ~FailureLog();
  FailureLog(const FailureLog&) = delete;
  FailureLog& operator=(const FailureLog&) = delete;

  std::string failures;
  std::string refusals;
};

class MachineTest : public RegistryTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Gives the machine, or another one, a registry of these lines, or of bytes as they are.
  void machine(const std::string& lines);
  void machineBytes(const std::string& bytes);
  // Gives the machine the registry of the export at `path`.
  void machineOf(const std::string& path);
  void remoteMachine(const std::string& name, const std::string& lines);
};
