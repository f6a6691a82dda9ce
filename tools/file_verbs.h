// The verbs that take a registry's file as a whole: `edit`, `watch`, `backup`, `restore`. Each is
// one function of the words and the kind and gives the exit status.
//
//   {"watch", watchHelp, onKind<Kind::Var, watch>, {&jsonArgument}},
#pragma once

#include <CLI/CLI.hpp>

#include "kinds.h"
#include "verbs.h"

namespace zorreg {

// Opens words.file in the user's editor and stores what was made of it, if nobody else has changed
// it meanwhile and no line became one that does not parse. Text kinds alone.
int edit(const Words& words, Kind kind);

// Prints each change of a record of words.file as it is committed, until it is interrupted or
// nobody reads its output any more.
int watch(const Words& words, Kind kind);

// Copies what words.file holds to words.other.
int backup(const Words& words, Kind kind);

// Makes words.file hold what words.other does, which must be whole and of the kind.
int restore(const Words& words, Kind kind);

template <Kind kind, int (*verb)(const Words&, Kind)>
int onKind(const Words& words) {
  return verb(words, kind);
}

// Adds the four to the commands of all kinds, which are there.
void addFileVerbs(CLI::App& app, int& status);

}  // namespace zorreg
