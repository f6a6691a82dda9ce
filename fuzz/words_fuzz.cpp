// Words, numbers and records as people and programs hand them in; the first byte says as which the
// others are read. What was read is written so that it is read as the same.
#include "faces/record_fields.h"
#include "faces/value_text.h"
#include "faces/versions.h"
#include "ossinstall.h"
#include "targets.h"
#include "tools/odd_assignment.h"
#include "tools/record_json.h"
#include "tools/record_words.h"
#include "tools/unified_diff.h"

namespace {

using tool::Json;

void version(const std::string& text) {
  std::uint64_t code = 0;
  std::uint64_t again = 0;
  if (ossVersionStringToCode(text.c_str(), &code) != 0) return;
  require(faces::parseDotted(faces::versionText(code), again) && again == code);
  require(!faces::parseDotted(text, again) || again == code);
}

void value(const std::string& text) {
  std::string again;
  const Json json = tool::jsonOfText(text);
  require(json.is_string() == faces::isUtf8(text) && faces::isUtf8(faces::inQuotes(text)));
  require(tool::textOfJson(Json::parse(json.dump()), again) && again == text);
}

void line(const std::string& text) {
  if (text.find('\0') != text.npos) return;  // the tool refuses such a line before that
  for (const tool::Kind kind : tool::allKinds) (void)tool::recordOfLine(kind, text);
  faces::NamedFields fields = tool::recordOfLine(tool::Kind::Global, text).fields;
  faces::Made<GlobalRegRecord> made;
  fields.remove("CheckSum");  // not shown when it is 0
  if (faces::makeRecord(fields, nullptr, made) || made.record.FieldMask == 0) return;
  const std::string shown = tool::cellsOf(tool::Kind::Global, fields).front();
  require(tool::recordOfLine(tool::Kind::Global, shown).fields.all() == fields.all());
}

void json(const std::string& text) {
  const Json object = Json::parse(text, nullptr, false);
  const tool::Parsed read = object.is_object() ? tool::recordOfJson(object) : tool::Parsed();
  if (!read.wrong.empty() || read.fields.has("Aliases")) return;
  const Json shown = tool::jsonOf(tool::Kind::Var, read.fields);
  require(tool::recordOfJson(shown).fields.all() == read.fields.all());
}

void file(const std::string& text) {
  const std::string first = text.substr(0, text.find('\n'));
  require(tool::unifiedDiff(text, first, "r").empty() == (text == first));
  for (const auto& [name, why] : tool::oddAssignments(text)) require(!why.empty());
}

}  // namespace

int fuzzWords(const std::uint8_t* data, std::size_t size) {
  constexpr void (*readers[])(const std::string& text) = {version, value, line, json, file};
  if (size != 0) readers[data[0] % std::size(readers)]({data + 1, data + size});
  return 0;
}
