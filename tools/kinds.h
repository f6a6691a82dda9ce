// The kinds of registries, and what the tool says of a file that seems to be of another one.
#pragma once

#include "faces/kinds.h"

namespace tool {

using faces::Guess;
using faces::guessKind;
using faces::Kind;
using faces::kindNames;
using faces::nameOf;
constexpr Kind allKinds[] = {Kind::Bin, Kind::Global, Kind::Var, Kind::Services};
constexpr bool isText(Kind kind) { return kind == Kind::Var || kind == Kind::Services; }

// Why `file` must not be used as a registry of that kind, with the option that helps; empty when it
// may.
std::string reasonAgainst(const std::string& file, Kind kind, bool bigEndian);

}  // namespace tool
