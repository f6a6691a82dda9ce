// A machine whose registry is an export that the test writes.
#pragma once

#include "ossinstall.h"
#include "support/registry_fixture.h"

// Lines of an export: a key below the product's, and all keys of copies and instances, which "; "
// separates: "A" a copy of version 9 in C:\X, "A=8" and "A=8|D:\p" one of that version and path,
// "-" the default entry; "A/I" an instance, "A//I" a ZEM one, "A/I|name=text" one with such a
// value.
std::string productKey(const std::string& below, const std::string& values = "");
std::string keys(const std::string& items);

// All that a list gives, each step with ";": "SERVICE copy" or "NAME copy path flags host" for an
// entry, the code and which entry it was for a failure, "-" for an empty text. It ends with "end;",
// or with the same failure for the third time. Of a list that is not opened the code is all. Codes
// are three digits without their 0x90000, errors of the registry "e" and the number.
std::string copies();
std::string instances(const char* kind = "ZOR");
std::string codeText(Code code);

// Collects what is recorded while it lives: "routine.point:code;" for each failure,
// "path|line|reason;" for an export that is refused, "routine " for each entry into one that is
// traced.
struct FailureLog {
  FailureLog();
  ~FailureLog();
  std::string failures, refusals, entries;
};

class MachineTest : public RegistryTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Gives the machine, or another one, a registry of these lines.
  void machine(const std::string& lines);
  void remoteMachine(const std::string& name, const std::string& lines);
};
