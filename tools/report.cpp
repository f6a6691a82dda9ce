#include "report.h"

#include <cstdio>
#include <filesystem>

#include "genreg.h"

namespace zorreg {
namespace {

int report(const std::string& message, int status) {
  std::fprintf(stderr, "zorreg: %s\n", message.c_str());
  return status;
}

}  // namespace

int reportCode(unsigned int code, const std::string& file) {
  const bool notOpened = code == GENREG_RC_OPEN_FOR_OPERATION || code == GENREG_RC_OPEN_FAILED;
  std::error_code ignored;
  if (notOpened && !std::filesystem::exists(file, ignored)) code = GENREG_RC_NO_FILE;
  const GenRegReturnCode* row = genRegFindReturnCode(code);
  std::fprintf(stderr, "zorreg: %s (0x%08X): %s\n", row == nullptr ? "unknown code" : row->name,
               code, row == nullptr ? "no meaning is known" : row->meaning);
  std::fprintf(stderr, "zorreg: file %s\n", file.c_str());
  const bool notFound = code == GENREG_RC_NOT_FOUND || code == GENREG_RC_NO_FILE;
  return notFound ? exitNotFound : exitFailed;
}

int reportUsage(const std::string& message) { return report(message, exitUsage); }

int reportFailure(const std::string& message) { return report(message, exitFailed); }

}  // namespace zorreg
