// Many records at once: apply, import and export.
#pragma once

#include "store.h"
#include "verbs.h"

namespace tool {

int apply(Store& store, const Words& words);
int import(Kind kind, const Words& words);
int exportJson(Store& store, const Words& words);

}  // namespace tool
