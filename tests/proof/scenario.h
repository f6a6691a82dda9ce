// What the proofs work on: one registry of some flavour in a directory of its own, an operation
// whose outcome is foreseen, and what must hold of the registry afterwards.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench/flavours.h"
#include "proof/children.h"
#include "support/registry_fixture.h"

namespace proof {

using flavours::Handle;
using flavours::Verb;
using Records = std::vector<Entry>;  // in the file's order

// The one registry that a program works on at a time, and its companions.
inline const std::string home = makeDirectory();
inline std::string directory = home;
inline std::string registry = directory + "/r";
inline std::string backup = directory + "/.r.bkp";
inline std::string lockFile = directory + "/.r.lock";
inline std::string temporary = directory + "/r.tmp";
inline std::string corrupt = directory + "/r.cor";
// From now on it is that of another directory, which is made where there is none.
void workIn(const std::string& place);

struct File {
  std::string bytes;
  std::uint64_t inode;  // the same for all names of one file
};
bool operator<(const File& a, const File& b);
using Files = std::map<std::string, File>;  // by name

Files files();
void restore(const Files& files);

// What is there before an operation.
struct Start {
  enum Backup { None, Own, Stale };  // Stale: nothing vouches for it

  const char* name;
  bool registry;
  Backup backup = None;    // Own: the registry's file, by another name where that stands
  bool leftovers = false;  // an update that did not finish, and one before it
  int more = 0;            // records, for more than one buffer of the streams
};
extern const Start starts[];  // the first one is clean

// Asked before each call of the library: 0, or how it fails.
using Disturbance = std::function<int(const std::string& call)>;

// An operation in a situation, with everything that is foreseen of it, and what one proof finds.
struct Scenario {
  const char* proof;  // the report's column
  const flavours::Row* flavour;
  std::uint64_t features;  // 0: the flavour's own
  Verb verb;
  Entry entry;
  const Start* start = starts;
  bool links = true;   // the file system has hard links
  bool keeps = false;  // the operation reads on a handle that keeps what it has read before
  Records before = recordsBefore();
  Records after = recordsAfter();
  Disturbance disturb = {};
  std::string where = {};  // in the words of the report
  // Keeps what it has read of the registry as it is at the start, and which that was.
  mutable std::shared_ptr<Handle> witness = {};
  mutable std::string witnessed = {};

  // The operation appends to the registry file itself.
  bool inPlace() const { return features == unverified && verb == Verb::Add; }
  bool reads() const { return verb == Verb::Get || verb == Verb::Scan; }
  bool isClean() const { return start == starts; }
  bool isLarge() const { return start->more > 0; }

  std::string fileOf(const Records& records) const;
  // Makes the directory what it is at the start.
  void prepare() const;
  std::unique_ptr<Handle> open() const;
  Code run(Handle& handle, Disturbance disturbance);
  // Runs it undisturbed; its calls in their order.
  std::vector<std::string> calls();

  // A trial: what is reported of it is reported with `where`.
  void begin(std::string where);
  void count(unsigned long tried) const;
  void expect(bool holds, const std::string& what) const;
  // Whether a scan finds exactly these records and a Get the last of them, both on a new handle and
  // on the witness; and, unless the operation appends in place, the file holds their bytes and no
  // others.
  bool shows(const Records& records) const;
  // The registry must show one of these, and the next update on `handle` must keep them and leave
  // nothing behind but what people find.
  void expectEither(const Records& first, const Records& second, Handle& handle) const;

 private:
  Records recordsBefore() const;
  Records recordsAfter() const;
  std::string row() const;
  bool showsTo(Handle& handle, const Records& records) const;
  bool nextUpdateKeeps(Handle& handle, const Records& records) const;
};

bool isShort(int argc, char** argv);

// Every operation of every flavour in every mode and situation, with and without hard links; in the
// short form those that differ most.
std::vector<Scenario> everyScenario(const char* proof, bool isShort);

// Sweeps over them. Gives the program's exit status.
int sweepAll(int argc, char** argv, const char* proof,
             const std::function<void(Scenario& scenario)>& sweep);

// Prints for the table what was tried, by proof, flavour and operation; the exit status.
int finish();

}  // namespace proof
