#include "faces/record_fields.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <limits>

#include "faces/unknown_fields.h"
#include "faces/versions.h"

namespace faces {
namespace {

Complaint unsuitable(std::string cause, const std::string& value) {
  return {GENREG_RC_BAD_VALUE, std::move(cause), value};
}

template <typename Record>
Complaint unknownField(const std::string& name) {
  std::string cause = name + ": no field of kind ";
  cause += std::string(nameOf(KindOf<Record>::kind)) + ", which has";
  for (const FieldRow& row : KindOf<Record>::fields) cause += std::string(" ") + row.name;
  return {GENREG_RC_UNKNOWN_FIELD, cause, std::nullopt};
}

template <typename Number>
bool parseNumber(const std::string& text, Number& number) {
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end;
}

template <typename Number>
Complaint takeNumber(const char* field, const std::string& text, Number& number,
                     Number least = std::numeric_limits<Number>::min()) {
  if (parseNumber(text, number) && number >= least) return {};
  return unsuitable(std::string(field) + " is a whole number from " + std::to_string(least) +
                        " to " + std::to_string(std::numeric_limits<Number>::max()),
                    text);
}

// A text that is as long as its field may be, and a terminator, without which another program may
// have stored what a key looks for; what was behind it goes, too.
Complaint takeText(const char* field, const std::string& text, char* memory, std::size_t size,
                   Use use) {
  if (text.size() >= size + (use == Use::Key ? 1 : 0)) {
    return unsuitable(std::string(field) + " holds at most " + std::to_string(size - 1) + " bytes",
                      text);
  }
  std::memset(memory, 0, size);
  (void)text.copy(memory, text.size());
  return {};
}

std::string textIn(const char* memory, std::size_t size) {
  return {memory, ::strnlen(memory, size)};
}

bool isKnown(const FieldRow* begin, const FieldRow* end, const std::string& name) {
  for (const FieldRow* row = begin; row != end; ++row) {
    if (name == row->name) return true;
  }
  return false;
}

// All fields of a line, the given ones before those that were found.
template <typename Record>
Complaint mergeLine(const NamedFields& given, const Record* found, NamedFields& texts) {
  if (found != nullptr) texts = fieldsOf(*found);
  const auto& rows = KindOf<Record>::fields;
  for (const auto& [name, value] : given.all()) {
    if (!isKnown(std::begin(rows), std::end(rows), name)) return unknownField<Record>(name);
    if (value.find_first_of("\r\n") != std::string::npos) {
      return unsuitable(name + " is one line", value);
    }
    texts.set(name, value);
  }
  return {};
}

const char* pointerTo(const NamedFields& texts, const char* name) {
  const std::string* text = texts.find(name);
  return text == nullptr ? nullptr : text->c_str();
}

// A comment that is given as an empty one is to go; one that was found empty stays.
const char* commentIn(const NamedFields& texts, const NamedFields& given) {
  const std::string* comment = texts.find("Comment");
  const bool goes = comment == nullptr || (comment->empty() && given.has("Comment"));
  return goes ? nullptr : comment->c_str();
}

std::vector<std::string> wordsOf(const std::string& text) {
  std::vector<std::string> words;
  for (std::size_t at = 0; (at = text.find_first_not_of(" \t", at)) != std::string::npos;) {
    const std::size_t end = std::min(text.find_first_of(" \t", at), text.size());
    words.push_back(text.substr(at, end - at));
    at = end;
  }
  return words;
}

std::uint16_t swapped(std::uint16_t port) {
  const unsigned char bytes[] = {static_cast<unsigned char>(port >> 8),
                                 static_cast<unsigned char>(port)};
  std::uint16_t other;
  std::memcpy(&other, bytes, sizeof other);
  return other;
}

// --- the global registry ---

bool isVersion(const GlobalRegField& field) { return std::strcmp(field.name, "VersionCode") == 0; }

char* memoryOf(const GlobalRegField& field, GlobalRegRecord& record) {
  return reinterpret_cast<char*>(&record) + field.offset;
}
const char* memoryOf(const GlobalRegField& field, const GlobalRegRecord& record) {
  return reinterpret_cast<const char*>(&record) + field.offset;
}

// Numbers of every width pass through the widest; this is a little-endian library.
std::uint64_t numberIn(const GlobalRegField& field, const GlobalRegRecord& record) {
  std::uint64_t number = 0;
  std::memcpy(&number, memoryOf(field, record), field.width);
  return number;
}

std::string valueOf(const GlobalRegField& field, const GlobalRegRecord& record) {
  if (field.kind == GlobalRegFieldKind::Text) {
    return textIn(memoryOf(field, record), field.width);
  }
  const std::uint64_t number = numberIn(field, record);
  return isVersion(field) ? versionText(number) : std::to_string(number);
}

std::uint64_t largestOf(const GlobalRegField& field) {
  if (field.kind == GlobalRegFieldKind::Flag) return 1;
  return field.width == 8 ? ~std::uint64_t{0} : (std::uint64_t{1} << (8 * field.width)) - 1;
}

// An empty value takes the field away.
Complaint takeField(const GlobalRegField& field, const std::string& value,
                    GlobalRegRecord& record) {
  char* const memory = memoryOf(field, record);
  std::uint64_t number = 0;
  if (field.kind == GlobalRegFieldKind::Text || value.empty()) {
    if (Complaint wrong = takeText(field.name, value, memory, field.width, Use::Store))
      return wrong;
  } else if (isVersion(field) ? !parseDotted(value, number)
                              : !parseNumber(value, number) || number > largestOf(field)) {
    return unsuitable(
        std::string(field.name) +
            (isVersion(field) ? " is up to four numbers below 65536 with dots between them"
                              : " is a number from 0 to " + std::to_string(largestOf(field))),
        value);
  } else {
    std::memcpy(memory, &number, field.width);
  }
  record.FieldMask = value.empty() ? record.FieldMask & ~field.bit : record.FieldMask | field.bit;
  return {};
}

std::uint64_t unknownIn(const GlobalRegRecord& record, const GlobalRegType& type) {
  return record.FieldMask & ~type.knownMask;
}

std::string bitsText(std::uint64_t bits) {
  std::string text;
  for (; bits != 0; bits &= bits - 1) {
    char bit[24];
    (void)std::snprintf(bit, sizeof bit, "%s0x%llx", text.empty() ? "" : " ",
                        static_cast<unsigned long long>(bits & (~bits + 1)));
    text += bit;
  }
  return text;
}

// What stands in such a field is carried over from a record that is there.
Complaint takeUnknown(const std::string& name, const std::string& value, std::uint64_t bit,
                      GlobalRegRecord& record) {
  std::string content;
  if (!takeContent(value, bit, content)) {
    return unsuitable(name + " holds bytes as \"0x\" and two digits for each", value);
  }
  record.FieldMask |= bit;
  return {};
}

const GlobalRegType* typeNamed(const std::string& name) {
  for (const GlobalRegType& type : globalRegTypes) {
    if (name == type.name) return &type;
  }
  return nullptr;
}

const GlobalRegField* fieldNamed(const GlobalRegType& type, const std::string& name) {
  for (std::size_t i = 0; i < type.fieldCount; ++i) {
    if (name == type.fields[i].name) return &type.fields[i];
  }
  return nullptr;
}

Complaint unknownField(const GlobalRegType& type, const std::string& name) {
  std::string cause = name + ": no field of a record of type " + type.name + ", which has";
  for (std::size_t i = 0; i < type.fieldCount; ++i) cause += std::string(" ") + type.fields[i].name;
  return {GENREG_RC_UNKNOWN_FIELD, cause + " CheckSum", std::nullopt};
}

Complaint findType(const NamedFields& given, const GlobalRegRecord* found,
                   const GlobalRegType** type) {
  const std::string* const name = given.find("Type");
  *type = found == nullptr ? nullptr : globalRegFindType(found->RecordType);
  if (name == nullptr) {
    if (*type != nullptr) return {};
    return {GENREG_RC_FIELD_MISSING, "Type is missing", std::nullopt};
  }
  const GlobalRegType* const named = typeNamed(*name);
  if (named == nullptr) return unsuitable("Type is instance, services or variable", *name);
  if (*type != nullptr && *type != named) {
    return unsuitable("Type of a record cannot be changed", *name);
  }
  *type = named;
  return {};
}

}  // namespace

NamedFields fieldsOf(const BinVarValRecord& record) {
  NamedFields fields;
  fields.set("Variable", textIn(record.Variable, sizeof record.Variable));
  fields.set("Value", std::to_string(record.Value));
  const std::string comment = textIn(record.Comment, sizeof record.Comment);
  if (!comment.empty()) fields.set("Comment", comment);
  return fields;
}

NamedFields fieldsOf(const VarValRecord& record) {
  NamedFields fields;
  if (record.Variable != nullptr) fields.set("Variable", record.Variable);
  if (record.Value != nullptr) fields.set("Value", record.Value);
  if (record.Comment != nullptr) fields.set("Comment", bareComment(record.Comment));
  return fields;
}

NamedFields fieldsOf(const ServiceEntryRecord& record) {
  NamedFields fields;
  if (record.name != nullptr) fields.set("Name", record.name);
  fields.set("Port", std::to_string(swapped(record.port)));
  if (record.protocol != nullptr) fields.set("Protocol", record.protocol);
  std::string aliases;
  for (const char** alias = record.aliases; alias != nullptr && *alias != nullptr; ++alias) {
    aliases += (aliases.empty() ? "" : " ") + std::string(*alias);
  }
  if (!aliases.empty()) fields.set("Aliases", aliases);
  if (record.comment != nullptr) fields.set("Comment", bareComment(record.comment));
  return fields;
}

NamedFields fieldsOf(const GlobalRegRecord& record) {
  NamedFields fields;
  const GlobalRegType* const type = globalRegFindType(record.RecordType);
  if (type == nullptr) return fields;
  fields.set("Type", type->name);
  for (std::size_t i = 0; i < type->fieldCount; ++i) {
    const GlobalRegField& field = type->fields[i];
    if ((record.FieldMask & field.bit) != 0) fields.set(field.name, valueOf(field, record));
  }
  fields.set("CheckSum", std::to_string(record.CheckSum));
  const std::uint64_t unknown = unknownIn(record, *type);
  if (unknown != 0) fields.set("UnknownFields", bitsText(unknown));
  return fields;
}

std::uint64_t identityOf(const GlobalRegRecord& record) noexcept {
  const GlobalRegType* const type = globalRegFindType(record.RecordType);
  const std::uint64_t identity = type == nullptr ? 0 : type->identity & record.FieldMask;
  return identity != 0 ? identity : record.FieldMask;
}

Complaint makeRecord(const NamedFields& given, const BinVarValRecord* found,
                     Made<BinVarValRecord>& made, Use use) {
  BinVarValRecord& record = made.record;
  if (found != nullptr) record = *found;
  for (const auto& [name, value] : given.all()) {
    Complaint wrong;
    if (name == "Variable") {
      wrong = takeText("Variable", value, record.Variable, sizeof record.Variable, use);
    } else if (name == "Value") {
      wrong = takeNumber("Value", value, record.Value);
    } else if (name == "Comment") {
      wrong = takeText("Comment", value, record.Comment, sizeof record.Comment, use);
    } else {
      wrong = unknownField<BinVarValRecord>(name);
    }
    if (wrong) return wrong;
  }
  return {};
}

Complaint makeRecord(const NamedFields& given, const VarValRecord* found, Made<VarValRecord>& made,
                     Use) {
  if (Complaint wrong = mergeLine(given, found, made.texts)) return wrong;
  VarValRecord& record = made.record;
  record.Contains = VARVAL_HAS_VARIABLE;
  record.Variable = pointerTo(made.texts, "Variable");
  record.Value = pointerTo(made.texts, "Value");
  record.Comment = commentIn(made.texts, given);
  if (record.Comment != nullptr) record.Contains |= VARVAL_HAS_COMMENT;
  return {};
}

Complaint makeRecord(const NamedFields& given, const ServiceEntryRecord* found,
                     Made<ServiceEntryRecord>& made, Use use) {
  if (Complaint wrong = mergeLine(given, found, made.texts)) return wrong;
  ServiceEntryRecord& record = made.record;
  record.Contains = SERVICES_HAS_SERVICE;
  record.name = pointerTo(made.texts, "Name");
  record.protocol = pointerTo(made.texts, "Protocol");
  if (record.protocol != nullptr && *record.protocol == '\0') record.protocol = nullptr;
  record.comment = commentIn(made.texts, given);
  if (record.comment != nullptr) record.Contains |= SERVICES_HAS_COMMENT;
  if (const std::string* port = made.texts.find("Port"); port != nullptr) {
    std::uint16_t number = 0;
    // Nobody stores 0, which stands for a port that is not understood.
    const std::uint16_t least = use == Use::Store && given.has("Port") ? 1 : 0;
    if (Complaint wrong = takeNumber("Port", *port, number, least)) return wrong;
    record.port = swapped(number);
  }
  if (const std::string* aliases = made.texts.find("Aliases"); aliases != nullptr) {
    made.words = wordsOf(*aliases);
    for (const std::string& word : made.words) made.aliases.push_back(word.c_str());
    made.aliases.push_back(nullptr);
    record.aliases = made.aliases.data();
  }
  return {};
}

Complaint makeRecord(const NamedFields& given, const GlobalRegRecord* found,
                     Made<GlobalRegRecord>& made, Use) {
  GlobalRegRecord& record = made.record;
  if (found != nullptr) record = *found;
  const GlobalRegType* type = nullptr;
  if (Complaint wrong = findType(given, found, &type); wrong || type == nullptr) return wrong;
  record.RecordType = type->type;
  for (const auto& [name, value] : given.all()) {
    const GlobalRegField* const field = fieldNamed(*type, name);
    Complaint wrong;
    if (field != nullptr) {
      wrong = takeField(*field, value, record);
    } else if (name == "CheckSum") {
      wrong = takeNumber("CheckSum", value, record.CheckSum);
    } else if (const std::uint64_t bit = unknownBitOf(name, *type); bit != 0) {
      wrong = takeUnknown(name, value, bit, record);
    } else if (name != "Type") {
      wrong = unknownField(*type, name);
    }
    if (wrong) return wrong;
  }
  return {};
}

std::uint64_t maskOf(const NamedFields& key, const Made<ServiceEntryRecord>& made) {
  const std::uint64_t mask = rowsIn<ServiceEntryRecord>(key);
  const bool isOdd = ((mask & SERVICES_PORT) != 0 && made.record.port == 0) ||
                     ((mask & SERVICES_PROTOCOL) != 0 && made.record.protocol == nullptr);
  return isOdd ? mask | isMade : mask;
}

std::uint64_t maskOf(const NamedFields& key, const Made<GlobalRegRecord>& made) {
  const GlobalRegType* const type = globalRegFindType(made.record.RecordType);
  std::uint64_t mask = rowsIn<GlobalRegRecord>(key);
  if (type != nullptr && (made.record.FieldMask & ~type->knownMask) != 0) mask |= byUnknownFields;
  bool isPlain = made.record.FieldMask != 0;
  for (std::size_t i = 0; type != nullptr && i < type->fieldCount; ++i) {
    const GlobalRegField& field = type->fields[i];
    if (!key.has(field.name)) continue;
    mask |= field.bit;
    // Memory alone does not distinguish what is absent from what is 0.
    isPlain = isPlain &&
              (field.kind == GlobalRegFieldKind::Text ? (made.record.FieldMask & field.bit) != 0
                                                      : numberIn(field, made.record) != 0);
  }
  return mask == 0 || isPlain ? mask : mask | isMade;
}

}  // namespace faces
