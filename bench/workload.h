// The operations that are measured, on a store that each of them leaves as it found it.
#pragma once

#include <filesystem>
#include <memory>
#include <utility>

#include "bench/subject.h"

// One store and the entries that the operations use.
struct Workload {
  Workload(const SubjectRow& row, const std::filesystem::path& directory, std::size_t count)
      : subject(row.make()),
        records(count),
        last(entryAt(count - 1)),
        missing(entryAt(count)),
        next(last) {
    next.value += 1;
    std::filesystem::create_directories(directory);
    subject->attach(directory, count);
  }
  void prepare() const {
    if (!subject->prepare()) throw std::runtime_error("cannot write a store");
  }

  std::unique_ptr<Subject> subject;
  std::size_t records;
  Entry last;     // what stands last in the store
  Entry missing;  // what does not stand there; Add's
  Entry next;     // `last` with another value; Change's
};

struct OperationRow {
  const char* name;
  bool updates;
  bool (*run)(Workload& store);   // what is timed
  bool (*undo)(Workload& store);  // what brings an updated store back
};

inline constexpr OperationRow operations[] = {
    {"GetLast", false, [](Workload& store) { return store.subject->get(store.last); }, nullptr},
    {"GetMiss", false, [](Workload& store) { return !store.subject->get(store.missing); }, nullptr},
    {"Scan", false, [](Workload& store) { return store.subject->scan() == store.records; },
     nullptr},
    {"Add", true, [](Workload& store) { return store.subject->add(store.missing); },
     [](Workload& store) { return store.subject->remove(store.missing); }},
    // The next Change changes it back.
    {"Change", true, [](Workload& store) { return store.subject->change(store.next); },
     [](Workload& store) {
       std::swap(store.last, store.next);
       return true;
     }},
    {"Delete", true, [](Workload& store) { return store.subject->remove(store.last); },
     [](Workload& store) { return store.subject->add(store.last); }},
};
