// GenRegVarVal: the hooks of profile variable lines, and the typed getters.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "genreg/core/record_buffer.h"
#include "genreg/flavours/flavour.h"
#include "genreg/flavours/variable_line.h"
#include "genreg_varval.h"
#include "sysservices/text.h"

using genreg::Function;
using genreg::LineWriter;
using genreg::Match;
using genreg::Routine;
using genreg::VariableLine;

bool bCompactFormattedLine = false;

namespace {

constexpr char blanks[] = " \t";

// Threads that construct registries at the same time all store the same.
bool isCompact() { return __atomic_load_n(&bCompactFormattedLine, __ATOMIC_RELAXED); }
void setNotCompact() { __atomic_store_n(&bCompactFormattedLine, false, __ATOMIC_RELAXED); }

bool equalTexts(const char* left, const char* right) {
  return left != nullptr && right != nullptr && std::strcmp(left, right) == 0;
}

bool has(const VarValRecord& record, std::uint8_t what) { return (record.Contains & what) != 0; }

void fillRecord(const VariableLine& line, VarValRecord& record) {
  genreg::TextPlacer texts(record.text);
  record.Contains = 0;
  record.Variable = line.hasVariable ? texts.place(line.name) : nullptr;
  record.Value = line.hasVariable ? texts.place(line.value) : nullptr;
  record.Comment = line.hasComment ? texts.placePrintable(line.comment) : nullptr;
  if (line.hasVariable) record.Contains |= VARVAL_HAS_VARIABLE;
  if (line.hasComment) record.Contains |= VARVAL_HAS_COMMENT;
}

// What a replaced line gives to the new one: its indentation and the blanks around its "=".
struct Layout {
  std::string_view indentation;
  std::string_view beforeEquals;
  std::string_view afterEquals;
};

// False when the template has no "=" behind its first word.
bool layoutOf(std::string_view line, Layout& layout) {
  const auto splitBlanks = [&] {
    const std::string_view found = line.substr(0, line.find_first_not_of(blanks));
    line.remove_prefix(found.size());
    return found;
  };
  layout.indentation = splitBlanks();
  line.remove_prefix(std::min(line.find_first_of(" \t="), line.size()));
  layout.beforeEquals = splitBlanks();
  if (line.empty() || line.front() != '=') return false;
  line.remove_prefix(1);
  layout.afterEquals = splitBlanks();
  return true;
}

unsigned int writeAssignment(LineWriter& out, const VarValRecord& record, const char* replaced) {
  if (record.Variable == nullptr) return GENREG_RC_VARVAL_NO_VARIABLE;
  if (record.Value == nullptr) return GENREG_RC_VARVAL_NO_VALUE;
  const std::string_view space = isCompact() ? "" : " ";
  Layout layout{"", space, space};
  if (*replaced != '\0' && !layoutOf(replaced, layout)) return GENREG_RC_VARVAL_NO_EQUALS;
  out.add(layout.indentation);
  out.add(record.Variable);
  out.add(layout.beforeEquals);
  out.add("=");
  out.add(layout.afterEquals);
  out.add(record.Value);
  if (has(record, VARVAL_HAS_COMMENT)) out.add(" ");
  return GENREG_RC_OK;
}

struct VarVal {
  using Record = VarValRecord;
  static constexpr genreg::FlavourNames names{
      Function::varValValidateKey,     Function::varValCompareRecord, Function::varValGetRecordSize,
      Function::varValGetRecordLength, Function::varValUnpackRecord,  Function::varValPackRecord};
  static constexpr unsigned int tooLong = GENREG_RC_VARVAL_LINE_TOO_LONG;
  static constexpr std::uint64_t identity = VARVAL_IDENTITY;

  static bool validate(Routine& routine, std::uint64_t mask, const Record& key) {
    if (key.Contains == 0) return routine.fail(GENREG_RC_KEY_EMPTY, 20);
    if ((mask & VARVAL_VARIABLE) != 0 && key.Variable == nullptr) {
      return routine.fail(GENREG_RC_VARVAL_NO_VARIABLE, 30);
    }
    if ((mask & VARVAL_VALUE) != 0 && key.Value == nullptr) {
      return routine.fail(GENREG_RC_VARVAL_NO_VALUE, 40);
    }
    return true;
  }

  static bool matches(std::uint64_t mask, const Record& record, const Record& key) {
    return has(record, VARVAL_HAS_VARIABLE) &&
           ((mask & VARVAL_VARIABLE) == 0 || equalTexts(record.Variable, key.Variable)) &&
           ((mask & VARVAL_VALUE) == 0 || equalTexts(record.Value, key.Value));
  }

  static void unpack(Routine& routine, Record& record, const char* text) {
    char copy[GENREG_LINE_SIZE];
    VariableLine line;
    const unsigned int code = genreg::parseVariableLine(genreg::lineOf(text), copy, line);
    fillRecord(line, record);
    if (code != 0) {
      (void)routine.failFrom(Function::normalizeLine, code, code, 20);
    } else if (line.odd != 0) {
      std::memcpy(copy, line.assignment.data(), line.assignment.size());
      copy[line.assignment.size()] = '\0';
      (void)routine.fail(line.odd, 30, genreg::text(copy));
    }
  }

  static unsigned int write(LineWriter& out, const Record& record, const char* replaced) {
    if (has(record, VARVAL_HAS_VARIABLE)) {
      if (const unsigned int code = writeAssignment(out, record, replaced); code != 0) return code;
    }
    if (has(record, VARVAL_HAS_COMMENT)) {
      out.add("# ");
      out.add(record.Comment == nullptr ? "" : record.Comment);
    }
    return GENREG_RC_OK;
  }

