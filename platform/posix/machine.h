// What stands behind platform::Machine here: registry exports, loaded when they are first
// needed and kept as they were then.
#pragma once

#include <map>
#include <string>

#include "platform/registry_export/registry_tree.h"

namespace platform {

struct Machine {
  std::string exportPath;  // of the local machine's registry; empty when there is none
  SharedTree local;
  std::map<std::string, SharedTree> others;  // by host
};

}  // namespace platform
