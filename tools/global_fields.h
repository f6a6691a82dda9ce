// Fields of global registry records as words of a command line and as JSON.
#pragma once

#include <string>
#include <vector>

#include "genreg.h"
#include "output.h"

namespace zorreg {

// Sets the fields that words of the form FIELD=VALUE name. An empty VALUE takes the field away
// where that may be, and is wrong elsewhere. Returns why a word is wrong, or an empty text.
std::string setFields(const std::vector<std::string>& words, const GlobalRegType& type,
                      bool mayTakeAway, GlobalRegRecord& record);

// What a record is: its type and those of its fields by which two records are the same thing, or
// all of its fields when it has none of those. Two records of one identity cannot be distinguished.
std::string identityOf(const GlobalRegRecord& record);

// A record as a line of FIELD=VALUE words behind its type, version codes in dotted form; and as
// JSON.
Row rowOf(const GlobalRegRecord& record);

}  // namespace zorreg
