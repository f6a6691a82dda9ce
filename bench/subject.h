// What is measured: something that keeps records in files, and the one shape of record that all of
// them keep.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// A setting as programs keep them. Every third has a comment; every value has five digits, so that
// a change does not alter the size of a text file. Of a service, the value is the port.
struct Entry {
  std::string name;  // distinct, at most 15 characters
  std::int32_t value = 0;
  std::string comment = {};  // at most 15 characters, or empty

  bool operator==(const Entry& other) const {
    return name == other.name && value == other.value && comment == other.comment;
  }
};

constexpr std::size_t anySize = 100000;  // entries of the largest store

// The entry at a position; a store of N entries holds those at 0 to N - 1. The largest store has
// every value twice, but that of its last entry, for which a search goes to the end.
inline Entry entryAt(std::size_t index) {
  static constexpr const char* words[] = {"timeout", "retries", "cache", "buffer",
                                          "limit",   "threads", "log",   "interval"};
  static constexpr const char* comments[] = {"set by setup", "seconds", "site default"};
  const std::size_t value = index == anySize - 1 ? 60000 : 10000 + index * 7919 % 50000;
  return {words[index % 8] + ("_" + std::to_string(index)), static_cast<std::int32_t>(value),
          index % 3 == 0 ? comments[index / 3 % 3] : ""};
}

// One way to keep entries. Its constructor takes an existing directory and a number and writes a
// store of so many entries there. Every operation opens the store, does its work and closes the
// store, as a caller does who needs it once; of a store that is kept open, the first operation
// opens it.
class Subject {
 public:
  virtual ~Subject() = default;
  // Called before operations that are measured: a subject needs it that has its file at a place
  // which other subjects use, too.
  virtual void prepare() {}
  virtual bool get(const Entry& key) = 0;                 // true when found with the key's value
  virtual bool getByPort(const Entry&) { return false; }  // true when found with the key's name
  virtual std::size_t scan() = 0;                         // entries read
  // Whether it was done; never by what only reads.
  virtual bool add(const Entry&) { return false; }
  virtual bool change(const Entry&) { return false; }
  virtual bool remove(const Entry&) { return false; }
  // Does the same to many entries, all or none.
  enum class Many { Add, Change, Remove };
  virtual bool many(Many, const std::vector<Entry>&) { return false; }
};

// What a subject is measured in.
enum Task : unsigned {
  Reads = 1,
  ByPort = 2,
  Updates = 4,
  ManyChanges = 8,
  Contention = 16,  // several processes change it
};
enum class Role { Registry, Floor, Peer, KeptOpen };  // whose reads, and where, is in main.cpp

struct SubjectRow {
  const char* name;
  std::unique_ptr<Subject> (*make)(const std::string& directory, std::size_t count);
  Role role;
  unsigned tasks;                 // bits of Task
  std::size_t largest = anySize;  // most entries that it is measured with
};

template <typename Made>
std::unique_ptr<Subject> make(const std::string& directory, std::size_t count) {
  return std::make_unique<Made>(directory, count);
}

// How a subject gets at its store: what `Opened` is constructed from, its path and how it is
// opened, is opened for each piece of work or, `Kept`, for the first one and from then on used
// again.
template <typename Opened, bool Kept>
class Access {
 public:
  explicit Access(std::string path) : path_(std::move(path)) {}
  template <typename Work, typename... How>
  auto with(Work work, How... how) {
    if constexpr (Kept) {
      if (!kept_) kept_.emplace(path_, how...);
      return work(*kept_);
    } else {
      Opened opened(path_, how...);
      return work(opened);
    }
  }

 private:
  const std::string path_;
  std::optional<Opened> kept_;
};

using SubjectRows = std::vector<SubjectRow>;
SubjectRows registrySubjects();
SubjectRows floorSubjects();
SubjectRows sqliteSubjects();
SubjectRows tdbSubjects();
SubjectRows lmdbSubjects();
SubjectRows textPeerSubjects();
SubjectRows cLibrarySubjects();  // none where the process may not have mounts of its own

inline SubjectRows allSubjects() {
  SubjectRows all;
  for (const auto& rows : {registrySubjects(), floorSubjects(), sqliteSubjects(), tdbSubjects(),
                           lmdbSubjects(), textPeerSubjects(), cLibrarySubjects()}) {
    all.insert(all.end(), rows.begin(), rows.end());
  }
  return all;
}
