#include "check_findings.h"

#include <algorithm>
#include <cstdio>

#include "genreg.h"
#include "listing.h"
#include "report.h"

namespace tool {
namespace {

// From what is good to what is worst.
enum class Verdict { Clean, Remarks, Look, Missing, Damaged, Unreadable };
constexpr struct {
  const char* words;
  int status;
} verdicts[] = {
    {"clean", exitDone},       {"whole, with remarks", exitDone}, {"needs a look", exitNotFound},
    {"missing", exitNotFound}, {"damaged", exitFailed},           {"cannot be read", exitFailed}};

// In the order of the topics.
constexpr struct {
  const char* name;
  Verdict verdict;
} topics[] = {{"running", Verdict::Remarks},      {"left over", Verdict::Remarks},
              {"odd", Verdict::Remarks},          {"rights", Verdict::Remarks},
              {"left over", Verdict::Look},       {"refused", Verdict::Look},
              {"repeated", Verdict::Look},        {"other kind", Verdict::Look},
              {"missing", Verdict::Missing},      {"damage", Verdict::Damaged},
              {"unreadable", Verdict::Unreadable}};

const auto& rowOf(const Finding& finding) { return topics[static_cast<int>(finding.topic)]; }

std::string meaningOf(unsigned int code) {
  const GenRegReturnCode* row = genRegFindReturnCode(code);
  return row == nullptr ? "unknown code" : std::string(row->name) + ": " + row->meaning;
}

void printText(const Checked& checked, const char* verdict, const std::vector<Finding>& findings) {
  std::string counted;
  if (checked.isRead) {
    counted =
        std::string(nameOf(checked.kind)) + ", " + std::to_string(checked.records) + " records: ";
  }
  std::printf("%s: %s%s\n", printable(checked.file).c_str(), counted.c_str(), verdict);
  for (const Finding& finding : findings) {
    std::printf("  %s: %s: %s\n    do: %s\n", rowOf(finding).name, printable(finding.where).c_str(),
                printable(finding.what).c_str(), printable(finding.action).c_str());
  }
}

Json jsonOf(const Checked& checked, const char* verdict, const std::vector<Finding>& findings) {
  Json list = Json::array();
  for (const Finding& finding : findings) {
    list.push_back({{"kind", rowOf(finding).name},
                    {"where", finding.where},
                    {"what", finding.what},
                    {"action", finding.action}});
  }
  return {{"file", checked.file},
          {"type", checked.isRead ? Json(nameOf(checked.kind)) : Json()},
          {"records", checked.records},
          {"verdict", verdict},
          {"findings", list}};
}

}  // namespace

std::string commandOn(const Checked& checked, const std::string& verb) {
  return std::string("zorreg ") + nameOf(checked.kind) +
         (checked.kind == Kind::Global ? " --file " : " ") + printable(checked.file) +
         (checked.bigEndian ? " --big-endian " : " ") + verb;
}

void Findings::addBadRecord(const std::string& where, unsigned int code) {
  add(Topic::Damage, where, meaningOf(code), "");
  (code == GENREG_RC_UNPACK_FAILED ? unreadable_ : unframed_) = true;
}

void Findings::addNotOpened(const std::string& where, unsigned int code) {
  add(Topic::Unreadable, where, meaningOf(code), "check again; ZOROSSE_LOG=stderr says more");
}

int Findings::print(const Checked& checked, bool strict, bool json) const {
  std::vector<Finding> findings = findings_;
  const std::string repair =
      unreadable_ || unframed_
          ? commandOn(checked, unreadable_ ? "repair --drop-unreadable" : "repair")
          : "";
  Verdict worst = Verdict::Clean;
  for (Finding& finding : findings) {
    worst = std::max(worst, rowOf(finding).verdict);
    if (finding.action.empty()) finding.action = repair;
  }
  const auto& verdict = verdicts[static_cast<int>(worst)];
  if (json) {
    Json all = jsonOf(checked, verdict.words, findings);
    if (!repair.empty()) all["repair"] = repair;
    printJson(all);
  } else {
    printText(checked, verdict.words, findings);
    if (!repair.empty()) std::printf("what is whole can be kept: %s\n", repair.c_str());
  }
  return strict && worst == Verdict::Remarks ? int{exitNotFound} : verdict.status;
}

}  // namespace tool
