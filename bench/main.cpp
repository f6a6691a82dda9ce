// zorgenreg_bench MEMORY DISK [Google Benchmark's options]
//   measures every subject, operation and size at the two places, which are existing directories,
//   under the names SUBJECT/OPERATION/ENTRIES/PLACE with "memory" and "disk" for the place.
// zorgenreg_bench MEMORY DISK --once NAME
//   does one operation in this fresh process, between two getppid calls for whoever traces its
//   system calls, and prints the bytes that it needed of the heap.
// zorgenreg_bench MEMORY DISK --contention SECONDS
//   lets several processes change one store on the disk and prints a line for each store and number
//   of processes; bench/contention.h says which figures.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <utility>

#include "bench/contention.h"
#include "bench/subject.h"

namespace {

constexpr std::size_t sizes[] = {10, 100, 1000, 10000, anySize};
constexpr std::size_t largestUpdated = 10000;
constexpr std::size_t readsAtATime = 16;          // of a store that is kept open
const char* const places[] = {"memory", "disk"};  // in the order of the arguments

// One store and the entries that the operations use.
struct Workload {
  std::unique_ptr<Subject> subject;
  std::size_t count;
  Entry last;                // stands last in the store
  Entry missing;             // does not stand there
  Entry next;                // `last` with another value
  std::vector<Entry> many;   // up to a thousand that stand there, with another value
  std::vector<Entry> added;  // as many as stand there, and none of them

  void turnBack() {
    for (Entry& entry : many) entry.value ^= 1;
  }
};

// Each operation leaves the store as it was: `undo` is not timed.
struct Operation {
  const char* name;
  Task task;
  bool (*run)(Workload& store);
  bool (*undo)(Workload& store);
};

constexpr auto nothing = [](Workload&) { return true; };

constexpr Operation operations[] = {
    {"GetLast", Reads, [](Workload& store) { return store.subject->get(store.last); }, nothing},
    {"GetMiss", Reads, [](Workload& store) { return !store.subject->get(store.missing); }, nothing},
    {"GetPort", ByPort, [](Workload& store) { return store.subject->getByPort(store.last); },
     nothing},
    {"Scan", Reads, [](Workload& store) { return store.subject->scan() == store.count; }, nothing},
    {"Add", Updates, [](Workload& store) { return store.subject->add(store.missing); },
     [](Workload& store) { return store.subject->remove(store.missing); }},
    {"Change", Updates, [](Workload& store) { return store.subject->change(store.next); },
     [](Workload& store) {  // the next Change changes it back
       std::swap(store.last, store.next);
       return true;
     }},
    {"Delete", Updates, [](Workload& store) { return store.subject->remove(store.last); },
     [](Workload& store) { return store.subject->add(store.last); }},
    {"ChangeMany", ManyChanges,
     [](Workload& store) { return store.subject->many(Subject::Many::Change, store.many); },
     [](Workload& store) { return store.turnBack(), true; }},
    {"Import", ManyChanges,
     [](Workload& store) { return store.subject->many(Subject::Many::Add, store.added); },
     [](Workload& store) { return store.subject->many(Subject::Many::Remove, store.added); }},
};

// The floor is for the library's comparison in memory. What is read stands in the system's cache at
// either place, so that of the others only updates are measured at both.
bool isMeasured(const SubjectRow& subject, const Operation& operation, const std::string& place) {
  if ((subject.tasks & operation.task) == 0) return false;
  const bool inMemory = place == places[0];
  if (subject.role == Role::Floor) return inMemory;
  if (operation.task == ManyChanges) return !inMemory;
  return !inMemory || subject.role == Role::Registry || operation.task == Updates;
}

struct Case {
  SubjectRow subject;
  const Operation* operation;
  std::size_t count;
  std::string place;
  std::filesystem::path directory;  // of the place

