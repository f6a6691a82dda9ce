#include "export_value.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <optional>

namespace tool {
namespace {

using platform::RegistryValue;

constexpr const char* typeNames[] = {"REG_NONE",
                                     "REG_SZ",
                                     "REG_EXPAND_SZ",
                                     "REG_BINARY",
                                     "REG_DWORD",
                                     "REG_DWORD_BIG_ENDIAN",
                                     "REG_LINK",
                                     "REG_MULTI_SZ",
                                     "REG_RESOURCE_LIST",
                                     "REG_FULL_RESOURCE_DESCRIPTOR",
                                     nullptr,
                                     "REG_QWORD"};
constexpr std::uint32_t listOfTexts = 7;
constexpr std::uint32_t quadWord = 11;

// The number that a value of a fitting size is, its low byte first.
std::optional<std::uint64_t> numberOf(const RegistryValue& value) {
  const std::size_t size = value.type == platform::registryDword ? 4
                           : value.type == quadWord              ? 8
                                                                 : 0;
  if (size == 0 || value.data.size() != size) return std::nullopt;
  std::uint64_t number = 0;
  for (std::size_t i = size; i-- > 0;) {
    number = number << 8 | static_cast<unsigned char>(value.data[i]);
  }
  return number;
}

std::string bytesOf(const RegistryValue& value) {
  char text[24];
  (void)std::snprintf(text, sizeof text, "hex(%x):", value.type);
  std::string shown = value.type == platform::registryBinary ? "hex:" : text;
  for (std::size_t i = 0; i < value.data.size(); ++i) {
    const unsigned int byte = static_cast<unsigned char>(value.data[i]);
    (void)std::snprintf(text, sizeof text, i == 0 ? "%02x" : ",%02x", byte);
    shown += text;
  }
  return shown;
}

// Each text of a list ends with a NUL, and the list with another, if they were not forgotten.
std::vector<std::string> textsOfList(std::string data) {
  std::vector<std::string> texts;
  if (!data.empty() && data.back() == '\0') data.pop_back();
  for (std::size_t at = 0; at < data.size();) {
    const std::size_t end = std::min(data.find('\0', at), data.size());
    texts.push_back(data.substr(at, end - at));
    at = end + 1;
  }
  return texts;
}

}  // namespace

std::string typeOf(const RegistryValue& value) {
  const bool known = value.type < std::size(typeNames) && typeNames[value.type] != nullptr;
  return known ? typeNames[value.type] : std::to_string(value.type);
}

bool holdsText(const RegistryValue& value) { return platform::isRegistryText(value.type); }

std::vector<std::string> textsOf(const RegistryValue& value) {
  if (value.type == listOfTexts) return textsOfList(value.data);
  if (holdsText(value)) return {value.data.substr(0, value.data.find_last_not_of('\0') + 1)};
  if (const auto number = numberOf(value)) return {std::to_string(*number)};
  return {bytesOf(value)};
}

Json jsonOf(const std::string& name, const RegistryValue& value) {
  Json json{{"name", name}, {"type", typeOf(value)}};
  const std::vector<std::string> texts = textsOf(value);
  if (value.type == listOfTexts) {
    json["data"] = texts;
  } else if (const auto number = numberOf(value)) {
    json["data"] = *number;
  } else {
    json["data"] = texts.front();
  }
  return json;
}

std::vector<std::string> cellsOf(const std::string& name, const RegistryValue& value) {
  std::string data;
  for (const std::string& text : textsOf(value)) data += (data.empty() ? "" : "; ") + text;
  return {name.empty() ? "@" : printable(name), typeOf(value), printable(data)};
}

}  // namespace tool