  // Parses a line as the hook would; false where that would fail or log something.
  static bool parsePlain(std::string_view text, char (&copy)[GENREG_LINE_SIZE],
                         VariableLine& line) {
    return text.size() < sizeof copy && text.find('\0') == std::string_view::npos &&
           genreg::parseVariableLine(text, copy, line) == 0 && line.odd == 0;
  }

  static bool fill(std::string_view text, Record& record) noexcept {
    char copy[GENREG_LINE_SIZE];
    VariableLine line;
    if (!parsePlain(text, copy, line)) return false;
    fillRecord(line, record);
    return true;
  }

  // The name alone decides most lines, unless the value opens a quote that it may not close.
  static Match match(std::uint64_t mask, const char* bytes, std::size_t length,
                     const void* key) noexcept {
    const auto& wanted = *static_cast<const Record*>(key);
    const std::string_view text(bytes, length);
    if ((mask & VARVAL_VARIABLE) != 0 && length > 0) {
      if (bytes[0] == '#') return Match::Differs;
      std::string_view name;
      std::string_view rest;
      if (genreg::readVariableHead(text, &name, &rest)) {
        const char* const value = genreg::skipBlanks(rest.data(), rest.data() + rest.size());
        const bool quoted = value < bytes + length && *value == '"';
        if (!quoted && !genreg::equalsText(name, wanted.Variable)) return Match::Differs;
      }
    }
    return matchWhole(mask, text, wanted);
  }

  static Match matchWhole(std::uint64_t mask, std::string_view text, const Record& wanted) {
    char copy[GENREG_LINE_SIZE];
    VariableLine line;
    if (!parsePlain(text, copy, line)) return Match::Unclear;
    const bool matches =
        line.hasVariable &&
        ((mask & VARVAL_VARIABLE) == 0 || genreg::equalsText(line.name, wanted.Variable)) &&
        ((mask & VARVAL_VALUE) == 0 || genreg::equalsText(line.value, wanted.Value));
    return matches ? Match::Matches : Match::Differs;
  }

  static bool hash(std::uint64_t mask, const void* record, genreg::IdentityHash* hash) noexcept {
    const auto& fields = *static_cast<const Record*>(record);
    const bool byName = (mask & VARVAL_VARIABLE) != 0;
    const bool byValue = (mask & VARVAL_VALUE) != 0;
    const bool isThere = has(fields, VARVAL_HAS_VARIABLE) &&
                         (!byName || fields.Variable != nullptr) &&
                         (!byValue || fields.Value != nullptr);
    if (!isThere || !(byName || byValue)) return false;
    if (byName) hash->addText(fields.Variable);
    if (byValue) hash->addText(fields.Value);
    return true;
  }
};

const genreg::RecordForm recordForm =
    genreg::LineFlavourHook<VarVal>::form(GenRegVarVal::PrintRecord);

// Hands on the number that `convert` makes of a variable's value, when it took the whole text.
template <typename Number, typename Convert>
bool getNumber(GenRegVarVal& registry, const char* variable, Number* value, Convert convert) {
  const char* text = nullptr;
  if (!registry.GetStringValue(variable, &text)) return false;
  char* end = nullptr;
  const Number number = convert(text, &end);
  if (end == nullptr || *end != '\0' || value == nullptr) return false;
  *value = number;
  return true;
}

}  // namespace

GenRegVarVal::GenRegVarVal(const char* path, unsigned int* rc) noexcept : valueText{} {
  Routine routine(Function::varValConstructor);
  if (genreg::HandleAccess::setUp(*this, routine, path, &recordForm, rc) != 0) return;
  (void)setFeature(GENREG_VERIFY_UPDATES);
  (void)setFeature(GENREG_ALLOW_DUPLICATES);
  setNotCompact();
}

GenRegVarVal::~GenRegVarVal() { const Routine routine(Function::varValDestructor); }

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

// A derived class may have a larger record, and make longer values than a line can hold.
bool GenRegVarVal::GetStringValue(const char* variable, const char** value) noexcept {
  if (value == nullptr || GetRecordSize == nullptr) return false;
  std::uint64_t size = 0;
  (void)GetRecordSize(&size);
  genreg::RecordBuffer found;
  if (size < sizeof(VarValRecord) || found.reserve(size) != 0) return false;
  VarValRecord key{};
  key.Contains = VARVAL_HAS_VARIABLE;
  key.Variable = variable;
  if (Get(VARVAL_VARIABLE, &key, found.data()) != 0) return false;
  const char* const text = static_cast<const VarValRecord*>(found.data())->Value;
  const std::size_t length = text == nullptr ? sizeof valueText : ::strnlen(text, sizeof valueText);
  if (length == sizeof valueText) return false;
  std::memcpy(valueText, text, length + 1);
  *value = valueText;
  return true;
}

bool GenRegVarVal::GetUintValue(const char* variable, std::uint64_t* value) noexcept {
  return getNumber(*this, variable, value,
                   [](const char* text, char** end) { return ossStrToUint64(text, end, 10); });
}

bool GenRegVarVal::GetSintValue(const char* variable, std::int64_t* value) noexcept {
  return getNumber(*this, variable, value,
                   [](const char* text, char** end) { return ossStrToSint64(text, end, 10); });
}

bool GenRegVarVal::GetDoubleValue(const char* variable, double* value) noexcept {
  return getNumber(*this, variable, value, [](const char* text, char** end) {
    errno = 0;
    const double number = std::strtod(text, end);
    if (errno == ERANGE || *end == text) *end = nullptr;
    return number;
  });
}

bool GenRegVarVal::GetBooleanValue(const char* variable, bool* value) noexcept {
  const char* text = nullptr;
  return GetStringValue(variable, &text) && ossStrToBoolean(text, value) == 0;
}
