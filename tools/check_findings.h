// What a check of a registry finds.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kinds.h"
#include "output.h"

namespace tool {

enum class Topic {
  Running,     // an update, just now
  LeftOver,    // by an update that died; the next one does what is to be done
  Odd,         // kept and harmless, but perhaps not meant: a duplicate, a line nobody can parse
  Rights,      // an update by this user is refused
  Crashed,     // the registry has only its backup's name
  Refused,     // every update, or that of a program that does not know of something, is refused
  Repeated,    // records that the kind does not allow to be the same thing
  OtherKind,   // the file may be of another kind, too
  Missing,     // there is no registry
  Damage,      // the library reads no further, or not this record
  Unreadable,  // by this user, or at all
};

struct Finding {
  Topic topic;
  std::string where;  // a file, an offset, a line
  std::string what;
  std::string action;  // what to do, words or a command; empty: the repair of this registry
};

// What was checked, as what, and what was asked for.
struct Checked {
  std::string file;
  Kind kind = Kind::Bin;
  bool isRead = false;  // else there is neither a kind nor a record to speak of
  bool bigEndian = false;
  std::uint64_t records = 0;
};

class Findings {
 public:
  void add(Topic topic, const std::string& where, const std::string& what,
           const std::string& action) {
    findings_.push_back({topic, where, what, action});
  }
  // A record that a return code refuses; a repair leaves it out.
  void addBadRecord(const std::string& where, unsigned int code);
  // A registry that the library does not open, for the reason of a return code.
  void addNotOpened(const std::string& where, unsigned int code);

  // Prints everything, and gives the exit status: 0 healthy, 1 something to be looked at or, when
  // that is `strict`, to be remarked, 3 damaged or not to be read.
  int print(const Checked& checked, bool strict, bool json) const;

 private:
  std::vector<Finding> findings_;
  bool unreadable_ = false;  // a record can be framed and not read
  bool unframed_ = false;    // what is not even a record
};

// The command line of a verb on a registry.
std::string commandOn(const Checked& checked, const std::string& verb);

}  // namespace tool
