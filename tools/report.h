// What every verb of the tool tells its user: exit statuses and error lines.
#pragma once

#include <string>

#include "genreg.h"

namespace zorreg {

enum ExitStatus { exitDone = 0, exitNotFound = 1, exitUsage = 2, exitFailed = 3 };

// Prints "zorreg: <code's name> (0x...): <meaning>" and the file on standard error and gives the
// exit status that the code stands for. A file that could not be opened because there is none is
// told as missing.
int reportCode(unsigned int code, const std::string& file);

// Prints "zorreg: <where> <reason>" on standard error and gives exitFailed; `where` is a file, or a
// file and what in it.
int reportRefusal(const std::string& where, const std::string& reason);

// Prints "zorreg: <message>" on standard error and gives exitUsage.
int reportUsage(const std::string& message);

// The same with exitFailed.
int reportFailure(const std::string& message);

// Prints what a repair kept, what it left out and where the original is now.
void printRepair(const std::string& file, const std::string& original,
                 const GenRegRepairReport& report, bool json);

}  // namespace zorreg
