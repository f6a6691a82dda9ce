#include "record_json.h"

#include <cstdio>

#include "genreg.h"

namespace tool {
namespace {

constexpr const char* hexMember = "hex";

bool isGlobalNumber(const std::string& name) {
  for (const GlobalRegType& type : globalRegTypes) {
    for (std::size_t i = 0; i < type.fieldCount; ++i) {
      const GlobalRegField& field = type.fields[i];
      // A version is written with dots.
      if (name == field.name)
        return field.kind != GlobalRegFieldKind::Text && name != "VersionCode";
    }
  }
  return name == "CheckSum";
}

bool isNumber(Kind kind, const std::string& name) {
  switch (kind) {
    case Kind::Bin:
      return name == "Value";
    case Kind::Services:
      return name == "Port";
    case Kind::Global:
      return isGlobalNumber(name);
    default:
      return false;
  }
}

bool isUtf8(const std::string& text) {
  try {
    (void)Json(text).dump();
    return true;
  } catch (const Json::type_error&) {
    return false;
  }
}

int digitOf(char character) {
  if (character >= '0' && character <= '9') return character - '0';
  if (character >= 'a' && character <= 'f') return character - 'a' + 10;
  return -1;
}

bool bytesOfHex(const std::string& hex, std::string& bytes) {
  bytes.clear();
  for (std::size_t at = 0; at + 1 < hex.size(); at += 2) {
    const int high = digitOf(hex[at]);
    const int low = digitOf(hex[at + 1]);
    if (high < 0 || low < 0) return false;
    bytes += static_cast<char>(16 * high + low);
  }
  return hex.size() % 2 == 0;
}

Json wordsOf(const std::string& text) {
  Json words = Json::array();
  for (std::size_t at = 0; (at = text.find_first_not_of(' ', at)) != std::string::npos;) {
    const std::size_t end = std::min(text.find(' ', at), text.size());
    words.push_back(jsonOfText(text.substr(at, end - at)));
    at = end;
  }
  return words;
}

// False when the member is nothing that a field may be.
bool valueOf(const Json& member, std::string& value) {
  if (member.is_number_integer()) {
    value = member.dump();
    return true;
  }
  if (member.is_boolean()) {
    value = member.get<bool>() ? "1" : "0";
    return true;
  }
  if (!member.is_array()) return textOfJson(member, value);
  value.clear();
  for (const Json& word : member) {
    std::string text;
    if (!textOfJson(word, text) || text.empty() || text.find_first_of(" \t") != std::string::npos) {
      return false;
    }
    value += (value.empty() ? "" : " ") + text;
  }
  return true;
}

}  // namespace

Json jsonOfText(const std::string& text) {
  if (isUtf8(text)) return text;
  std::string hex;
  for (const char byte : text) {
    char digits[3];
    (void)std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
    hex += digits;
  }
  return {{hexMember, hex}};
}

bool textOfJson(const Json& json, std::string& text) {
  if (json.is_null()) {
    text.clear();
    return true;
  }
  if (json.is_object() && json.size() == 1 && json.contains(hexMember) &&
      json[hexMember].is_string()) {
    return bytesOfHex(json[hexMember].get<std::string>(), text);
  }
  if (!json.is_string()) return false;
  text = json.get<std::string>();
  return true;
}

Json jsonOf(Kind kind, const faces::NamedFields& record) {
  Json object = Json::object();
  for (const auto& [name, value] : record.all()) {
    if (name == "Aliases") {
      object[name] = wordsOf(value);
    } else if (isNumber(kind, name)) {
      object[name] = Json::parse(value);
    } else {
      object[name] = jsonOfText(value);
    }
  }
  return object;
}

Parsed recordOfJson(const Json& object) {
  Parsed parsed;
  for (const auto& [name, member] : object.items()) {
    std::string value;
    if (!valueOf(member, value)) {
      parsed.wrong = printable(name) + ": " + printable(member.dump(-1, ' ', true)) +
                     " is no text, number or array of words";
      return parsed;
    }
    if (value.find('\0') != std::string::npos) {
      parsed.wrong = printable(name) + " holds a NUL byte";
      return parsed;
    }
    parsed.fields.set(name, value);
  }
  return parsed;
}

}  // namespace tool
