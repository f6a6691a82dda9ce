#include "bench/once.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace {

bool prepareInChild(const Workload& first, const Workload& second) {
  const pid_t child = ::fork();
  if (child == 0) {
    first.prepare();
    second.prepare();
    ::_exit(0);
  }
  int status = 0;
  return child > 0 && ::waitpid(child, &status, 0) == child && status == 0;
}

// A figure of /proc/self/status, in kilobytes.
long figure(const std::string& name) {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word) {
    long kilobytes = 0;
    if (word == name + ":" && status >> kilobytes) return kilobytes;
  }
  return -1;
}

// Makes the peak what is resident now.
bool resetPeak() {
  std::ofstream control("/proc/self/clear_refs");
  control << "5" << std::flush;
  return control.good();
}

}  // namespace

int reportOnce(const OperationRow& operation, Workload& warming, Workload& measured) {
  if (!prepareInChild(warming, measured) || !operation.run(warming)) return 1;
  (void)figure("VmRSS");
  if (!resetPeak()) return 1;
  const long before = figure("VmRSS");
  (void)::getppid();
  const bool done = operation.run(measured);
  (void)::getppid();
  const long after = figure("VmHWM");
  if (!done || before < 0 || after < 0) return 1;
  std::printf("%ld\n", after - before);
  return 0;
}
