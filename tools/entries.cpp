#include "entries.h"

#include "genreg.h"
#include "store.h"

namespace tool {
namespace {

// The identifying fields of a record's type, or all of a record that has none of them.
std::string globalIdentity(const faces::NamedFields& record) {
  const std::string* const name = record.find("Type");
  std::string identity = name == nullptr ? "" : *name;
  std::string all = identity;
  bool isNamed = false;
  for (const GlobalRegType& type : globalRegTypes) {
    if (identity != type.name) continue;
    for (std::size_t i = 0; i < type.fieldCount; ++i) {
      const std::string* const value = record.find(type.fields[i].name);
      if (value == nullptr) continue;
      const std::string word = std::string("\n") + type.fields[i].name + "=" + *value;
      const bool isIdentity = (type.fields[i].bit & type.identity) != 0;
      all += word;
      if (isIdentity) identity += word;
      isNamed = isNamed || isIdentity;
    }
    break;
  }
  return isNamed ? identity : all;
}

}  // namespace

std::string identityOf(Kind kind, const faces::NamedFields& record) {
  if (kind == Kind::Global) return globalIdentity(record);
  std::string identity;
  for (const char* field : {"Variable", "Name", "Protocol"}) {
    if (const std::string* value = record.find(field); value != nullptr) identity += *value + "\n";
  }
  return identity;
}

Entries readEntries(Kind kind, const Words& words) {
  Entries entries;
  Store store(kind, words);
  if (store.status() != exitDone) {
    entries.code = GENREG_RC_OPEN_FAILED;
    return entries;
  }
  Registry& registry = store.registry();
  faces::NamedFields record;
  unsigned int code = registry.scan();
  while (code == 0 && (code = registry.next(record)) == 0) {
    entries.all.push_back({identityOf(kind, record), record});
  }
  if (code != GENREG_RC_END) {
    entries.code = code;
    entries.cause = registry.cause();
  }
  (void)registry.endScan();
  return entries;
}

}  // namespace tool
