// The registries in C++'s own terms: texts are std::string, what may be absent is optional, a
// registry is a range, and what fails throws or is stored in a std::error_code. Header-only, above
// the classes of genreg.h, or above zorreg.h: for Visual C++, whose C++ names are others, and
// wherever ZOR_OVER_C is defined, in all of a program or nowhere. There an empty comment is none,
// and what a line cannot hold is GENREG_RC_BAD_VALUE.
//
//   zor::Variables settings("settings.reg");   // opens nothing yet
//   settings.set({"Timeout", 30, "seconds"});  // is so from now on, on the disk
//   if (auto found = settings.get("Timeout")) use(found->value);
//   for (const auto& setting : settings) use(setting.name);
//
// Make a registry from a path, then call its operations in any order: zorgenreg_registries.hpp has
// them. What they hand out, take and throw is in zorgenreg_records.hpp, and what is installed on
// the machine in zorgenreg_inventory.hpp. Each can be included alone.
#pragma once

#include "zorgenreg_inventory.hpp"
#include "zorgenreg_records.hpp"
#include "zorgenreg_registries.hpp"
