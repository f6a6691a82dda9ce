#include "global_fields.h"

#include <charconv>
#include <cstdio>
#include <cstring>

#include "faces/versions.h"

namespace zorreg {
namespace {

bool isVersion(const GlobalRegField& field) { return std::strcmp(field.name, "VersionCode") == 0; }

unsigned char* memoryOf(const GlobalRegField& field, GlobalRegRecord& record) {
  return reinterpret_cast<unsigned char*>(&record) + field.offset;
}

// Numbers of every width pass through the widest; this is a little-endian library.
std::uint64_t numberOf(const GlobalRegField& field, const GlobalRegRecord& record) {
  std::uint64_t number = 0;
  std::memcpy(&number, reinterpret_cast<const unsigned char*>(&record) + field.offset, field.width);
  return number;
}

bool parseNumber(const char* begin, const char* end, std::uint64_t largest, std::uint64_t& number) {
  const auto [stop, error] = std::from_chars(begin, end, number);
  return error == std::errc() && stop == end && number <= largest;
}

std::string setField(const std::string& value, const GlobalRegField& field,
                     GlobalRegRecord& record) {
  unsigned char* memory = memoryOf(field, record);
  std::memset(memory, 0, field.width);
  record.FieldMask &= ~field.bit;
  if (value.empty()) return {};
  if (field.kind == GlobalRegFieldKind::Text) {
    if (value.size() >= field.width) {
      return std::string(field.name) + " has at most " + std::to_string(field.width - 1) + " bytes";
    }
    (void)value.copy(reinterpret_cast<char*>(memory), value.size());
  } else {
    const std::uint64_t largest = field.kind == GlobalRegFieldKind::Flag ? 1
                                  : field.width == 8                     ? ~std::uint64_t{0}
                                                     : (std::uint64_t{1} << (8 * field.width)) - 1;
    std::uint64_t number = 0;
    const bool ok = isVersion(field)
                        ? faces::parseDotted(value, number)
                        : parseNumber(value.data(), value.data() + value.size(), largest, number);
    if (!ok) {
      return "'" + printable(value) + "': " + field.name +
             (isVersion(field) ? " is up to four numbers below 65536 with dots between them"
                               : " is a number from 0 to " + std::to_string(largest));
    }
    std::memcpy(memory, &number, field.width);
  }
  record.FieldMask |= field.bit;
  return {};
}

std::string hexadecimal(std::uint64_t number) {
  char text[24];
  (void)std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(number));
  return text;
}

// The bits of fields that this version does not know, lowest first.
std::vector<std::string> unknownFields(const GlobalRegRecord& record) {
  const GlobalRegType* type = globalRegFindType(record.RecordType);
  std::vector<std::string> bits;
  for (std::uint64_t left = record.FieldMask & ~(type == nullptr ? 0 : type->knownMask); left != 0;
       left &= left - 1) {
    bits.push_back(hexadecimal(left & (~left + 1)));
  }
  return bits;
}

template <typename Visit>
void forEachPresent(const GlobalRegRecord& record, Visit visit) {
  const GlobalRegType* type = globalRegFindType(record.RecordType);
  for (std::size_t i = 0; type != nullptr && i < type->fieldCount; ++i) {
    if ((record.FieldMask & type->fields[i].bit) != 0) visit(type->fields[i]);
  }
}

std::string typeName(const GlobalRegRecord& record) {
  const GlobalRegType* type = globalRegFindType(record.RecordType);
  return type == nullptr ? std::to_string(record.RecordType) : type->name;
}

std::string fieldText(const GlobalRegField& field, const GlobalRegRecord& record) {
  if (field.kind == GlobalRegFieldKind::Text) {
    const char* text = reinterpret_cast<const char*>(&record) + field.offset;
    return {text, ::strnlen(text, field.width)};
  }
  const std::uint64_t number = numberOf(field, record);
  return isVersion(field) ? faces::versionText(number) : std::to_string(number);
}

}  // namespace

std::string setFields(const std::vector<std::string>& words, const GlobalRegType& type,
                      bool mayTakeAway, GlobalRegRecord& record) {
  std::uint64_t given = 0;
  for (const std::string& word : words) {
    const std::size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    const GlobalRegField* field = nullptr;
    std::string known;
    for (std::size_t i = 0; i < type.fieldCount; ++i) {
      if (name == type.fields[i].name) field = &type.fields[i];
      known += std::string(" ") + type.fields[i].name;
    }
    if (equals == std::string::npos || field == nullptr) {
      return "'" + printable(word) + "' is no FIELD=VALUE of a record of type " + type.name +
             ", which has" + known;
    }
    const std::string value = word.substr(equals + 1);
    if (value.empty() && !mayTakeAway) return name + " has no value";
    if ((given & field->bit) != 0) return name + " is given twice";
    given |= field->bit;
    std::string wrong = setField(value, *field, record);
    if (!wrong.empty()) return wrong;
  }
  return {};
}

std::string identityOf(const GlobalRegRecord& record) {
  const GlobalRegType* type = globalRegFindType(record.RecordType);
  std::uint64_t identity = type == nullptr ? 0 : type->identity & record.FieldMask;
  if (identity == 0) identity = record.FieldMask;
  std::string words = typeName(record);
  forEachPresent(record, [&](const GlobalRegField& field) {
    if ((field.bit & identity) != 0) {
      words += std::string(" ") + field.name + "=" + fieldText(field, record);
    }
  });
  return words;
}

Row rowOf(const GlobalRegRecord& record) {
  std::string line = typeName(record);
  Json fields = Json::object();
  forEachPresent(record, [&](const GlobalRegField& field) {
    const std::string text = fieldText(field, record);
    const std::string shown = printable(text);
    const bool quoted = shown.find(' ') != std::string::npos;
    line += std::string("  ") + field.name + "=" + (quoted ? "\"" + shown + "\"" : shown);
    const bool isText = field.kind == GlobalRegFieldKind::Text || isVersion(field);
    fields[field.name] = isText ? Json(text) : Json(numberOf(field, record));
  });
  for (const std::string& bit : unknownFields(record)) line += "  unknown field " + bit;
  return {{line},
          {{"type", typeName(record)},
           {"fields", fields},
           {"unknownFields", unknownFields(record)},
           {"checkSum", record.CheckSum}}};
}

}  // namespace zorreg
