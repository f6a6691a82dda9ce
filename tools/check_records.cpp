#include "check_records.h"

#include <cstring>
#include <map>

#include "faces/line_parser.h"
#include "faces/record_fields.h"
#include "genreg.h"
#include "record_words.h"
#include "sysservices/file_system.h"

namespace tool {
namespace {

std::string at(std::int64_t offset) { return "offset " + std::to_string(offset); }

// Names that were met, and where first. Records of one name are one thing that was said twice where
// the kind allows that; else an update refuses to choose.
class Repeats {
 public:
  Repeats(bool areAllowed, Findings& findings) : areAllowed_(areAllowed), findings_(findings) {}
  void met(const std::string& name, const std::string& where) {
    const auto [first, isNew] = seen_.emplace(name, where);
    if (isNew) return;
    findings_.add(areAllowed_ ? Topic::Odd : Topic::Repeated, where,
                  "the same name as at " + first->second + ": " + name,
                  areAllowed_ ? "nothing; an update changes them all"
                              : "remove one of them, naming what they differ in, or with edit");
  }

 private:
  bool areAllowed_;
  Findings& findings_;
  std::map<std::string, std::string> seen_;
};

bool askInfo(const std::string& file, OSSFileInfo& info) {
  const OSSFileInfoRequest request{OSS_PARAM_LEVEL, file.c_str()};
  return ossFileGetInfoV9(&request, &info) == OSS_RC_OK;
}

// What stands behind the last record of a scan that ends at `offset`. A file that was changed since
// is not looked at.
void checkEnd(const std::string& file, const OSSFileInfo& opened, std::int64_t offset,
              Findings& findings) {
  OSSFileInfo now{};
  const auto end = static_cast<std::uint64_t>(offset);
  if (!askInfo(file, now) || !now.isUntouched(opened) || now.size <= end) return;
  findings.add(Topic::LeftOver, at(offset),
               std::to_string(now.size - end) + " bytes of an append that did not finish",
               "nothing; the next update leaves them out");
}

// Walks a binary registry; a record that cannot be unpacked is reported and passed over, one that
// cannot be read ends the walk.
template <typename Flavour, typename Record, typename Visit>
std::uint64_t checkBinary(const std::string& file, bool bigEndian, Findings& findings,
                          Visit visit) {
  unsigned int opened = 0;
  Flavour registry(file.c_str(), &opened);
  if (bigEndian) (void)registry.setFeature(GENREG_BIG_ENDIAN_LENGTH);
  OSSFileInfo info{};
  const bool isKnown = askInfo(file, info);
  if (opened == 0) opened = registry.OpenScan();
  if (opened != 0) {
    findings.addNotOpened(file, opened);
    return 0;
  }
  std::uint64_t whole = 0;
  for (;;) {
    std::int64_t offset = 0;
    (void)registry.getRegFilePosition(&offset);
    Record key{};
    Record record;
    const unsigned int code = registry.GetNext(0, &key, &record);
    if (code == GENREG_RC_END) {
      if (isKnown) checkEnd(file, info, offset, findings);
      break;
    }
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
std::uint64_t checkLines(const RegistryFiles& files, Kind kind, Findings& findings, Visit visit) {
  std::string text;
  // The file may be renamed between the two steps of a commit without hard links.
  if (!readContent(files.content(), std::string::npos, text) &&
      !readContent(files.content(), std::string::npos, text)) {
    findings.addNotOpened(files.registry, GENREG_RC_OPEN_FAILED);
    return 0;
  }
  const faces::LineParser parser(nameOf(kind));
  std::uint64_t records = 0;
  forEachLine(text, [&](const TextLine& line) {
    const std::string where = "line " + std::to_string(line.number);
    const auto odd = [&](const std::string& what, const char* action) {
      findings.add(Topic::Odd, where, what, action);
    };
    constexpr const char* kept = "nothing, if it is meant; updates keep it as it is";
    if (line.isTooLong()) return odd("longer than 2,046 characters", "shorten it: no Add is done");
    if (line.holdsNul()) odd("holds NUL bytes", kept);
    if (!line.ended) odd("the last line lacks its newline", "nothing; the next Add ends it");
    const faces::LineParser::Line parsed =
        parser.parse(line.bytes.substr(0, line.bytes.find('\0')));
    if (parsed.code != 0) {
      const GenRegReturnCode* row = genRegFindReturnCode(parsed.code);
      odd(row == nullptr ? "does not parse" : row->meaning, kept);
    } else if (parsed.isEntry) {
      ++records;
      if (parsed.isOdd) return odd("the port and protocol are not understood", kept);
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

std::uint64_t checkRecords(const RegistryFiles& files, const Checked& checked, Findings& findings) {
  // Services of one name and protocol, and global records of one identity, are to be one.
  Repeats repeats(checked.kind == Kind::Bin || checked.kind == Kind::Var, findings);
  switch (checked.kind) {
    case Kind::Bin:
      return checkBinary<GenRegBinVarVal, BinVarValRecord>(
          files.registry, checked.bigEndian, findings,
          [&](const BinVarValRecord& record, const std::string& where) {
            const std::size_t length = ::strnlen(record.Variable, sizeof record.Variable);
            if (length == sizeof record.Variable) {
              findings.add(Topic::Odd, where, "the name has no end",
                           "nothing, if another program means it so");
            }
            repeats.met(std::string(record.Variable, length), where);
          });
    case Kind::Global:
      return checkBinary<GlobalReg, GlobalRegRecord>(
          files.registry, false, findings,
          [&](const GlobalRegRecord& record, const std::string& where) {
            repeats.met(identityOf(record), where);
          });
    case Kind::Var:
      return checkLines(files, checked.kind, findings,
                        [&](const faces::NamedFields& record, const std::string& where) {
                          repeats.met(*record.find("Variable"), where);
                        });
    default:
      return checkLines(
          files, checked.kind, findings,
          [&](const faces::NamedFields& record, const std::string& where) {
            const std::string* protocol = record.find("Protocol");
            repeats.met(*record.find("Name") + "/" + (protocol == nullptr ? "" : *protocol), where);
          });
  }
}

}  // namespace tool
