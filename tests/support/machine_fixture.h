// A machine whose registry is an export written by the test.
#pragma once

#include "ossinstall.h"
#include "support/registry_fixture.h"

// Lines of an export: a key below the product's, and copies with their version and path.
std::string productKey(const std::string& below, const std::string& values = "");
std::string versionKey(const std::string& copy, const std::string& version,
                       const std::string& release = "1");
std::string copyKeys(const std::string& name, const std::string& version = "9",
                     const std::string& path = "C:\\\\X");
std::string defaultKeys(const std::string& version);
// An instance of a copy (empty: the default entry); `profiles` is PROFILES or ZEM_PROFILES.
std::string instanceKey(const std::string& copy, const std::string& name,
                        const std::string& values = "", const std::string& profiles = "PROFILES");

// A code as it stands in an expected answer: "end", or 0x and eight digits.
std::string codeText(unsigned int code);

// One call, the code that it gives, what fails meanwhile, and the failure that the log must tell.
struct ExportCall {
  struct Fault {
    const char* operation = nullptr;
    unsigned long call = 0;  // number of its call that fails
    int error = 0;
  };

  unsigned int code;
  std::function<unsigned int()> run;
  Fault fault = {};
  unsigned int probe = 0;  // of the routine that logs; 0: none need do
  unsigned int logged = 0;
};
void expectCodes(const std::vector<ExportCall>& calls);

class MachineTest : public RegistryTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Gives the machine, or another one, a registry of these lines, or of bytes as they are.
  void machine(const std::string& lines);
  void machineBytes(const std::string& bytes);
  void remoteMachine(const std::string& name, const std::string& lines);

  // The whole list in one text: "SERVICE copy;" or a code and ";" for each step, up to "end;" or to
  // the last of so many failures.
  static std::string copies(unsigned int failures = 3);
  // "NAME copy path flags host;" for each instance of a kind; "-" for an empty text, flags as a
  // number.
  static std::string instances(const char* kind = "ZOR", unsigned int failures = 3);
};
