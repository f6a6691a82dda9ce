#include "check_findings.h"

#include <algorithm>
#include <cstdio>

#include "genreg.h"
#include "report.h"

namespace tool {
namespace {

const char* nameOf(Severity severity) {
  switch (severity) {
    case Severity::Note:
      return "left over";
    case Severity::Odd:
      return "odd";
    default:
      return "damage";
  }
}

}  // namespace

void Findings::addCode(const std::string& where, unsigned int code) {
  const GenRegReturnCode* row = genRegFindReturnCode(code);
  add(Severity::Damage, where,
      row == nullptr ? "unknown code" : std::string(row->name) + ": " + row->meaning);
}

void Findings::addBadRecord(const std::string& where, unsigned int code) {
  addCode(where, code);
  (code == GENREG_RC_UNPACK_FAILED ? unreadable_ : unframed_) = true;
}

int Findings::print(const std::string& file, Kind kind, std::uint64_t records, bool json) const {
  int status = findings_.empty() ? exitDone : exitNotFound;
  for (const Finding& finding : findings_) {
    if (finding.severity == Severity::Damage) status = exitFailed;
  }
  static constexpr const char* verdicts[] = {"clean", "whole, with remarks", "", "damaged"};
  std::string repair;
  if (unreadable_ || unframed_) {
    repair = std::string("zorreg ") + nameOf(kind) + (kind == Kind::Global ? " --file " : " ") +
             printable(file) + " repair" + (unreadable_ ? " --drop-unreadable" : "");
  }
  if (json) {
    Json list = Json::array();
    for (const Finding& finding : findings_) {
      list.push_back(
          {{"kind", nameOf(finding.severity)}, {"where", finding.where}, {"what", finding.what}});
    }
    Json all{{"file", file},
             {"type", nameOf(kind)},
             {"records", records},
             {"verdict", verdicts[status]},
             {"findings", list}};
    if (!repair.empty()) all["repair"] = repair;
    printJson(all);
    return status;
  }
  std::printf("%s: %s, %llu records: %s\n", printable(file).c_str(), nameOf(kind),
              static_cast<unsigned long long>(records), verdicts[status]);
  Table table;
  for (const Finding& finding : findings_) {
    table.add({nameOf(finding.severity), printable(finding.where), printable(finding.what)});
  }
  table.print();
  if (!repair.empty()) std::printf("what is whole can be kept: %s\n", repair.c_str());
  return status;
}

}  // namespace tool
