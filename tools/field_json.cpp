#include "field_json.h"

#include <sstream>

namespace zorreg {

Json jsonOf(const JsonMember& member, const std::string& value) {
  switch (member.form) {
    case JsonMember::Number:
      return value.empty() ? Json(0) : Json::parse(value);
    case JsonMember::Words: {
      Json words = Json::array();
      std::istringstream stream(value);
      for (std::string word; stream >> word;) words.push_back(word);
      return words;
    }
    default:
      return value;
  }
}

}  // namespace zorreg
