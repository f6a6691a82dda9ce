// The verbs that take a registry's file as a whole: `edit`, `watch`, `backup`, `restore`. Each is
// one function of the kind and the words and gives the exit status.
#pragma once

#include "kinds.h"
#include "verbs.h"

namespace tool {

// Opens words.file in the user's editor and stores what was made of it, if nobody else has changed
// it meanwhile and no line became one that does not parse. A binary registry is edited as lines, as
// `list` prints and `import` reads them.
int edit(Kind kind, const Words& words);

// Prints each change of a record of words.file as it is committed, until it is interrupted or
// nobody reads its output any more.
int watch(Kind kind, const Words& words);

// Copies what words.file holds to words.other.
int backup(Kind kind, const Words& words);

// Makes words.file hold what words.other does, which must be whole and of the kind.
int restore(Kind kind, const Words& words);

}  // namespace tool
