// The machine's registry is an export, which the environment names.
#include "support/machine_fixture.h"
#include "sysservices/environment.h"

std::string systemText(const std::string& utf8) { return utf8; }

void MachineTest::SetUp() {
  RegistryTest::SetUp();
  machineOf(path("machine.reg"));
}

void MachineTest::TearDown() {
  machineOf("");
  RegistryTest::TearDown();
}

void MachineTest::machine(const std::string& lines) {
  remoteMachine("machine", lines);
  machineOf(path("machine.reg"));
}

void MachineTest::machineBytes(const std::string& bytes) { writeFile(path("machine.reg"), bytes); }

void MachineTest::machineOf(const std::string& path) {
  (void)ossEnvironmentSet("ZOROSSE_REGISTRY_FILE", path.empty() ? nullptr : path.c_str());
}

void MachineTest::remoteMachine(const std::string& name, const std::string& lines) {
  writeFile(path(name + ".reg"), "Windows Registry Editor Version 5.00\n" + lines);
}
