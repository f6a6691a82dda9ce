// Fields of global registry records as words of a command line and as JSON.
#pragma once

#include <string>
#include <vector>

#include "genreg.h"
#include "output.h"

namespace zorreg {

// Sets the fields that words of the form FIELD=VALUE name. An empty VALUE takes the field away.
// Returns why a word is wrong, or an empty text.
std::string setFields(const std::vector<std::string>& words, const GlobalRegType& type,
                      GlobalRegRecord& record);

// A present field's value as text; version codes in dotted form.
std::string fieldText(const GlobalRegField& field, const GlobalRegRecord& record);

// A record as one line of FIELD=VALUE words behind its type, and as JSON.
std::string recordLine(const GlobalRegRecord& record);
Json recordJson(const GlobalRegRecord& record);

}  // namespace zorreg
