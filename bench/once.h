// One operation in a fresh process.
#pragma once

#include "bench/workload.h"

// Prints the kilobytes by which `operation` on `measured` raised the peak of the process's resident
// memory. The program's own pages are touched before by the same operation on `warming`, a small
// store; a child process prepares both, so that nothing of that counts. Returns the exit status.
int reportOnce(const OperationRow& operation, Workload& warming, Workload& measured);
