// The records and lines of each flavour, one after the other.
#include <cstdint>
#include <map>

#include "check_findings.h"
#include "faces/line_parser.h"
#include "faces/record_fields.h"
#include "file_content.h"
#include "genreg.h"
#include "record_words.h"

namespace tool {
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
template <typename Flavour, typename Record, typename Visit>
std::uint64_t checkBinary(const std::string& file, bool bigEndian, Findings& findings,
                          Visit visit) {
  unsigned int opened = 0;
  Flavour registry(file.c_str(), &opened);
  if (bigEndian) (void)registry.setFeature(GENREG_BIG_ENDIAN_LENGTH);
  if (opened == 0) opened = registry.OpenScan();
  if (opened != 0) {
    findings.addCode("registry file", opened);
    return 0;
  }
  std::uint64_t whole = 0;
  for (;;) {
    std::int64_t offset = 0;
    (void)registry.getRegFilePosition(&offset);
    Record key{};
    Record record;
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

// Walks the lines of a text registry.
template <typename Visit>
std::uint64_t checkLines(const std::string& file, Kind kind, Findings& findings, Visit visit) {
  std::string text;
  if (!readContent(file, std::string::npos, text)) {
    findings.addCode("registry file", GENREG_RC_OPEN_FAILED);
    return 0;
  }
  const faces::LineParser parser(nameOf(kind));
  std::uint64_t records = 0;
  forEachLine(text, [&](const TextLine& line) {
    const std::string where = "line " + std::to_string(line.number);
    const auto odd = [&](const std::string& what) { findings.add(Severity::Odd, where, what); };
    if (line.isTooLong()) return odd("longer than 2,046 characters: updates keep it as it is");
    if (line.holdsNul()) odd("holds NUL bytes: updates keep it as it is");
    if (!line.ended) odd("the last line lacks its newline: the next Add ends it");
    const faces::LineParser::Line parsed = parser.parse(line.bytes.c_str());
    if (parsed.code != 0) {
      const GenRegReturnCode* row = genRegFindReturnCode(parsed.code);
      odd(std::string(row == nullptr ? "does not parse" : row->meaning) +
          ": updates keep it as it is");
    } else if (parsed.isEntry) {
      ++records;
      if (parsed.isOdd) return odd("the port and protocol are not understood");
      visit(parsed.fields, where);
    }
  });
  return records;
}

// What a global record is: its type and the fields by which two records are the same thing.
std::string identityOf(const GlobalRegRecord& record) {
  const GlobalRegType* type = globalRegFindType(record.RecordType);
  const std::uint64_t identity = faces::identityOf(record);
  const faces::NamedFields fields = faces::fieldsOf(record);
  faces::NamedFields shown;
  if (type == nullptr) return std::to_string(record.RecordType);
  shown.set("Type", type->name);
  for (std::size_t i = 0; i < type->fieldCount; ++i) {
    const GlobalRegField& field = type->fields[i];
    const std::string* value = fields.find(field.name);
    if (value != nullptr && (field.bit & identity) != 0) shown.set(field.name, *value);
  }
  return cellsOf(Kind::Global, shown).front();
}

}  // namespace

std::uint64_t checkRecords(const std::string& file, const Guess& guess, Findings& findings) {
  Duplicates duplicates(findings);
  switch (guess.kind) {
    case Kind::Bin:
      return checkBinary<GenRegBinVarVal, BinVarValRecord>(
          file, guess.bigEndian, findings,
          [&](const BinVarValRecord& record, const std::string& where) {
            const std::size_t length = ::strnlen(record.Variable, sizeof record.Variable);
            if (length == sizeof record.Variable) {
              findings.add(Severity::Odd, where, "the name has no end");
            }
            duplicates.met(std::string(record.Variable, length), where);
          });
    case Kind::Global:
      return checkBinary<GlobalReg, GlobalRegRecord>(
          file, false, findings, [&](const GlobalRegRecord& record, const std::string& where) {
            duplicates.met(identityOf(record), where);
          });
    case Kind::Var:
      return checkLines(file, guess.kind, findings,
                        [&](const faces::NamedFields& record, const std::string& where) {
                          duplicates.met(*record.find("Variable"), where);
                        });
    default:
      return checkLines(file, guess.kind, findings,
                        [&](const faces::NamedFields& record, const std::string& where) {
                          const std::string* protocol = record.find("Protocol");
                          duplicates.met(
                              *record.find("Name") + "/" + (protocol == nullptr ? "" : *protocol),
                              where);
                        });
  }
}

}  // namespace tool
