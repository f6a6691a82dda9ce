// A value of a registry export as the tool shows it.
#pragma once

#include <string>
#include <vector>

#include "listing.h"
#include "platform/registry_export/registry_tree.h"

namespace tool {

// The name of a value's type: REG_SZ, or its number where it has no name.
std::string typeOf(const platform::RegistryValue& value);

// The data, by its type: the text, the texts of a list, or one that shows the bytes (a number in
// decimal, "hex:01,0a" or, of another type than binary, "hex(8):01,0a").
std::vector<std::string> textsOf(const platform::RegistryValue& value);

// Whether the data is text, so that one can look for words in it.
bool holdsText(const platform::RegistryValue& value);

// {"name", "type", "data"}: the data is a text, an array of texts, a number, or bytes as above. The
// name of a key's default value is empty.
Json jsonOf(const std::string& name, const platform::RegistryValue& value);

// Name ("@": the default value), type and data as cells.
std::vector<std::string> cellsOf(const std::string& name, const platform::RegistryValue& value);

}  // namespace tool
