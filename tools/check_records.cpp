// The records and lines of each flavour, one after the other.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>

#include "check_findings.h"
#include "genreg.h"
#include "global_fields.h"
#include "sysservices/environment.h"
#include "sysservices/file_system.h"

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

// Walks a binary registry; a record that cannot be unpacked is told and passed over, one that
// cannot be read ends the walk.
template <typename Record, typename Registry, typename Visit>
std::uint64_t checkRecords(Registry& registry, Findings& findings, Visit visit) {
  if (const unsigned int code = registry.OpenScan(); code != 0) {
    findings.addCode("registry file", code);
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
      findings.addCode(at(offset), code);
      if (code != GENREG_RC_UNPACK_FAILED) break;
    }
  }
  (void)registry.CloseScan();
  return whole;
}

std::string identityOf(const GlobalRegRecord& record) {
  const GlobalRegType* type = globalRegFindType(record.RecordType);
  const char* const names[] = {record.RecordType == GLOBALREG_RECORD_SERVICES ? "Service" : "",
                               record.RecordType == GLOBALREG_RECORD_INSTANCE ? "InstanceName" : "",
                               record.RecordType == GLOBALREG_RECORD_VARIABLE ? "Variable" : ""};
  std::string identity = type->name;
  for (std::size_t i = 0; i < type->fieldCount; ++i) {
    const GlobalRegField& field = type->fields[i];
    const bool names_it = std::any_of(std::begin(names), std::end(names), [&](const char* name) {
      return std::strcmp(name, field.name) == 0;
    });
    if (names_it && (record.FieldMask & field.bit) != 0) identity += " " + fieldText(field, record);
  }
  return identity;
}

// A flavour that shows how it parses a line.
template <typename Flavour, typename Record>
class LineParser : public Flavour {
 public:
  LineParser() : Flavour("check", nullptr) {}
  unsigned int parse(Record& record, char* line) { return this->UnpackRecord(&record, line); }
};

struct StreamCloser {
  void operator()(std::FILE* stream) const { (void)std::fclose(stream); }
};

bool holdsNul(std::FILE* stream) {
  for (int byte = std::getc(stream); byte != EOF; byte = std::getc(stream)) {
    if (byte == '\0') return true;
  }
  std::rewind(stream);
  return false;
}

// Walks the lines of a text registry.
template <typename Flavour, typename Record, typename Visit>
std::uint64_t checkLines(const std::string& file, Findings& findings, Visit visit) {
  const std::unique_ptr<std::FILE, StreamCloser> stream(ossFileOpenToRead(file.c_str()));
  if (stream == nullptr) {
    findings.addCode("registry file", GENREG_RC_OPEN_FAILED);
    return 0;
  }
  if (holdsNul(stream.get())) {
    findings.add(Severity::Odd, "registry file",
                 "holds NUL bytes: updates keep such lines as they are");
    std::rewind(stream.get());
  }
  LineParser<Flavour, Record> parser;
  char raw[GENREG_LINE_SIZE];
  char line[GENREG_LINE_SIZE];
  std::uint64_t records = 0;
  std::uint64_t number = 1;
  bool inside = false;  // a line that is longer than the buffer
  while (GenRegReadLine(raw, line, sizeof raw, stream.get(), nullptr, false) != nullptr) {
    const std::string where = "line " + std::to_string(number);
    const bool newline = std::strchr(raw, '\n') != nullptr;
    const bool cut = !newline && std::strlen(raw) == sizeof raw - 1;
    // A NUL may hide the newline, which only the end of the file can keep from being there.
    const bool ended = newline || (!cut && std::feof(stream.get()) == 0);
    if (cut && !inside) {
      findings.add(Severity::Odd, where, "longer than 2,046 characters: updates keep it as it is");
    } else if (!inside && !ended) {
      findings.add(Severity::Odd, where, "the last line lacks its newline: the next Add ends it");
    }
    Record record;
    if (!inside && !cut) {
      const unsigned int code = parser.parse(record, line);
      if (code == 0) {
        records += visit(record, where) ? 1 : 0;
      } else {
        const GenRegReturnCode* row = genRegFindReturnCode(code);
        findings.add(Severity::Odd, where,
                     std::string(row == nullptr ? "does not parse" : row->meaning) +
                         ": updates keep it as it is");
      }
    }
    inside = cut || (inside && !ended);
    if (ended) ++number;
  }
  if (std::ferror(stream.get()) != 0) findings.addCode("registry file", GENREG_RC_READ_FAILED);
  return records;
}

}  // namespace

std::uint64_t checkBinary(const std::string& file, Findings& findings) {
  unsigned int code = 0;
  GenRegBinVarVal registry(file.c_str(), &code);
  if (code != 0) findings.addCode("registry file", code);
  Duplicates duplicates(findings);
  return checkRecords<BinVarValRecord>(
      registry, findings, [&](const BinVarValRecord& record, const std::string& where) {
        const std::size_t length = ::strnlen(record.Variable, sizeof record.Variable);
        if (length == sizeof record.Variable) {
          findings.add(Severity::Odd, where, "the name has no end");
        }
        duplicates.met(std::string(record.Variable, length), where);
      });
}

std::uint64_t checkGlobal(const std::string& file, Findings& findings) {
  (void)ossEnvironmentSet("ZOR_GLOBAL_REG_PATHNAME", file.c_str());
  GlobalReg registry;
  Duplicates duplicates(findings);
  return checkRecords<GlobalRegRecord>(
      registry, findings, [&](const GlobalRegRecord& record, const std::string& where) {
        duplicates.met(identityOf(record), where);
      });
}

std::uint64_t checkVariables(const std::string& file, Findings& findings) {
  Duplicates duplicates(findings);
  return checkLines<GenRegVarVal, VarValRecord>(
      file, findings, [&](const VarValRecord& record, const std::string& where) {
        if ((record.Contains & VARVAL_HAS_VARIABLE) == 0) return false;
        duplicates.met(record.Variable, where);
        return true;
      });
}

std::uint64_t checkServices(const std::string& file, Findings& findings) {
  Duplicates duplicates(findings);
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

}  // namespace zorreg
