// What the proofs work on: a registry of each flavour, in a directory of its own, and the
// operations whose outcome they foresee.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace proof {

// The records of a registry, in the file's order.
using Records = std::vector<std::pair<std::string, int>>;

enum class Verb { Add, Change, Delete, Get, Scan };

struct Step {
  Verb verb;
  const char* name = "";
  int value = 0;
};

// What the records are once the step has succeeded.
Records after(Records records, const Step& step);

// One handle of some flavour.
class Handle {
 public:
  virtual ~Handle() = default;
  // The operation's return code.
  virtual unsigned int run(const Step& step) = 0;
  // Appends the records that a scan finds, in its order, up to its end or its first failure.
  virtual unsigned int scan(Records* found) = 0;
};

struct Flavour {
  const char* name;
  // `features` 0: the flavour's own.
  std::unique_ptr<Handle> (*open)(std::uint64_t features);
  std::string (*stored)(const std::string& name, int value);  // as it stands in the file

  std::string fileOf(const Records& records) const;
};
extern const Flavour flavours[4];

// What is there before an operation.
enum class Start {
  Clean,
  Nothing,          // no registry file
  BackupOnly,       // a crash between the renames
  StaleBackup,      // a crash after them
  TemporaryAndOld,  // an update that did not finish, and one before it
  Large,            // more than one buffer of the streams
};

// An operation in a situation, with everything that is foreseen of it.
struct Scenario {
  const Flavour* flavour;
  std::uint64_t features;
  bool inPlace;  // the operation appends to the registry file itself
  Start start;
  Step step;

  Records before() const;
  Records afterwards() const { return after(before(), step); }
  // The operation's column in the reports.
  std::string operation() const;
  // All of it, for messages.
  std::string title() const;
  std::unique_ptr<Handle> open() const { return flavour->open(features); }
};

// Every operation of every flavour in every mode and situation; without `all`, the modes and
// situations that differ most.
std::vector<Scenario> scenarios(bool all);

// The directory that holds the one registry of a proof, gone at the end of the program.
class Directory {
 public:
  Directory();
  ~Directory();
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;

  using Files = std::vector<std::pair<std::string, std::string>>;  // name, bytes
  Files files() const;
  void restore(const Files& files) const;
  // As the scenario starts.
  void prepare(const Scenario& scenario) const;
  // The registry's committed bytes, wherever a reader finds them; none without a registry.
  std::string committed() const;
  // Where the registry file of every handle is.
  static const std::string& registry();
};

// Counts what each proof tried, by flavour and operation, and prints it for the table.
class Report {
 public:
  // `--short` among the arguments asks for the shortened form.
  Report(const char* proof, int argc, char** argv);
  bool isShort() const { return short_; }

  void count(const Scenario& scenario, unsigned long tried = 1);
  // A failure, told at once: what did not hold, where.
  void expect(bool holds, const Scenario& scenario, const std::function<std::string()>& what);
  // Prints the rows; the program's exit status.
  int finish() const;

 private:
  struct Row {
    std::string flavour;
    std::string operation;
    unsigned long tried;
    unsigned long failed;
  };
  Row& rowOf(const Scenario& scenario);

  const char* proof_;
  bool short_ = false;
  std::vector<Row> rows_;
};

// What a sweep over one scenario knows: the registry's bytes before and after its operation.
class Trial {
 public:
  Trial(const Scenario& scenario, const Directory& directory, Report& report)
      : scenario_(scenario),
        directory_(directory),
        report_(report),
        old_(scenario.flavour->fileOf(scenario.before())),
        new_(scenario.flavour->fileOf(scenario.afterwards())) {}

 protected:
  const Scenario& scenario_;
  const Directory& directory_;
  Report& report_;
  std::string old_;
  std::string new_;
};

// The records that a scan finds; false when it, or a Get of the last of them, fails. Without a
// registry it finds none.
bool read(const Scenario& scenario, const Directory& directory, Records* found);

// The next writer works, keeps `content`, and leaves nothing behind.
bool nextUpdateKeeps(const Scenario& scenario, const Directory& directory, Handle& handle,
                     const std::string& content);

}  // namespace proof
