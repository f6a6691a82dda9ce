// Records as JSON: an object whose members are the fields, in their order. Numbers are numbers,
// Aliases an array of words, everything else text; a text that is no UTF-8 is
// {"hex": its bytes}, so that nothing is lost.
#pragma once

#include "faces/named_fields.h"
#include "kinds.h"
#include "listing.h"
#include "record_words.h"

namespace tool {

Json jsonOf(Kind kind, const faces::NamedFields& record);

// Text, or {"hex": ...}.
Json jsonOfText(const std::string& text);

// False when `json` is neither.
bool textOfJson(const Json& json, std::string& text);

// The record that an object stands for; null takes a field away. The kind's own look at the fields
// comes later.
Parsed recordOfJson(const Json& object);

}  // namespace tool
