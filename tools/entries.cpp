#include "entries.h"

#include "exact_registry.h"
#include "faces/record_fields.h"
#include "field_json.h"
#include "file_content.h"
#include "global_fields.h"
#include "sysservices/file_system.h"

namespace zorreg {
namespace {

constexpr JsonMember binMembers[] = {{"name", "Variable", JsonMember::Text, true},
                                     {"value", "Value", JsonMember::Number, true},
                                     {"comment", "Comment", JsonMember::Text, false}};
constexpr JsonMember varMembers[] = {{"name", "Variable", JsonMember::Text, true},
                                     {"value", "Value", JsonMember::Text, true},
                                     {"comment", "Comment", JsonMember::Text, false}};
constexpr JsonMember servicesMembers[] = {{"name", "Name", JsonMember::Text, true},
                                          {"port", "Port", JsonMember::Number, true},
                                          {"protocol", "Protocol", JsonMember::Text, true},
                                          {"aliases", "Aliases", JsonMember::Words, true},
                                          {"comment", "Comment", JsonMember::Text, false}};

std::string valueOf(const faces::NamedFields& fields, const char* name) {
  const std::string* const value = fields.find(name);
  return value == nullptr ? "" : *value;
}

Row rowOf(const faces::NamedFields& fields, std::initializer_list<const char*> cells, Json json) {
  Row row{{}, std::move(json)};
  for (const char* cell : cells) row.cells.push_back(printable(valueOf(fields, cell)));
  return row;
}

bool takeEntry(const BinVarValRecord& record, Entry& entry) {
  const faces::NamedFields fields = faces::fieldsOf(record);
  entry = {valueOf(fields, "Variable"),
           rowOf(fields, {"Variable", "Value", "Comment"}, jsonOf(fields, binMembers))};
  return true;
}

bool takeEntry(const VarValRecord& record, Entry& entry) {
  if ((record.Contains & VARVAL_HAS_VARIABLE) == 0) return false;
  const faces::NamedFields fields = faces::fieldsOf(record);
  entry = {valueOf(fields, "Variable"),
           rowOf(fields, {"Variable", "Value", "Comment"}, jsonOf(fields, varMembers))};
  return true;
}

bool takeEntry(const ServiceEntryRecord& record, Entry& entry) {
  if ((record.Contains & SERVICES_HAS_SERVICE) == 0) return false;
  faces::NamedFields fields = faces::fieldsOf(record);
  const bool odd = (record.Contains & SERVICES_BAD_PORT) != 0 || record.protocol == nullptr;
  Json json = jsonOf(fields, servicesMembers);
  if (odd) json["understood"] = false;
  const std::string protocol = valueOf(fields, "Protocol");
  fields.set("Port", valueOf(fields, "Port") + "/" + protocol + (odd ? " ?" : ""));
  entry = {valueOf(fields, "Name") + "/" + protocol,
           rowOf(fields, {"Name", "Port", "Aliases", "Comment"}, std::move(json))};
  return true;
}

bool takeEntry(const GlobalRegRecord& record, Entry& entry) {
  entry = {identityOf(record), zorreg::rowOf(record)};
  return true;
}

template <typename Registry>
Entries read(const std::string& file, bool bigEndian) {
  Entries entries;
  Registry registry(file);
  if (bigEndian) (void)registry.setFeature(GENREG_BIG_ENDIAN_LENGTH);
  unsigned int code = registry.opened != 0 ? registry.opened : registry.OpenScan();
  if (code == GENREG_RC_OPEN_FAILED && !ossPathExists(RegistryFiles(file).content().c_str())) {
    entries.code = GENREG_RC_NO_FILE;
    return entries;
  }
  typename Registry::Record key{};
  typename Registry::Record record;
  Entry entry;
  while (code == 0) {
    code = registry.GetNext(0, &key, &record);
    if (code == 0 && takeEntry(record, entry)) entries.all.push_back(entry);
  }
  if (code != GENREG_RC_END) {
    entries.code = code;
    entries.cause = registry.getLastCause();
  }
  (void)registry.CloseScan();
  return entries;
}

}  // namespace

Entries readEntries(const std::string& file, Kind kind, bool bigEndian) {
  switch (kind) {
    case Kind::Bin:
      return read<Exact<GenRegBinVarVal, BinVarValRecord>>(file, bigEndian);
    case Kind::Global:
      return read<Exact<GlobalReg, GlobalRegRecord>>(file, false);
    case Kind::Var:
      return read<Exact<GenRegVarVal, VarValRecord>>(file, false);
    default:
      return read<Exact<GenRegServices, ServiceEntryRecord>>(file, false);
  }
}

}  // namespace zorreg
