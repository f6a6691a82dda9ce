#include "odd_assignment.h"

#include <algorithm>
#include <sstream>
#include <vector>

#include "file_content.h"

namespace tool {
namespace {

constexpr char byteOrderMark[] = "\xEF\xBB\xBF";
// What a shell takes before an assignment.
constexpr const char* prefixes[] = {"export", "set", "declare", "local", "readonly", "typeset"};

bool isIndented(const std::string& line) { return line.find_first_of(" \t") == 0; }

// Whether a reader that joins lines takes `next` for a part of `line`, and not only a value that
// ends in a backslash for one.
bool goesOn(const std::string& line, const std::string& next) {
  if (line.empty() || line.back() != '\\') return false;
  const std::size_t content = next.find_first_not_of(" \t");
  if (content == std::string::npos || next[content] == '#') return false;
  return isIndented(next) || next.find('=') == std::string::npos;
}

// A value with a "#" between its quotes, or without its second quote.
bool isCutInQuotes(const std::string& assigned) {
  const std::size_t start = assigned.find_first_not_of(" \t");
  if (start == std::string::npos) return false;
  const char quote = assigned[start];
  if (quote != '"' && quote != '\'') return false;
  const std::size_t end = assigned.find(quote, start + 1);
  const std::size_t comment = assigned.find('#');
  if (end == std::string::npos) return quote == '"';
  return comment < end;
}

// What is odd about a line that assigns the variable `name`; empty when nothing is, or when it
// assigns none.
std::string oddity(const TextLine& line, const std::string& before, const std::string& next,
                   std::string& name) {
  const std::size_t equals = line.bytes.find('=');
  std::string left = line.bytes.substr(0, equals);
  if (equals == std::string::npos || left.find('#') != std::string::npos) return {};
  const bool marked = left.compare(0, 3, byteOrderMark) == 0;
  if (marked) left.erase(0, 3);
  std::istringstream stream(left);
  std::string prefix;
  std::string assigned;
  for (std::string word; stream >> word;) {
    const bool known =
        std::find(std::begin(prefixes), std::end(prefixes), word) != std::end(prefixes);
    if (assigned.empty() && (known || (!prefix.empty() && word[0] == '-'))) {
      prefix += (prefix.empty() ? "" : " ") + word;
    } else {
      assigned += (assigned.empty() ? "" : " ") + word;
    }
  }
  // A prefix alone is a name.
  if (assigned.empty()) std::swap(assigned, prefix);
  name = assigned;
  if (marked) return "a byte order mark stands before the name";
  if (!prefix.empty()) return "'" + prefix + "' stands before the name";
  if (line.holdsNul()) return "it holds a NUL byte";
  if (line.isTooLong()) return "it is longer than 2,046 characters";
  const std::string value = line.bytes.substr(equals + 1);
  if (isCutInQuotes(value)) return "its quotes do not close before the value ends";
  if (goesOn(line.bytes, next)) return "it goes on in the next line";
  if (isIndented(line.bytes) && goesOn(before, line.bytes)) return "it continues the line before";
  return {};
}

std::vector<TextLine> linesOf(const std::string& text) {
  std::vector<TextLine> lines;
  forEachLine(text, [&](const TextLine& line) { lines.push_back(line); });
  return lines;
}

std::string bytesAt(const std::vector<TextLine>& lines, std::size_t i) {
  return i < lines.size() ? lines[i].bytes : "";
}

}  // namespace

OddAssignments oddAssignments(const std::string& text) {
  OddAssignments odd;
  const bool joins = goesOnInLines(text);
  const std::vector<TextLine> lines = linesOf(text);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::string before = joins || i == 0 ? "" : lines[i - 1].bytes;
    const std::string next = joins ? "" : bytesAt(lines, i + 1);
    std::string name;
    const std::string why = oddity(lines[i], before, next, name);
    if (!why.empty()) odd.emplace(name, "line " + std::to_string(lines[i].number) + ": " + why);
  }
  return odd;
}

bool goesOnInLines(const std::string& text) {
  const std::vector<TextLine> lines = linesOf(text);
  bool any = false;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::string& line = lines[i].bytes;
    if (line.empty() || line.back() != '\\') continue;
    if (!goesOn(line, bytesAt(lines, i + 1))) return false;
    any = true;
  }
  return any;
}

}  // namespace tool
