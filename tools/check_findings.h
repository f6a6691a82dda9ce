// What a check of a registry finds.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kinds.h"
#include "output.h"

namespace tool {

enum class Severity {
  Note,    // how the next update will treat something
  Odd,     // kept and harmless, but perhaps not meant: a duplicate, a line nobody can parse
  Damage,  // the library reads no further, or not this record
};

struct Finding {
  Severity severity;
  std::string where;  // a file, an offset, a line
  std::string what;
};

class Findings {
 public:
  void add(Severity severity, const std::string& where, const std::string& what) {
    findings_.push_back({severity, where, what});
  }
  // Damage that a return code names.
  void addCode(const std::string& where, unsigned int code);
  // The same of a record, which a repair leaves out.
  void addBadRecord(const std::string& where, unsigned int code);

  // Prints everything, and gives the exit status: 0 clean, 1 something left over or odd, 3 damage.
  int print(const std::string& file, Kind kind, std::uint64_t records, bool json) const;

 private:
  std::vector<Finding> findings_;
  bool unreadable_ = false;  // a record can be framed and not read
  bool unframed_ = false;    // what is not even a record
};

// Checks the records of one registry file; returns how many are whole. The file is only read.
std::uint64_t checkRecords(const std::string& file, const Guess& guess, Findings& findings);

}  // namespace tool
