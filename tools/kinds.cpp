#include "kinds.h"

namespace tool {

std::string reasonAgainst(const std::string& file, Kind kind, bool bigEndian) {
  const Guess guess = guessKind(file);
  std::string reason = faces::reasonAgainst(guess, kind, bigEndian);
  if (!reason.empty() && guess.kind == kind && guess.bigEndian != bigEndian) {
    reason += guess.bigEndian ? ": use --big-endian" : ": leave --big-endian out";
  }
  return reason;
}

}  // namespace tool
