// What every verb of the tool tells its user: exit statuses and error lines.
#pragma once

#include <string>
#include <vector>

#include "check_gaps.h"
#include "genreg.h"

namespace tool {

struct Words;

enum ExitStatus {
  exitDone = 0,
  exitNotFound = 1,
  exitUsage = 2,
  exitFailed = 3,
  exitConflict = 4,  // exists already, or does not hold what a condition asks for
  exitBusy = 5,      // another writer has the registry
  exitChanged = 6,   // done, and something was changed, where --exit-changed asks
};

// While it lives, what is printed calls the file `file` by the name `shown`: a dry run works on a
// copy, and speaks of the registry. One at a time.
class ShownAs {
 public:
  ShownAs(const std::string& file, const std::string& shown);
  ~ShownAs();
  ShownAs(const ShownAs&) = delete;
  ShownAs& operator=(const ShownAs&) = delete;
};

// The text, with the file called as it is to be shown.
std::string shownText(const std::string& text);

// Prints on standard error what failed, on which file, why and what may be done about it: the cause
// that the library knows, else the code's meaning, `near` (of the name that was not found; may be
// empty), then the code; gives the exit status that the code stands for. A file that could not be
// opened because there is none is reported as missing.
int reportCode(unsigned int code, const std::string& file, const std::string& cause = "",
               const std::string& near = "");

// What a verb that was to change something exits with when it is done; says "changed" or
// "unchanged" when it was asked to.
int reportChange(const Words& words, bool isChanged);

// Prints "zorreg: <what>" on standard error and gives exitConflict.
int reportConflict(const std::string& message);

// Prints "zorreg: <where> <reason>" on standard error and gives exitFailed; `where` is a file, or a
// file and what in it.
int reportRefusal(const std::string& where, const std::string& reason);

// Prints "zorreg: <message>" on standard error and gives exitUsage.
int reportUsage(const std::string& message);

// The same with exitFailed.
int reportFailure(const std::string& message);

// Prints what a repair kept, what it left out and where, if that is known, and where the original
// is now.
void printRepair(const std::string& file, const std::string& original,
                 const GenRegRepairReport& report, const std::vector<Gap>& gaps, bool json);

}  // namespace tool
