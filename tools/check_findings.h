// What a check of a registry finds.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "output.h"

namespace zorreg {

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
  // Damage told by a return code.
  void addCode(const std::string& where, unsigned int code);

  // Prints everything, and gives the exit status: 0 clean, 1 something left over or odd, 3 damage.
  int print(const std::string& file, const std::string& type, std::uint64_t records,
            bool json) const;

 private:
  std::vector<Finding> findings_;
};

// Checks the records of one registry file; returns how many are whole. The file is only read.
std::uint64_t checkBinary(const std::string& file, Findings& findings);
std::uint64_t checkGlobal(const std::string& file, Findings& findings);
std::uint64_t checkVariables(const std::string& file, Findings& findings);
std::uint64_t checkServices(const std::string& file, Findings& findings);

}  // namespace zorreg
