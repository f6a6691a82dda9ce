// GenRegVarVal: the hooks of profile variable lines, and the typed getters.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "genreg/core/registry_handle.h"
#include "genreg/flavours/line_writer.h"
#include "genreg/line_text.h"
#include "genreg/stored_form.h"
#include "genreg_varval.h"
#include "sysservices/text.h"

using genreg::Function;
using genreg::Likeness;
using genreg::LineWriter;
using genreg::Routine;

bool bCompactFormattedLine = false;

namespace {

constexpr char blanks[] = " \t";

constexpr bool isBlank(char byte) { return byte == ' ' || byte == '\t'; }

bool equalTexts(const char* left, const char* right) {
  return left != nullptr && right != nullptr && std::strcmp(left, right) == 0;
}

bool has(const VarValRecord& record, std::uint8_t what) { return (record.Contains & what) != 0; }

unsigned int validateKey(std::uint64_t mask, void* key) {
  Routine routine(Function::varValValidateKey);
  if (key == nullptr) return routine.exit(routine.fail(GENREG_RC_NO_ARGUMENT, 10));
  const auto& fields = *static_cast<const VarValRecord*>(key);
  if (fields.Contains == 0) return routine.exit(routine.fail(GENREG_RC_KEY_EMPTY, 20));
  if ((mask & VARVAL_VARIABLE) != 0 && fields.Variable == nullptr) {
    return routine.exit(routine.fail(GENREG_RC_VARVAL_NO_VARIABLE, 30));
  }
  if ((mask & VARVAL_VALUE) != 0 && fields.Value == nullptr) {
    return routine.exit(routine.fail(GENREG_RC_VARVAL_NO_VALUE, 40));
  }
  return routine.exit(GENREG_RC_OK);
}

unsigned int compareRecord(std::uint64_t mask, void* record, void* key) {
  Routine routine(Function::varValCompareRecord);
  if (record == nullptr || key == nullptr) return routine.exit(0);
  const auto& left = *static_cast<const VarValRecord*>(record);
  const auto& right = *static_cast<const VarValRecord*>(key);
  const bool matches =
      has(left, VARVAL_HAS_VARIABLE) &&
      ((mask & VARVAL_VARIABLE) == 0 || equalTexts(left.Variable, right.Variable)) &&
      ((mask & VARVAL_VALUE) == 0 || equalTexts(left.Value, right.Value));
  return routine.exit(matches ? 1 : 0);
}

// Splits "NAME = VALUE", normalised, in place.
unsigned int splitAssignment(VarValRecord& record) {
  char* equals = std::strchr(record.text, '=');
  if (equals == nullptr) return GENREG_RC_VARVAL_NO_EQUALS;
  char* value = equals[1] == ' ' ? equals + 2 : equals + 1;
  if (*value == '"') {
    char* close = std::strchr(value + 1, '"');
    if (close == nullptr) return GENREG_RC_VARVAL_OPEN_QUOTE;
    close[1] = '\0';
  }
  *(equals > record.text && equals[-1] == ' ' ? equals - 1 : equals) = '\0';
  record.Variable = record.text;
  record.Value = value;
  record.Contains |= VARVAL_HAS_VARIABLE;
  return GENREG_RC_OK;
}

unsigned int unpackRecord(void* record, char* line) {
  Routine routine(Function::varValUnpackRecord);
  if (record == nullptr) return routine.exit(routine.fail(GENREG_RC_NO_ARGUMENT, 10));
  auto& fields = *static_cast<VarValRecord*>(record);
  fields.Contains = 0;
  fields.Variable = nullptr;
  fields.Value = nullptr;
  fields.Comment = genreg::takeLine(fields.text, line);
  if (fields.Comment != nullptr) fields.Contains = VARVAL_HAS_COMMENT;
  if (const unsigned int code = genreg::normalizeIfNeeded(fields.text); code != 0) {
    return routine.exit(routine.failFrom(Function::normalizeLine, code, code, 20));
  }
  if (fields.text[0] == '\0') return routine.exit(GENREG_RC_OK);
  const unsigned int code = splitAssignment(fields);
  return routine.exit(code == 0 ? code : routine.fail(code, 30, genreg::text(fields.text)));
}

// How the bytes of a plain line "NAME = VALUE" are told apart from a key without parsing them: the
// name has neither quotes nor blanks inside, and the value opens no quote that it may not close.
Likeness liken(std::uint64_t mask, const char* line, std::size_t length, const void* key) noexcept {
  const char* wanted = static_cast<const VarValRecord*>(key)->Variable;
  if ((mask & VARVAL_VARIABLE) == 0 || wanted == nullptr || length == 0) return Likeness::Unclear;
  if (line[0] == '#') return Likeness::Differs;
  const char* const end = line + length;
  const char* const name = genreg::skipWord(line, end, '=');
  const char* value = name;
  while (value < end && isBlank(*value)) ++value;
  if (name == line || value == end || *value != '=') return Likeness::Unclear;
  do ++value;
  while (value < end && (isBlank(*value) || *value == '\r'));
  if (value < end && *value == '"') return Likeness::Unclear;
  while (line < name && *line == *wanted) ++line, ++wanted;
  return line == name && *wanted == '\0' ? Likeness::Unclear : Likeness::Differs;
}

const genreg::StoredForm ownForm{compareRecord, unpackRecord, sizeof(VarValRecord),
                                 liken,         nullptr,      nullptr};

// What a replaced line gives to the new one: its indentation and the blanks around its "=".
struct Layout {
  std::size_t indentation = 0;
  const char* beforeEquals = "";
  std::size_t beforeLength = 0;
  const char* afterEquals = "";
  std::size_t afterLength = 0;
};

// False when the template has no "=" behind its first word.
bool layoutOf(const char* line, Layout& layout) {
  layout.indentation = std::strspn(line, blanks);
  layout.beforeEquals = line + layout.indentation;
  layout.beforeEquals += std::strcspn(layout.beforeEquals, " \t=");
  layout.beforeLength = std::strspn(layout.beforeEquals, blanks);
  layout.afterEquals = layout.beforeEquals + layout.beforeLength;
  if (*layout.afterEquals != '=') return false;
  ++layout.afterEquals;
  layout.afterLength = std::strspn(layout.afterEquals, blanks);
  return true;
}

unsigned int writeAssignment(LineWriter& out, const VarValRecord& record, const char* replaced) {
  if (record.Variable == nullptr) return GENREG_RC_VARVAL_NO_VARIABLE;
  if (record.Value == nullptr) return GENREG_RC_VARVAL_NO_VALUE;
  Layout layout;
  const bool hasTemplate = *replaced != '\0';
  if (hasTemplate && !layoutOf(replaced, layout)) return GENREG_RC_VARVAL_NO_EQUALS;
  const std::size_t space = !hasTemplate && !bCompactFormattedLine ? 1 : 0;
  out.add(replaced, layout.indentation);
  out.add(record.Variable);
  out.add(layout.beforeEquals, layout.beforeLength);
  out.add(" ", space);
  out.add("=");
  out.add(layout.afterEquals, layout.afterLength);
  out.add(" ", space);
  out.add(record.Value);
  out.add(" ", has(record, VARVAL_HAS_COMMENT) ? 1 : 0);
  return GENREG_RC_OK;
}

unsigned int packRecord(void* record, char* text) {
  Routine routine(Function::varValPackRecord);
  const auto& fields = *static_cast<const VarValRecord*>(record);
  LineWriter out;
  if (has(fields, VARVAL_HAS_VARIABLE)) {
    if (const unsigned int code = writeAssignment(out, fields, text); code != 0) {
      return routine.exit(routine.fail(code, 10));
    }
  }
  if (has(fields, VARVAL_HAS_COMMENT)) {
    out.add("# ");
    out.add(fields.Comment == nullptr ? "" : fields.Comment);
  }
  const unsigned int code = out.finish(text, GENREG_RC_VARVAL_LINE_TOO_LONG);
  return routine.exit(code == 0 ? code : routine.fail(code, 20));
}

unsigned int getRecordSize(std::uint64_t* size) {
  Routine routine(Function::varValGetRecordSize);
  *size = sizeof(VarValRecord);
  return routine.exit(GENREG_RC_OK);
}

unsigned int getRecordLength(const void*, std::uint64_t* length) {
  Routine routine(Function::varValGetRecordLength);
  *length = sizeof(VarValRecord);
  return routine.exit(GENREG_RC_OK);
}

// Hands a number on when the conversion took the whole text.
template <typename Number>
bool storeWhole(Number number, const char* end, Number* value) {
  if (end == nullptr || *end != '\0' || value == nullptr) return false;
  *value = number;
  return true;
}

}  // namespace

