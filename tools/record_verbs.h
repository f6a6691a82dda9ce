// What the verbs of every kind do with records.
#pragma once

#include "store.h"
#include "verbs.h"

namespace tool {

int list(Store& store, const Words& words);
int get(Store& store, const Words& words);
int find(Store& store, const Words& words);
int findService(Store& store, const Words& words);
int dump(Store& store, const Words& words);

int set(Store& store, const Words& words);
int add(Store& store, const Words& words);
int change(Store& store, const Words& words);
int remove(Store& store, const Words& words);
int repair(Kind kind, const Words& words);

// In an update: makes it so, as `set` does.
int setRecord(Store& store, const Words& words, faces::NamedFields record);

}  // namespace tool
