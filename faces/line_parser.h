// One line of a text registry as named fields, and the other way round, without a file.
#pragma once

#include <memory>
#include <string>

#include "faces/named_fields.h"

namespace faces {

class LineParser {
 public:
  // Of kind "var" or "services".
  explicit LineParser(const std::string& kind);
  ~LineParser();
  LineParser(const LineParser&) = delete;
  LineParser& operator=(const LineParser&) = delete;

  struct Line {
    unsigned int code = 0;  // 0, or why the library does not read the line and leaves it alone
    bool isEntry = false;   // it holds a record, and no comment or blanks alone
    bool isOdd = false;     // a service whose port and protocol are not understood
    NamedFields fields;
  };
  // `line` has no newline.
  Line parse(const std::string& line) const;

  // Makes of `line`, which may be empty, the one that is written in its place for the record; both
  // without a newline. Returns 0, or the code of what is wrong with the fields or the line.
  unsigned int format(const NamedFields& record, std::string& line) const;

 private:
  class Flavour;
  template <typename Engine, typename Record>
  class FlavourOf;
  std::unique_ptr<Flavour> flavour_;
};

}  // namespace faces