GenRegVarVal::GenRegVarVal(const char* path, unsigned int* rc) noexcept : valueText{} {
  Routine routine(Function::varValConstructor);
  const FlavourHooks hooks{compareRecord, validateKey,   PrintRecord,     unpackRecord,
                           packRecord,    getRecordSize, getRecordLength, &ownForm};
  const unsigned int code = routine.exit(RegistryHandle::setUp(*this, routine, path, hooks, rc));
  if (code != 0) return;
  (void)setFeature(GENREG_VERIFY_UPDATES);
  (void)setFeature(GENREG_ALLOW_DUPLICATES);
  bCompactFormattedLine = false;
}

GenRegVarVal::~GenRegVarVal() { Routine routine(Function::varValDestructor); }

unsigned int GenRegVarVal::PrintRecord(void* record) noexcept {
  if (record == nullptr) return GENREG_RC_OK;
  const auto& fields = *static_cast<const VarValRecord*>(record);
  std::printf("Record Dump:\n");
  if (fields.Variable != nullptr) std::printf("   Variable = |%s|\n", fields.Variable);
  if (fields.Value != nullptr) std::printf("   Value    = |%s|\n", fields.Value);
  std::printf("   Contains = %i\n", fields.Contains);
  if (fields.Comment != nullptr) std::printf("   Comment  = |%s|\n", fields.Comment);
  return GENREG_RC_OK;
}

