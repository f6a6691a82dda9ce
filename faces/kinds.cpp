#include "faces/kinds.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "faces/content.h"
#include "genreg.h"

namespace faces {
namespace {

constexpr std::size_t looked = 65536;  // bytes of a file that decide
constexpr std::uint32_t shortestRecord = 3;
constexpr std::uint32_t longestRecord = 0x100000;
// A global registry's record begins with its type, a small number; a variable's with its name.
constexpr std::uint32_t largestType = 0x1F;

// The bytes that decide; none when the file cannot be read.
std::string beginningOf(const std::string& file) {
  std::string bytes;
  return readContent(file, looked, bytes) ? bytes : std::string();
}

std::uint32_t numberAt(const std::string& bytes, std::size_t at, bool bigEndian) {
  std::uint32_t number = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    const auto byte = static_cast<unsigned char>(bytes[at + i]);
    number |= std::uint32_t{byte} << (8 * (bigEndian ? 3 - i : i));
  }
  return number;
}

// The first record decides. No text begins with a length that a record may have.
bool guessBinary(const std::string& bytes, Guess& guess) {
  for (const bool bigEndian : {false, true}) {
    const std::uint32_t length = bytes.size() < 4 ? 0 : numberAt(bytes, 0, bigEndian);
    if (length < shortestRecord || length > longestRecord) continue;
    const std::uint32_t type = bytes.size() < 8 ? 0 : numberAt(bytes, 4, false);
    const bool typed = !bigEndian && type != 0 && type <= largestType;
    const bool variable = !typed && length == sizeof(BinVarValRecord);
    guess.kind = variable ? Kind::Bin : Kind::Global;
    guess.certain = typed || variable;
    guess.bigEndian = bigEndian && variable;
    return true;
  }
  return false;
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

// Counts the lines that are an assignment and no service, and the other way round.
void guessText(std::string_view bytes, Guess& guess) {
  std::size_t assignments = 0;
  std::size_t services = 0;
  while (!bytes.empty()) {
    std::string_view line = bytes.substr(0, bytes.find('\n'));
    bytes.remove_prefix(std::min(line.size() + 1, bytes.size()));
    line = line.substr(0, line.find('#'));
    const std::string_view name = takeWord(line);
    const std::string_view next = takeWord(line);
    const bool assigns = name.find('=') != name.npos || next.substr(0, 1) == "=";
    if (assigns) {
      ++assignments;
    } else if (isPortAndProtocol(next)) {
      ++services;
    }
  }
  guess.kind = services > assignments ? Kind::Services : Kind::Var;
  guess.certain = (services == 0) != (assignments == 0);
}

}  // namespace

Guess guessKind(const std::string& file) {
  Guess guess;
  const std::string bytes = beginningOf(file);
  guess.isEmpty = bytes.empty();
  if (guess.isEmpty || guessBinary(bytes, guess)) return guess;
  guess.isText = isText(bytes);
  if (guess.isText) {
    guessText(bytes, guess);
  } else {
    guess.kind = Kind::Global;
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
