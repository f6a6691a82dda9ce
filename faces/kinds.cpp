#include "faces/kinds.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "faces/content.h"
#include "genreg.h"

namespace faces {
namespace {

constexpr std::uint32_t shortestRecord = 3;
constexpr std::uint32_t longestRecord = 0x100000;
// A global registry's record begins with its type, a small number; a variable's with its name.
constexpr std::uint32_t largestType = 0x1F;

std::uint32_t numberAt(const std::string& bytes, std::size_t at, bool bigEndian) {
  std::uint32_t number = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    const auto byte = static_cast<unsigned char>(bytes[at + i]);
    number |= std::uint32_t{byte} << (8 * (bigEndian ? 3 - i : i));
  }
  return number;
}

// How many records, or lines, look like the one kind and no other, like the other, or like both.
struct Tally {
  std::size_t one = 0;
  std::size_t other = 0;
  std::size_t both = 0;
};

void decide(const Tally& tally, Kind one, Kind other, Guess& guess) {
  const bool isOne = tally.one >= tally.other;
  guess.kind = isOne ? one : other;
  guess.rival = isOne ? other : one;
  guess.certain = (tally.one == 0) != (tally.other == 0);
  guess.fitsRival = tally.one == tally.other && tally.one + tally.both != 0;
}

struct Frames {
  Tally tally;            // variables are the one kind
  std::size_t count = 0;  // of any form
  std::size_t end = 0;    // where the last one ends, perhaps behind the bytes
};

// The frames from an offset on, up to the first that is none; the last one may be cut off.
Frames framesFrom(const std::string& bytes, std::size_t at, bool bigEndian) {
  Frames frames;
  while (at <= bytes.size() && bytes.size() - at >= 4) {
    const std::uint32_t length = numberAt(bytes, at, bigEndian);
    if (length < shortestRecord || length > longestRecord) break;
    const std::uint32_t type = bytes.size() - at < 8 ? 0 : numberAt(bytes, at + 4, false);
    const bool isTyped = !bigEndian && type != 0 && type <= largestType;
    if (isTyped) {
      ++frames.tally.other;
    } else if (length == sizeof(BinVarValRecord)) {
      ++frames.tally.one;
    }
    ++frames.count;
    at += 4 + std::size_t{length};
  }
  frames.end = at;
  return frames;
}

void decideFrames(const Frames& frames, bool bigEndian, Guess& guess) {
  decide(frames.tally, Kind::Bin, Kind::Global, guess);
  // A variable may hold any bytes: every global record of that length is one, too.
  guess.fitsRival = frames.tally.one != 0 && frames.tally.other != 0;
  // What has the form of no variable can only be a global record that nobody knows.
  if (frames.tally.one == 0) guess.kind = Kind::Global;
  guess.bigEndian = bigEndian && guess.kind == Kind::Bin;
}

bool guessFrames(const std::string& bytes, Guess& guess) {
  for (const bool bigEndian : {false, true}) {
    const Frames frames = framesFrom(bytes, 0, bigEndian);
    if (frames.count == 0) continue;
    decideFrames(frames, bigEndian, guess);
    return true;
  }
  return false;
}

// Bytes that are no text and do not begin with a record of a known form: those behind the damage,
// all of one known form to the end, say what it may be.
void guessDamaged(const std::string& bytes, Guess& guess) {
  for (const bool bigEndian : {false, true}) {
    for (std::size_t at = 1; at < std::min(bytes.size(), kindBytes); ++at) {
      const Frames frames = framesFrom(bytes, at, bigEndian);
      const std::size_t most = std::max(frames.tally.one, frames.tally.other);
      if (most == 0 || most != frames.count || frames.end < bytes.size()) continue;
      decideFrames(frames, bigEndian, guess);
      guess.certain = false;
      return;
    }
  }
}

// A text has no more odd bytes than lines: one here and there is no reason to refuse it.
bool isText(const std::string& bytes) {
  const auto odd = std::count_if(bytes.begin(), bytes.end(), [](char byte) {
    return static_cast<unsigned char>(byte) < 0x20 && byte != '\t' && byte != '\r' && byte != '\n';
  });
  return odd <= std::count(bytes.begin(), bytes.end(), '\n');
}

// Takes the first word off a line; empty when there is none.
std::string_view takeWord(std::string_view& line) {
  constexpr std::string_view blanks = " \t\r\v\f";
  line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
  const std::string_view word = line.substr(0, line.find_first_of(blanks));
  line.remove_prefix(word.size());
  return word;
}

bool isPortAndProtocol(std::string_view word) {
  const std::size_t slash = word.find_first_not_of("0123456789");
  return slash != 0 && slash < word.size() - 1 && word[slash] == '/';
}

// Counts the lines that are an assignment, those that are a service, and what is both.
void guessText(std::string_view bytes, Guess& guess) {
  Tally tally;
  while (!bytes.empty()) {
    std::string_view line = bytes.substr(0, bytes.find('\n'));
    bytes.remove_prefix(std::min(line.size() + 1, bytes.size()));
    line = line.substr(0, line.find('#'));
    const std::string_view name = takeWord(line);
    const std::string_view next = takeWord(line);
    const bool assigns = name.find('=') != name.npos || next.substr(0, 1) == "=";
    const bool serves = isPortAndProtocol(next);
    if (assigns && serves) {
      ++tally.both;
    } else if (assigns) {
      ++tally.one;
    } else if (serves) {
      ++tally.other;
    }
  }
  decide(tally, Kind::Var, Kind::Services, guess);
}

}  // namespace

Guess guessKind(const std::string& file, std::size_t most) {
  Guess guess;
  std::string bytes;
  guess.isEmpty = !readContent(file, most, bytes) || bytes.empty();
  if (guess.isEmpty) return guess;
  // No text begins with a length that a record may have.
  const bool isFramed = guessFrames(bytes, guess);
  if (guess.certain || guess.fitsRival) return guess;
  guess.isText = !isFramed && isText(bytes);
  if (guess.isText) {
    guessText(bytes, guess);
  } else {
    guess.kind = Kind::Global;
    guessDamaged(bytes, guess);
  }
  return guess;
}

std::string reasonAgainst(const Guess& guess, Kind kind, bool bigEndian) {
  if (guess.isEmpty) return {};
  const std::string refused = std::string(", so it is not used as ") + nameOf(kind);
  if (guess.certain && guess.kind != kind) {
    return std::string("looks like a registry of kind ") + nameOf(guess.kind) + refused;
  }
  if (guess.certain && kind == Kind::Bin && guess.bigEndian != bigEndian) {
    return std::string("has length fields with their ") + (guess.bigEndian ? "high" : "low") +
           " byte first";
  }
  const bool asksText = kind == Kind::Var || kind == Kind::Services;
  if (asksText == guess.isText) return {};
  return (asksText ? "holds bytes that no text has" : "looks like a text") + refused;
}

}  // namespace faces
