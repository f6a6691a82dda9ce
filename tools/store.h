// The registry that a verb works on, in terms of named fields.
#pragma once

#include <optional>
#include <string>

#include "faces/line_layout.h"
#include "kinds.h"
#include "odd_assignment.h"
#include "registry.h"
#include "report.h"
#include "verbs.h"

namespace tool {

// Makes words.file the file that is meant: the target of a symbolic link, so that lock and
// companions stand beside the target; of the global registry the one that the environment names
// when the words name none. Gives the exit status; reports what is wrong.
int findFile(Kind kind, Words& words);

// How long an update waits for the lock, in milliseconds, as the words say; what is wrong with
// them, or nothing.
std::string readWait(const Words& words, std::uint64_t& milliseconds);

class Store {
 public:
  // Reports why it cannot be used; the file is not touched when it is clearly of another kind.
  Store(Kind kind, const Words& words);
  int status() const { return status_; }

  Kind kind() const { return kind_; }
  const std::string& file() const { return file_; }
  Registry& registry() { return *registry_; }

  // The exit status of the operation that gave the code; a failure is reported. `name`: what was
  // looked for, of which a near one is mentioned when it was not found.
  int outcome(unsigned int code, const std::string& name = "");

  // Runs `work`, which gives an exit status, in the update that is open, or in one of its own: what
  // it reads no other writer changes, and it is committed as a whole, or not at all.
  template <typename Work>
  int update(Work work) {
    if (isUpdating_) return work();
    if (const int status = outcome(registry_->begin()); status != exitDone) return status;
    isUpdating_ = true;
    const int status = work();
    isUpdating_ = false;
    if (status == exitDone) return outcome(registry_->commit());
    (void)registry_->abandon();
    return status;
  }

  // Of a profile: what is odd about a line that assigns the name in a way that cannot be changed as
  // a whole; null when nothing is.
  const std::string* oddityOf(const std::string& name);
  // Of a profile: whether a value is put into quotes, as a shell needs it or, of a new line, as the
  // others are.
  bool quotes(const std::string& value, bool isThere);

  // Hands every record to `visit`; gives the exit status.
  template <typename Visit>
  int forEach(Visit visit) {
    unsigned int code = registry_->scan();
    if (code != 0) return outcome(code);
    faces::NamedFields record;
    while ((code = registry_->next(record)) == 0) visit(record);
    const int status = code == GENREG_RC_END ? int{exitDone} : outcome(code);
    (void)registry_->endScan();
    return status;
  }

 private:
  std::string nearest(const std::string& name);
  const std::string& content();
  std::string optionsOf(const Words& words);

  Kind kind_;
  std::string file_;
  std::optional<Registry> registry_;
  std::optional<std::string> content_;  // of a text, as it was when it was first asked for
  std::optional<OddAssignments> odd_;
  std::optional<faces::LineLayout> layout_;
  int status_ = exitDone;
  bool isUpdating_ = false;
};

}  // namespace tool
