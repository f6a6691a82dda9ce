// Runs of a verb on a copy of the registry, to see what would come of it.
#pragma once

#include <functional>
#include <string>

#include "store.h"
#include "verbs.h"

namespace tool {

// Prints what the verb would change as a unified diff: of the lines of a text, of the lines that
// `list` prints of any other registry. Nothing is written beside the registry. Gives the verb's
// exit status, and that of --exit-changed.
int runOnCopy(Kind kind, const Verb& verb, const Words& words);

// The bytes of a registry that `fill`, which gives an exit status, has filled.
int contentOfRecords(Kind kind, bool bigEndian, std::string& content,
                     const std::function<int(Store&)>& fill);

}  // namespace tool
