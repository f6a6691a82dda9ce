// Named fields, which are what the C interface holds, as the members of a JSON object.
#pragma once

#include "faces/named_fields.h"
#include "output.h"

namespace zorreg {

struct JsonMember {
  enum Form { Text, Number, Words };  // how the value is written: Words is an array of them
  const char* name;
  const char* field;
  Form form;
  bool isAlways;  // also when the field is absent
};

Json jsonOf(const JsonMember& member, const std::string& value);

template <typename Members>
Json jsonOf(const faces::NamedFields& fields, const Members& members) {
  Json object = Json::object();
  for (const JsonMember& member : members) {
    const std::string* const value = fields.find(member.field);
    if (value != nullptr || member.isAlways) {
      object[member.name] = jsonOf(member, value == nullptr ? std::string() : *value);
    }
  }
  return object;
}

}  // namespace zorreg
