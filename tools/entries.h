// All entries of a registry of any kind, each with what it is.
#pragma once

#include <string>
#include <vector>

#include "faces/named_fields.h"
#include "verbs.h"

namespace tool {

struct Entry {
  std::string identity;  // by which an entry is the same thing before and after a change
  faces::NamedFields record;
};

struct Entries {
  unsigned int code = 0;  // of what could not be opened or read; those before it are there
  std::string cause;
  std::vector<Entry> all;
};

std::string identityOf(Kind kind, const faces::NamedFields& record);

// Of words.file. A registry that does not exist gives GENREG_RC_NO_FILE.
Entries readEntries(Kind kind, const Words& words);

}  // namespace tool
