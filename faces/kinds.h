// The four kinds of registries, and which of them a file seems to be.
#pragma once

#include <cstddef>
#include <string>

namespace faces {

enum class Kind { Bin, Global, Var, Services };
constexpr const char* kindNames[] = {"bin", "global", "var", "services"};
constexpr const char* nameOf(Kind kind) { return kindNames[static_cast<int>(kind)]; }

// So many bytes of a file decide what it is, unless somebody wants to know better.
constexpr std::size_t kindBytes = 65536;

// What a file is taken for by the records or lines in its first bytes.
struct Guess {
  Kind kind = Kind::Bin;
  bool certain = false;    // `kind` and no other
  bool fitsRival = false;  // `rival` as well as `kind`
  Kind rival = Kind::Bin;
  bool bigEndian = false;  // its length fields are
  bool isText = false;
  bool isEmpty = false;  // or absent, or not to be read: it may be anything
};
Guess guessKind(const std::string& file, std::size_t most = kindBytes);

// Why such a file must not be used as a registry of that kind: it would be read as rubbish and
// damaged for everybody else by an update. Empty when it may: damage and odd lines are no reason.
std::string reasonAgainst(const Guess& guess, Kind kind, bool bigEndian);

}  // namespace faces
