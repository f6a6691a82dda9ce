// The records and lines of each flavour, one after the other.
#include <cstdint>
#include <map>

#include "check_findings.h"
#include "exact_registry.h"
#include "file_content.h"

namespace zorreg {
namespace {

std::string at(std::int64_t offset) { return "offset " + std::to_string(offset); }

// Names that were met, and where first.
class Duplicates {
 public:
  explicit Duplicates(Findings& findings) : findings_(findings) {}
  void met(const std::string& name, const std::string& where) {
    const auto [first, isNew] = seen_.emplace(name, where);
    if (isNew) return;
    findings_.add(Severity::Odd, where, "the same name as at " + first->second + ": " + name);
  }

 private:
  Findings& findings_;
  std::map<std::string, std::string> seen_;
};

// Walks a binary registry; a record that cannot be unpacked is reported and passed over, one that
// cannot be read ends the walk.
template <typename Registry, typename Visit>
std::uint64_t checkBinary(const std::string& file, bool bigEndian, Findings& findings,
                          Visit visit) {
  Registry registry(file);
  if (bigEndian) (void)registry.setFeature(GENREG_BIG_ENDIAN_LENGTH);
  const unsigned int opened = registry.opened != 0 ? registry.opened : registry.OpenScan();
  if (opened != 0) {
    findings.addCode("registry file", opened);
    return 0;
  }
  std::uint64_t whole = 0;
  for (;;) {
    std::int64_t offset = 0;
    (void)registry.getRegFilePosition(&offset);
    typename Registry::Record key{};
    typename Registry::Record record;
    const unsigned int code = registry.GetNext(0, &key, &record);
    if (code == GENREG_RC_END) break;
    if (code == 0) {
      ++whole;
      visit(record, at(offset));
    } else {
      findings.addBadRecord(at(offset), code);
      if (code != GENREG_RC_UNPACK_FAILED) break;
    }
  }
  (void)registry.CloseScan();
  return whole;
}

// A flavour that shows how it parses a line.
template <typename Flavour, typename Record>
class LineParser : public Flavour {
 public:
  LineParser() : Flavour("check", nullptr) {}
  unsigned int parse(Record& record, char* line) { return this->UnpackRecord(&record, line); }
};

// Walks the lines of a text registry.
template <typename Flavour, typename Record, typename Visit>
std::uint64_t checkLines(const std::string& file, Findings& findings, Visit visit) {
  std::string text;
  if (!readContent(file, std::string::npos, text)) {
    findings.addCode("registry file", GENREG_RC_OPEN_FAILED);
    return 0;
  }
  LineParser<Flavour, Record> parser;
  std::uint64_t records = 0;
  forEachLine(text, [&](const TextLine& line) {
    const std::string where = "line " + std::to_string(line.number);
    const auto odd = [&](const std::string& what) { findings.add(Severity::Odd, where, what); };
    if (line.isTooLong()) return odd("longer than 2,046 characters: updates keep it as it is");
    if (line.holdsNul()) odd("holds NUL bytes: updates keep it as it is");
    if (!line.ended) odd("the last line lacks its newline: the next Add ends it");
    Record record;
    std::string content = line.bytes + '\n';
    const unsigned int code = parser.parse(record, content.data());
    if (code == 0) {
      records += visit(record, where) ? 1 : 0;
    } else {
      const GenRegReturnCode* row = genRegFindReturnCode(code);
      odd(std::string(row == nullptr ? "does not parse" : row->meaning) +
          ": updates keep it as it is");
    }
  });
  return records;
}

}  // namespace

std::uint64_t checkRecords(const std::string& file, const Guess& guess, Findings& findings) {
  Duplicates duplicates(findings);
  switch (guess.kind) {
    case Kind::Bin:
      return checkBinary<Exact<GenRegBinVarVal, BinVarValRecord>>(
          file, guess.bigEndian, findings,
          [&](const BinVarValRecord& record, const std::string& where) {
            const std::size_t length = ::strnlen(record.Variable, sizeof record.Variable);
            if (length == sizeof record.Variable) {
              findings.add(Severity::Odd, where, "the name has no end");
            }
            duplicates.met(std::string(record.Variable, length), where);
          });
    case Kind::Global:
      return checkBinary<Exact<GlobalReg, GlobalRegRecord>>(
          file, false, findings, [&](const GlobalRegRecord& record, const std::string& where) {
            duplicates.met(identityOf(record), where);
          });
    case Kind::Var:
      return checkLines<GenRegVarVal, VarValRecord>(
          file, findings, [&](const VarValRecord& record, const std::string& where) {
            if ((record.Contains & VARVAL_HAS_VARIABLE) == 0) return false;
            duplicates.met(record.Variable, where);
            return true;
          });
    default:
      return checkLines<GenRegServices, ServiceEntryRecord>(
          file, findings, [&](const ServiceEntryRecord& record, const std::string& where) {
            if ((record.Contains & SERVICES_HAS_SERVICE) == 0) return false;
            if ((record.Contains & SERVICES_BAD_PORT) != 0) {
              findings.add(Severity::Odd, where, "the port and protocol are not understood");
              return true;
            }
            duplicates.met(std::string(record.name) + "/" + record.protocol, where);
            return true;
          });
  }
}

}  // namespace zorreg
