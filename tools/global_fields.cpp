#include "global_fields.h"

#include <cstring>

#include "faces/record_fields.h"
#include "field_json.h"

namespace zorreg {
namespace {

constexpr JsonMember checkSum{"checkSum", "CheckSum", JsonMember::Number, true};
constexpr JsonMember unknownFields{"unknownFields", "UnknownFields", JsonMember::Words, true};

const GlobalRegField* fieldNamed(const GlobalRegType& type, const std::string& name) {
  for (std::size_t i = 0; i < type.fieldCount; ++i) {
    if (name == type.fields[i].name) return &type.fields[i];
  }
  return nullptr;
}

// But for those that are written with dots.
bool isNumber(const GlobalRegField& field) {
  return field.kind != GlobalRegFieldKind::Text && std::strcmp(field.name, "VersionCode") != 0;
}

// Hands every field of the record's type that it holds to `visit`, with its value.
template <typename Visit>
void forEachPresent(const GlobalRegRecord& record, Visit visit) {
  const GlobalRegType* type = globalRegFindType(record.RecordType);
  const faces::NamedFields fields = faces::fieldsOf(record);
  for (const auto& [name, value] : fields.all()) {
    const GlobalRegField* field = type == nullptr ? nullptr : fieldNamed(*type, name);
    if (field != nullptr) visit(*field, value);
  }
}

std::string typeName(const GlobalRegRecord& record) {
  const GlobalRegType* type = globalRegFindType(record.RecordType);
  return type == nullptr ? std::to_string(record.RecordType) : type->name;
}

std::string setField(const std::string& value, const GlobalRegType& type,
                     const GlobalRegField& field, GlobalRegRecord& record) {
  faces::NamedFields given;
  faces::Made<GlobalRegRecord> made;
  given.set("Type", type.name);
  given.set(field.name, value);
  if (const faces::Complaint wrong = faces::makeRecord(given, &record, made)) {
    return "'" + printable(value) + "': " + wrong.cause;
  }
  record = made.record;
  return {};
}

}  // namespace

std::string setFields(const std::vector<std::string>& words, const GlobalRegType& type,
                      bool mayTakeAway, GlobalRegRecord& record) {
  std::uint64_t given = 0;
  for (const std::string& word : words) {
    const std::size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    const GlobalRegField* field = fieldNamed(type, name);
    if (equals == std::string::npos || field == nullptr) {
      std::string wrong = "'" + printable(word) + "' is no FIELD=VALUE of a record of type ";
      wrong.append(type.name).append(", which has");
      for (std::size_t i = 0; i < type.fieldCount; ++i) {
        wrong.append(" ").append(type.fields[i].name);
      }
      return wrong;
    }
    const std::string value = word.substr(equals + 1);
    if (value.empty() && !mayTakeAway) return name + " has no value";
    if ((given & field->bit) != 0) return name + " is given twice";
    given |= field->bit;
    std::string wrong = setField(value, type, *field, record);
    if (!wrong.empty()) return wrong;
  }
  return {};
}

std::string identityOf(const GlobalRegRecord& record) {
  const std::uint64_t identity = faces::identityOf(record);
  std::string words = typeName(record);
  forEachPresent(record, [&](const GlobalRegField& field, const std::string& value) {
    if ((field.bit & identity) != 0) words += std::string(" ") + field.name + "=" + value;
  });
  return words;
}

Row rowOf(const GlobalRegRecord& record) {
  const faces::NamedFields held = faces::fieldsOf(record);
  std::string line = typeName(record);
  Json fields = Json::object();
  forEachPresent(record, [&](const GlobalRegField& field, const std::string& value) {
    const std::string shown = printable(value);
    const bool quoted = shown.find(' ') != std::string::npos;
    line += std::string("  ") + field.name + "=" + (quoted ? "\"" + shown + "\"" : shown);
    fields[field.name] = isNumber(field) ? Json::parse(value) : Json(value);
  });
  Json rest = jsonOf(held, std::initializer_list<JsonMember>{unknownFields, checkSum});
  for (const Json& bit : rest["unknownFields"]) {
    line += "  unknown field " + bit.get<std::string>();
  }
  Json json{{"type", typeName(record)}, {"fields", fields}};
  json.update(rest);
  return {{line}, json};
}

}  // namespace zorreg
