// All entries of a registry of any kind, as a list shows them.
#pragma once

#include <string>
#include <vector>

#include "kinds.h"
#include "output.h"

namespace zorreg {

struct Entry {
  std::string identity;  // by which an entry is the same thing before and after a change
  Row row;
};

struct Entries {
  unsigned int code = 0;  // of what could not be opened or read; those before it are there
  std::string cause;
  std::vector<Entry> all;
};

// A registry that does not exist gives GENREG_RC_NO_FILE.
Entries readEntries(const std::string& file, Kind kind, bool bigEndian);

}  // namespace zorreg
