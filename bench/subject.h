// What is measured: something that keeps records in a file, and the one shape of record that all of
// them keep.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

// A setting as programs keep them. Every third has a comment; every value has five digits, so that
// a change does not alter a text file's size.
struct Entry {
  std::string name;  // distinct, at most 15 characters
  std::int32_t value;
  std::string comment;  // at most 15 characters, or empty
};

// The entry at a position; a store of N records holds those at 0 to N - 1.
inline Entry entryAt(std::size_t index) {
  static constexpr const char* words[] = {"timeout", "retries", "cache", "buffer",
                                          "limit",   "threads", "log",   "interval"};
  static constexpr const char* comments[] = {"set by setup", "seconds", "site default"};
  constexpr std::size_t smallest = 10000;
  constexpr std::size_t span = 50000;
  Entry entry;
  entry.name = words[index % 8] + ("_" + std::to_string(index));
  entry.value = static_cast<std::int32_t>(smallest + index * 7919 % span);
  if (index % 3 == 0) entry.comment = comments[index / 3 % 3];
  return entry;
}

// One way to keep entries in a file. Every operation opens the store, does its work and closes the
// store, as a caller does who needs it once, and tells whether it succeeded.
class Subject {
 public:
  Subject() = default;
  Subject(const Subject&) = delete;
  Subject& operator=(const Subject&) = delete;
  virtual ~Subject() = default;

  // The store lives in `directory`, which exists, and holds `count` entries.
  virtual void attach(const std::string& directory, std::size_t count) = 0;
  // Writes the store anew with its entries.
  virtual bool prepare() = 0;

  virtual bool get(const Entry& key) = 0;  // true when found
  virtual std::size_t scan() = 0;          // entries read
  virtual bool add(const Entry& entry) = 0;
  virtual bool change(const Entry& entry) = 0;
  virtual bool remove(const Entry& key) = 0;
};

struct SubjectRow {
  const char* name;
  std::unique_ptr<Subject> (*make)();
  std::size_t largest;  // most records it is measured with
  bool reads;           // false where another row's reads are the same
};

constexpr std::size_t anySize = 100000;

// Makers for SubjectRow.
template <typename Made>
std::unique_ptr<Subject> makeSubject() {
  return std::make_unique<Made>();
}
