// What is measured: something that keeps records in files, and the one shape of record that all of
// them keep.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// A setting as programs keep them. Every third has a comment; every value has five digits, so that
// a change does not alter the size of a text file.
struct Entry {
  std::string name;  // distinct, at most 15 characters
  std::int32_t value = 0;
  std::string comment = {};  // at most 15 characters, or empty

  bool operator==(const Entry& other) const {
    return name == other.name && value == other.value && comment == other.comment;
  }
};

// The entry at a position; a store of N entries holds those at 0 to N - 1.
inline Entry entryAt(std::size_t index) {
  static constexpr const char* words[] = {"timeout", "retries", "cache", "buffer",
                                          "limit",   "threads", "log",   "interval"};
  static constexpr const char* comments[] = {"set by setup", "seconds", "site default"};
  return {words[index % 8] + ("_" + std::to_string(index)),
          static_cast<std::int32_t>(10000 + index * 7919 % 50000),
          index % 3 == 0 ? comments[index / 3 % 3] : ""};
}

// One way to keep entries. Its constructor takes an existing directory and a number and writes a
// store of so many entries there. Every operation opens the store, does its work and closes the
// store, as a caller does who needs it once, and tells whether it succeeded.
class Subject {
 public:
  virtual ~Subject() = default;
  virtual bool get(const Entry& key) = 0;  // true when found
  virtual std::size_t scan() = 0;          // entries read
  virtual bool add(const Entry& entry) = 0;
  virtual bool change(const Entry& entry) = 0;
  virtual bool remove(const Entry& key) = 0;
  // Does the same to many entries, all or none.
  enum class Many { Add, Change, Remove };
  virtual bool many(Many, const std::vector<Entry>&) { return false; }
};

constexpr std::size_t anySize = 100000;

struct SubjectRow {
  const char* name;
  std::unique_ptr<Subject> (*make)(const std::string& directory, std::size_t count);
  std::size_t largest = anySize;  // most entries that it is measured with
  bool reads = true;              // false where another row's reads are the same
  bool changesMany = false;
};

template <typename Made>
std::unique_ptr<Subject> make(const std::string& directory, std::size_t count) {
  return std::make_unique<Made>(directory, count);
}

using SubjectRows = std::vector<SubjectRow>;
SubjectRows registrySubjects();
SubjectRows floorSubjects();
SubjectRows databaseSubjects();
SubjectRows textPeerSubjects();
