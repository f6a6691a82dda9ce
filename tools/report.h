// What every verb of the tool tells its user: exit statuses and error lines.
#pragma once

#include <string>

namespace zorreg {

enum ExitStatus { exitDone = 0, exitNotFound = 1, exitUsage = 2, exitFailed = 3 };

// Prints "zorreg: <code's name> (0x...): <meaning>" and the file on standard error and gives the
// exit status that the code stands for.
int reportCode(unsigned int code, const std::string& file);

// Prints "zorreg: <message>" on standard error and gives exitUsage.
int reportUsage(const std::string& message);

// Text of a record's field with everything unprintable shown as "?"; reads at most `size` bytes.
std::string printable(const char* text, std::size_t size);

}  // namespace zorreg
