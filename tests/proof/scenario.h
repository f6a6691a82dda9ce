// What the proofs work on: one registry of some flavour in a directory of its own, the operations
// whose outcome they foresee, and what must hold of the registry after each.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bench/flavours.h"
#include "support/registry_fixture.h"

namespace proof {

using flavours::Handle;
using flavours::Verb;
using Records = std::vector<Entry>;  // in the file's order

// What is there before an operation.
enum class Start {
  Clean,
  Nothing,          // no registry file
  BackupOnly,       // a crash between the renames
  LinkedBackup,     // a crash behind the link
  StaleBackup,      // a backup that nothing vouches for beside the registry
  TemporaryAndOld,  // an update that did not finish, and one before it
  Large,            // more than one buffer of the streams
};

// An operation in a situation, with everything that is foreseen of it.
struct Scenario {
  const flavours::Row* flavour;
  std::uint64_t features;  // 0: the flavour's own
  bool links;              // the file system has hard links
  Start start;
  Verb verb;
  Entry entry;

  // The operation appends to the registry file itself.
  bool inPlace() const { return features == unverified && verb == Verb::Add; }
  bool reads() const { return verb == Verb::Get || verb == Verb::Scan; }
  Records before() const;
  Records afterwards() const;
  std::string fileOf(const Records& records) const;
  // The operation's column in the reports, and all of it for messages.
  std::string operation() const;
  std::string title() const;
  std::unique_ptr<Handle> open() const;
  // Makes the directory what it is at the start.
  void prepare() const;
  // What a hook answers that lets a call pass.
  int answer(const std::string& call) const;
};

// Every operation of every flavour in every mode and situation, with and without hard links; in the
// short form those that differ most.
std::vector<Scenario> scenarios(bool isShort);

struct File {
  std::string name;
  std::string bytes;
  std::uint64_t file;  // the same for all names of one file
};
using Files = std::vector<File>;  // by name
bool operator<(const File& a, const File& b);

// The one registry of a program, in a directory that is gone at the program's end, and its
// companions.
const std::string& registry();
std::string companion(const char* prefix, const char* suffix);
inline std::string backup() { return companion(".", ".bkp"); }
inline std::string lockFile() { return companion(".", ".lock"); }
inline std::string temporary() { return companion("", ".tmp"); }
inline std::string corrupt() { return companion("", ".cor"); }
Files files();
void restore(const Files& files);

// Counts what a proof tried, by flavour and operation, and prints it for the table.
class Report {
 public:
  explicit Report(const char* proof) : proof_(proof) {}
  void count(const Scenario& scenario, unsigned long tried = 1);
  // A failure, reported at once: what did not hold, where.
  void expect(bool holds, const Scenario& scenario, const std::string& what);
  // Prints the rows; whether nothing failed.
  bool finish() const;

 private:
  std::pair<unsigned long, unsigned long>& rowOf(const Scenario& scenario);  // tried, failed

  const char* proof_;
  std::map<std::string, std::pair<unsigned long, unsigned long>> rows_;
};

bool isShort(int argc, char** argv);

// What a sweep over one scenario knows and asks.
class Trial {
 public:
  Trial(const Scenario& scenario, Report& report)
      : scenario_(scenario),
        report_(&report),
        old_(scenario.before()),
        new_(scenario.afterwards()) {}

 protected:
  // Runs the operation. `disturb` answers for each call by its number (from 0) and name.
  using Disturb = std::function<int(std::size_t number, const std::string& call)>;
  Code run(Handle& handle, const Disturb& disturb) const;
  // Runs it undisturbed; its calls in their order.
  std::vector<std::string> calls() const;
  // Whether a scan finds exactly these records and a Get the last of them; and, unless the
  // operation appends in place, the file holds their bytes and no others.
  bool shows(const Records& records) const;
  // The registry must show one of these, and the next update on `handle` must keep them and leave
  // nothing behind but what people find.
  void expectEither(const Records& first, const Records& second, Handle& handle) const;
  // The trial goes on from here; what is reported of it is reported with `where`.
  void begin(std::string where);
  void expect(bool holds, const char* what) const;

  const Scenario& scenario_;
  Report* report_;
  Records old_;
  Records new_;

 private:
  bool nextUpdateKeeps(Handle& handle, const Records& records) const;

  std::string where_;
};

// Runs a sweep over each of the scenarios; the program's exit status.
template <typename Sweep>
int sweepAll(const char* proof, const std::vector<Scenario>& scenarios) {
  Report report(proof);
  for (const Scenario& scenario : scenarios) Sweep(scenario, report).run();
  return report.finish() ? 0 : 1;
}

}  // namespace proof
