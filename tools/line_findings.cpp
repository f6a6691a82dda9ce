#include "line_findings.h"

#include <map>

#include "file_content.h"
#include "genreg.h"

namespace tool {
namespace {

template <typename Flavour, typename Record>
class Parser : public Flavour {
 public:
  Parser() : Flavour("edited", nullptr) {}
  unsigned int parse(Record& record, char* line) { return this->UnpackRecord(&record, line); }
};

bool isUnderstood(const VarValRecord&) { return true; }
bool isUnderstood(const ServiceEntryRecord& record) {
  return (record.Contains & SERVICES_BAD_PORT) == 0;
}

template <typename Flavour, typename Record>
std::vector<LineFinding> oddLines(const std::string& text) {
  std::vector<LineFinding> odd;
  Parser<Flavour, Record> parser;
  forEachLine(text, [&](const TextLine& line) {
    const auto add = [&](const std::string& why) { odd.push_back({line.number, line.bytes, why}); };
    if (line.isTooLong()) return add("longer than 2,046 characters");
    if (line.holdsNul()) return add("holds a NUL byte");
    Record record{};
    std::string content = line.bytes + '\n';
    if (const unsigned int code = parser.parse(record, content.data()); code != 0) {
      const GenRegReturnCode* row = genRegFindReturnCode(code);
      return add(row == nullptr ? "does not parse" : row->meaning);
    }
    if (!isUnderstood(record)) add("the port and protocol are not understood");
  });
  return odd;
}

std::vector<LineFinding> oddLines(Kind kind, const std::string& text) {
  return kind == Kind::Var ? oddLines<GenRegVarVal, VarValRecord>(text)
                           : oddLines<GenRegServices, ServiceEntryRecord>(text);
}

}  // namespace

std::vector<LineFinding> newOddLines(Kind kind, const std::string& before,
                                     const std::string& after) {
  std::map<std::string, std::size_t> known;
  for (const LineFinding& finding : oddLines(kind, before)) ++known[finding.line];
  std::vector<LineFinding> findings;
  for (LineFinding& finding : oddLines(kind, after)) {
    const auto found = known.find(finding.line);
    if (found == known.end() || found->second == 0) {
      findings.push_back(std::move(finding));
    } else {
      --found->second;
    }
  }
  return findings;
}

}  // namespace tool
