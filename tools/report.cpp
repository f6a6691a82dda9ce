#include "report.h"

#include <cstdio>
#include <filesystem>

#include "output.h"

namespace zorreg {
namespace {

int report(const std::string& message, int status) {
  std::fprintf(stderr, "zorreg: %s\n", message.c_str());
  return status;
}

}  // namespace

int reportCode(unsigned int code, const std::string& file, const std::string& cause) {
  const bool notOpened = code == GENREG_RC_OPEN_FOR_OPERATION || code == GENREG_RC_OPEN_FAILED;
  std::error_code ignored;
  if (notOpened && !std::filesystem::exists(file, ignored)) code = GENREG_RC_NO_FILE;
  const GenRegReturnCode* row = genRegFindReturnCode(code);
  std::fprintf(stderr, "zorreg: %s (0x%08X): %s\n", row == nullptr ? "unknown code" : row->name,
               code, row == nullptr ? "no meaning is known" : row->meaning);
  // A cause that says no more than the code is none.
  const bool saysMore = row != nullptr && cause.size() > file.size() + 2 &&
                        cause.compare(file.size() + 2, std::string::npos, row->meaning) != 0;
  std::fprintf(stderr, "zorreg: %s\n",
               saysMore ? printable(cause).c_str() : ("file " + printable(file)).c_str());
  switch (code) {
    case GENREG_RC_NOT_FOUND:
    case GENREG_RC_NO_FILE:
      return exitNotFound;
    case GENREG_RC_BUSY:
      return exitBusy;
    case GENREG_RC_DUPLICATE:
      return exitConflict;
    default:
      return exitFailed;
  }
}

int reportConflict(const std::string& message) { return report(message, exitConflict); }

int reportRefusal(const std::string& where, const std::string& reason) {
  return report(printable(where) + " " + reason, exitFailed);
}

int reportUsage(const std::string& message) { return report(message, exitUsage); }

int reportFailure(const std::string& message) { return report(message, exitFailed); }

void printRepair(const std::string& file, const std::string& original,
                 const GenRegRepairReport& report, bool json) {
  const bool repaired = report.bytesLeftOut != 0;
  if (json) {
    Json row{{"file", file},
             {"kept", report.kept},
             {"dropped", report.dropped},
             {"bytesLeftOut", report.bytesLeftOut}};
    if (repaired) row.update({{"firstDamage", report.firstDamage}, {"original", original}});
    printJson(row);
    return;
  }
  std::string line = printable(file) + ": " + std::to_string(report.kept) + " records kept; ";
  if (repaired) {
    line += std::to_string(report.bytesLeftOut) + " bytes left out, the first at offset " +
            std::to_string(report.firstDamage);
    if (report.dropped != 0) {
      line += ", among them " + std::to_string(report.dropped) + " that cannot be read";
    }
    line += "\nthe original is now " + printable(original) + ", which the next update deletes";
  } else {
    line += "nothing to repair";
  }
  std::printf("%s\n", line.c_str());
}

}  // namespace zorreg