bool GenRegVarVal::GetStringValue(const char* variable, const char** value) noexcept {
  if (value == nullptr) return false;
  VarValRecord key{};
  key.Contains = VARVAL_HAS_VARIABLE;
  key.Variable = variable;
  VarValRecord found;
  if (Get(VARVAL_VARIABLE, &key, &found) != 0 || found.Value == nullptr) return false;
  std::memcpy(valueText, found.Value, std::strlen(found.Value) + 1);
  *value = valueText;
  return true;
}

bool GenRegVarVal::GetUintValue(const char* variable, std::uint64_t* value) noexcept {
  const char* text = nullptr;
  if (!GetStringValue(variable, &text)) return false;
  char* end = nullptr;
  const std::uint64_t number = ossStrToUint64(text, &end, 10);
  return storeWhole(number, end, value);
}

bool GenRegVarVal::GetSintValue(const char* variable, std::int64_t* value) noexcept {
  const char* text = nullptr;
  if (!GetStringValue(variable, &text)) return false;
  char* end = nullptr;
  const std::int64_t number = ossStrToSint64(text, &end, 10);
  return storeWhole(number, end, value);
}

bool GenRegVarVal::GetDoubleValue(const char* variable, double* value) noexcept {
  const char* text = nullptr;
  if (!GetStringValue(variable, &text) || *text == '\0') return false;
  char* end = nullptr;
  errno = 0;
  const double number = std::strtod(text, &end);
  return errno != ERANGE && end != text && storeWhole(number, end, value);
}

bool GenRegVarVal::GetBooleanValue(const char* variable, bool* value) noexcept {
  const char* text = nullptr;
  return GetStringValue(variable, &text) && ossStrToBoolean(text, value) == 0;
}
