#include "report.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "listing.h"
#include "verbs.h"

namespace tool {
namespace {

struct Alias {
  std::string file;
  std::string shown;
};
Alias alias;  // ShownAs

int report(const std::string& message, int status) {
  std::fprintf(stderr, "zorreg: %s\n", shownText(message).c_str());
  return status;
}

// What is wrong with the words that were given, not with a file; the cause says all of it.
constexpr unsigned int usageCodes[] = {GENREG_RC_UNKNOWN_FIELD, GENREG_RC_FIELD_MISSING,
                                       GENREG_RC_BAD_VALUE, GENREG_RC_KEY_EMPTY};

// What may be done about a failure.
constexpr struct {
  unsigned int code;
  const char* text;
} advices[] = {
    {GENREG_RC_AMBIGUOUS, "name more of its fields"},
    {GENREG_RC_BUSY, "try again, or wait longer with --wait SECONDS"},
    {GENREG_RC_READ_FAILED, "zorreg check says where it is damaged"},
    {GENREG_RC_UNPACK_FAILED, "zorreg check says where it is damaged"},
};

}  // namespace

ShownAs::ShownAs(const std::string& file, const std::string& shown) { alias = {file, shown}; }

ShownAs::~ShownAs() { alias = {}; }

std::string shownText(const std::string& text) {
  const std::size_t at = alias.file.empty() ? std::string::npos : text.find(alias.file);
  if (at == std::string::npos) return text;
  return text.substr(0, at) + alias.shown + shownText(text.substr(at + alias.file.size()));
}

int reportCode(unsigned int code, const std::string& file, const std::string& cause,
               const std::string& near) {
  const bool notOpened = code == GENREG_RC_OPEN_FOR_OPERATION || code == GENREG_RC_OPEN_FAILED;
  // What may not be looked at is not known to be missing.
  std::error_code ignored;
  const auto type = std::filesystem::status(std::filesystem::u8path(file), ignored).type();
  if (notOpened && type == std::filesystem::file_type::not_found) code = GENREG_RC_NO_FILE;
  const GenRegReturnCode* row = genRegFindReturnCode(code);
  const std::string meaning = row == nullptr ? "no meaning is known" : row->meaning;
  const bool isUsage =
      std::find(std::begin(usageCodes), std::end(usageCodes), code) != std::end(usageCodes);
  if (isUsage) return reportUsage(printable(cause));
  const bool namesFile = cause.compare(0, file.size(), file) == 0;
  std::string message = namesFile ? printable(cause) : printable(file) + ": " + meaning;
  if (!namesFile && !cause.empty() && cause != meaning) message += ": " + printable(cause);
  if (!near.empty()) message += "; did you mean " + printable(near) + "?";
  for (const auto& advice : advices) {
    if (advice.code == code) message += std::string("; ") + advice.text;
  }
  std::fprintf(stderr, "zorreg: %s\nzorreg: %s (0x%08X)\n", shownText(message).c_str(),
               row == nullptr ? "unknown code" : row->name, code);
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

int reportChange(const Words& words, bool isChanged) {
  if (words.verbose) std::printf("%s\n", isChanged ? "changed" : "unchanged");
  return words.exitChanged && isChanged ? exitChanged : exitDone;
}

int reportConflict(const std::string& message) { return report(message, exitConflict); }

int reportRefusal(const std::string& where, const std::string& reason) {
  return report(printable(where) + " " + reason, exitFailed);
}

int reportUsage(const std::string& message) { return report(message, exitUsage); }

int reportFailure(const std::string& message) { return report(message, exitFailed); }

void printRepair(const std::string& file, const std::string& original,
                 const GenRegRepairReport& report, const std::vector<Gap>& gaps, bool json) {
  const bool repaired = report.bytesLeftOut != 0;
  if (json) {
    Json row{{"file", shownText(file)},
             {"kept", report.kept},
             {"dropped", report.dropped},
             {"bytesLeftOut", report.bytesLeftOut}};
    if (repaired)
      row.update({{"firstDamage", report.firstDamage}, {"original", shownText(original)}});
    if (!gaps.empty()) row["gaps"] = Json::array();
    for (const Gap& gap : gaps) {
      row["gaps"].push_back({{"offset", gap.offset}, {"length", gap.length}});
    }
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
    for (const Gap& gap : gaps) {
      if (gaps.size() == 1) break;  // the first line has said it
      line +=
          "\n  offset " + std::to_string(gap.offset) + ": " + std::to_string(gap.length) + " bytes";
    }
    line += (alias.file.empty() ? "\nthe original is now " : "\nthe original would become ") +
            printable(original) + ", which the next update deletes";
  } else {
    line += "nothing to repair";
  }
  std::printf("%s\n", shownText(line).c_str());
}

}  // namespace tool
