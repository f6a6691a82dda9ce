// What the proofs work on: one registry of some flavour in a directory of its own, the operations
// whose outcome they foresee, and what must hold of the registry after each.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/registry_fixture.h"

namespace proof {

using Record = std::pair<std::string, int>;
using Records = std::vector<Record>;  // in the file's order

enum class Verb { Add, Change, Delete, Get, Scan };

struct Step {
  Verb verb;
  const char* name = "";
  int value = 0;
};

// One handle of some flavour.
class Handle {
 public:
  virtual ~Handle() = default;
  // Each gives the operation's return code. A Get writes what it found to `found`.
  virtual Code run(const Step& step, Record* found) = 0;
  virtual Code openScan() = 0;
  virtual Code next(Record* found) = 0;  // an empty name: a line without a record
  virtual Code closeScan() = 0;

  Code run(const Step& step) {
    Record found;
    return run(step, &found);
  }
  // Appends the records that a scan finds up to its end or its first failure.
  Code scan(Records* found);
};

struct Flavour {
  const char* name;
  // `features` 0: the flavour's own.
  std::unique_ptr<Handle> (*open)(std::uint64_t features);
  std::string (*stored)(const Record& record);  // as it stands in the file

  std::string fileOf(const Records& records) const;
};
extern const Flavour flavours[4];

// What is there before an operation.
enum class Start {
  Clean,
  Nothing,          // no registry file
  BackupOnly,       // a crash between the renames
  StaleBackup,      // a backup that nothing vouches for beside the registry
  TemporaryAndOld,  // an update that did not finish, and one before it
  Large,            // more than one buffer of the streams
};

// An operation in a situation, with everything that is foreseen of it.
struct Scenario {
  const Flavour* flavour;
  std::uint64_t features;
  bool inPlace;  // the operation appends to the registry file itself
  bool links;    // the file system has hard links
  Start start;
  Step step;

  Records before() const;
  Records afterwards() const;
  // The operation's column in the reports.
  std::string operation() const;
  // All of it, for messages.
  std::string title() const;
  std::unique_ptr<Handle> open() const { return flavour->open(features); }
  // Makes the directory what it is at the start.
  void prepare() const;
  // What a hook answers for a call that it lets pass.
  int answer(const std::string& call) const;
  // Holds the library to `links` while it lives.
  FaultHook surroundings() const;
};

// Every operation of every flavour in every mode and situation, with and without hard links;
// without `all`, those that differ most.
std::vector<Scenario> scenarios(bool all);

struct File {
  std::string name;
  std::string bytes;
  std::string twin;  // the earlier name of the same file; empty: this one is its first
};
bool operator==(const File& a, const File& b);
bool operator<(const File& a, const File& b);
using Files = std::vector<File>;  // by name

// The one registry of a program, in a directory that is gone at the program's end.
const std::string& registry();
std::string backup();
std::string lockFile();
std::string temporary();
std::string corrupt();
Files files();
void restore(const Files& files);
// A file that people find, not a companion that only the library looks for.
bool isVisible(const std::string& name);

// Counts what each proof tried, by flavour and operation, and prints it for the table.
class Report {
 public:
  explicit Report(const char* proof) : proof_(proof) {}

  void count(const Scenario& scenario, unsigned long tried = 1) { rowOf(scenario).tried += tried; }
  // A failure, reported at once: what did not hold, where.
  void expect(bool holds, const Scenario& scenario, const std::function<std::string()>& what);
  // Prints the rows; whether nothing failed.
  bool finish() const;

 private:
  struct Row {
    std::string flavour;
    std::string operation;
    unsigned long tried;
    unsigned long failed;
  };
  Row& rowOf(const Scenario& scenario);

  const char* proof_;
  std::vector<Row> rows_;
};

// Whether the program was asked for its short form.
bool isShort(int argc, char** argv);

// What a sweep over one scenario knows and asks.
class Trial {
 public:
  Trial(const Scenario& scenario, Report& report);

 protected:
  // Whether a scan finds exactly these records and a Get the last of them; and, unless the
  // operation appends in place, the file holds their bytes and no others.
  bool shows(const Records& records) const;
  // The first of those that the registry shows; null when it shows none of them.
  const Records* shown(std::initializer_list<const Records*> candidates) const;
  // The next update works, keeps `records`, and leaves nothing behind but what people find.
  bool nextUpdateKeeps(Handle& handle, Records records) const;
  void expect(bool holds, const std::function<std::string()>& what) const {
    report_.expect(holds, scenario_, what);
  }

  const Scenario& scenario_;
  Report& report_;
  Records old_;
  Records new_;
};

}  // namespace proof
