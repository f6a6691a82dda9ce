// What is installed on the machine in terms of named fields: what the C interface lists.
#pragma once

#include <memory>

#include "faces/named_fields.h"

namespace faces {

// A list that is read entry by entry. It throws std::bad_alloc.
class Inventory {
 public:
  Inventory() = default;
  Inventory(const Inventory&) = delete;
  Inventory& operator=(const Inventory&) = delete;
  virtual ~Inventory() = default;
  // The next entry; or which one cannot be read, with a code; GENREG_RC_END behind the last.
  virtual unsigned int next(NamedFields& found) = 0;
};

// Codes as ossOpenServiceList and ossOpenInstanceList; a kind without instances is an empty list.
unsigned int openCopies(std::unique_ptr<Inventory>& list);
unsigned int openInstances(const char* kind, std::unique_ptr<Inventory>& list);

}  // namespace faces