  std::string name() const {
    return std::string(subject.name) + "/" + operation->name + "/" + std::to_string(count) + "/" +
           place;
  }
  Workload makeStore(std::size_t entries, const char* use) const {
    const auto home = directory / use / (subject.name + ("-" + std::to_string(entries)));
    std::filesystem::remove_all(home);
    std::filesystem::create_directories(home);
    Workload store{subject.make(home, entries),
                   entries,
                   entryAt(entries - 1),
                   entryAt(entries),
                   entryAt(entries - 1),
                   {},
                   {}};
    store.next.value += 1;
    for (std::size_t i = 0; i < std::min<std::size_t>(entries, 1000); ++i) {
      store.many.push_back(entryAt(i));
      store.many.back().value ^= 1;
    }
    for (std::size_t i = 0; i < entries; ++i) store.added.push_back(entryAt(entries + 1 + i));
    return store;
  }
};

std::vector<Case> allCases(char** directories) {
  std::vector<Case> cases;
  for (const SubjectRow& subject : allSubjects()) {
    for (const Operation& operation : operations) {
      for (const std::size_t count : sizes) {
        if (count > subject.largest) continue;
        for (std::size_t i = 0; i < std::size(places); ++i) {
          if (!isMeasured(subject, operation, places[i])) continue;
          cases.push_back({subject, &operation, count, places[i], directories[i]});
        }
      }
    }
  }
  return cases;
}

// One store per subject, size and place serves all its operations and repetitions; but operations
// on many entries, which would change what the others expect, and a Get by port, which expects what
// a Change changes, have others.
Workload& storeOf(const Case& wanted) {
  static std::map<std::string, Workload> stores;
  const Task task = wanted.operation->task;
  const char* const use = task == ManyChanges ? "many" : task == ByPort ? "ports" : "measured";
  const std::string name =
      wanted.subject.name + ("/" + std::to_string(wanted.count)) + wanted.place + use;
  const auto found = stores.find(name);
  if (found != stores.end()) return found->second;
  Workload& made = stores.emplace(name, wanted.makeStore(wanted.count, use)).first->second;
  if (made.subject->scan() != wanted.count) throw std::runtime_error("no such store: " + name);
  return made;
}

// The counter is the median of the single operations: a machine that is busy with something else
// makes some of them many times as slow, which would hide the others in a mean. What is kept open
// reads in less than the clock costs several times; so several reads are timed as one.
void measure(benchmark::State& state, const Case& wanted) {
  using Clock = std::chrono::steady_clock;
  Workload& store = storeOf(wanted);
  store.subject->prepare();
  const std::size_t times = wanted.subject.role == Role::KeptOpen ? readsAtATime : 1;
  std::vector<double> all;
  for ([[maybe_unused]] auto iteration : state) {
    bool done = true;
    const Clock::time_point start = Clock::now();
    for (std::size_t i = 0; i < times; ++i) done = wanted.operation->run(store) && done;
    const std::chrono::duration<double> taken = Clock::now() - start;
    if (!done || !wanted.operation->undo(store)) return state.SkipWithError("the operation failed");
    state.SetIterationTime(taken.count());
    all.push_back(taken.count() / static_cast<double>(times));
  }
  const auto middle = all.begin() + static_cast<std::ptrdiff_t>(all.size() / 2);
  std::nth_element(all.begin(), middle, all.end());
  state.counters["median_us"] = *middle * 1e6;
}

void registerCase(const Case& wanted) {
  const auto measured = [wanted](benchmark::State& state) { measure(state, wanted); };
  benchmark::RegisterBenchmark(wanted.name().c_str(), measured)
      ->Unit(benchmark::kMicrosecond)
      ->UseManualTime();
}

// The same operation on a small store comes first, so that what the process needs once for all does
// not count. What is kept open is opened by the operation, so that what it keeps counts, too. The
// peak is that of bench/heap_peak.cpp, 0 without it.
int runOnce(const Case& wanted) {
  Workload warming = wanted.makeStore(sizes[0], "warming");
  Workload store = wanted.makeStore(wanted.count, "measured");
  const auto heapPeak = reinterpret_cast<std::size_t (*)()>(::dlsym(RTLD_DEFAULT, "heapPeak"));
  warming.subject->prepare();
  if (!wanted.operation->run(warming)) return 1;
  store.subject->prepare();
  if (heapPeak != nullptr) (void)heapPeak();
  (void)::getppid();
  const bool done = wanted.operation->run(store);
  (void)::getppid();
  std::printf("%zu\n", heapPeak != nullptr ? heapPeak() : 0);
  return done ? 0 : 1;
}

int run(int count, char** arguments) {
  if (count == 5 && arguments[3] == std::string("--contention")) {
    return measureContention(arguments[2], std::atof(arguments[4]));
  }
  const std::vector<Case> cases = allCases(arguments + 1);
  if (count == 5 && arguments[3] == std::string("--once")) {
    for (const Case& each : cases) {
      if (each.name() == arguments[4]) return runOnce(each);
    }
    std::fprintf(stderr, "no such case: %s\n", arguments[4]);
    return 2;
  }
  for (const Case& each : cases) {
    const bool changes = (each.operation->task & (Updates | ManyChanges)) != 0;
    if (!changes || each.count <= largestUpdated) registerCase(each);
  }
  count -= 2;
  arguments[2] = arguments[0];
  arguments += 2;
  benchmark::Initialize(&count, arguments);
  if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: zorgenreg_bench MEMORY DISK [OPTIONS]\n");
    return 2;
  }
  // Freed memory stays with the process, as in a program that has done more than this before. Left
  // alone, the allocator would give large buffers back and take fresh pages for them each time or
  // not, depending on who ran before; such faults are neither the library's work nor the floor's.
  constexpr int large = 32 * 1024 * 1024;
  (void)::mallopt(M_MMAP_THRESHOLD, large);
  (void)::mallopt(M_TRIM_THRESHOLD, 8 * large);
  try {
    return run(argc, argv);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "zorgenreg_bench: %s\n", failure.what());
    return 2;
  }
}
