// Records in the words of a command line and in the lines that `list` prints and `import` takes.
#pragma once

#include <string>
#include <vector>

#include "faces/named_fields.h"
#include "kinds.h"
#include "output.h"
#include "verbs.h"

namespace tool {

// What was made of words: fields, or what is wrong with the words.
struct Parsed {
  faces::NamedFields fields;
  std::string wrong;
};

// The record that the words describe, and the key that names the one to be read, changed or
// deleted. Fields that the words do not have are absent; --no-comment and --no-aliases make them
// empty, which takes them away.
Parsed recordOf(Kind kind, const Words& words);
Parsed keyOf(Kind kind, const Words& words);

// FIELD=VALUE words as a record, a key, or changes, in which an empty value takes a field away.
Parsed globalFields(const std::string& type, const std::vector<std::string>& words,
                    bool mayTakeAway);

// PORT or PORT/PROTOCOL as these fields.
Parsed endpointOf(const std::string& word);

// A line as `list` prints it or as it stands in such a file: NAME VALUE COMMENT (bin),
// NAME = VALUE # COMMENT (var), NAME PORT/PROTOCOL ALIAS... # COMMENT (services),
// TYPE FIELD=VALUE... (global).
Parsed recordOfLine(Kind kind, const std::string& line);

// How `list` shows a record.
std::vector<std::string> cellsOf(Kind kind, const faces::NamedFields& record);

// The words of a line, with blanks between them. Blanks between single or double quotes belong to a
// word; between double quotes a backslash takes a double quote or backslash behind it as it is,
// and with "x" and two digits it stands for a byte.
class WordReader {
 public:
  explicit WordReader(const std::string& line) : line_(line) {}
  // False behind the last word, and when a quote is not closed.
  bool next(std::string& word);
  bool isOpen() const { return isOpen_; }  // a quote was not closed
  std::string rest() const { return line_.substr(at_); }

 private:
  const std::string& line_;
  std::size_t at_ = 0;
  bool isOpen_ = false;
};

// All words of a line. False when a quote is not closed.
bool splitWords(const std::string& line, std::vector<std::string>& words);

// A text as one word that WordReader reads; in quotes only where it must be.
std::string quoted(const std::string& word);

}  // namespace tool
