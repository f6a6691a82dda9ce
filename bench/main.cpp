// Registers every subject with every operation, size and place, as SUBJECT/OPERATION/RECORDS/PLACE,
// and hands over to Google Benchmark. Options of its own:
//   --memory=DIR, --disk=DIR      where the two places are (default /dev/shm and the working
//                                 directory); a scratch directory is made there and removed
//   --once=SUBJECT/OPERATION/RECORDS/PLACE
//                                 one operation in a fresh process, which prints its peak of
//                                 memory; the process makes its getppid calls right before and
//                                 behind it
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "bench/once.h"
#include "bench/subjects.h"
#include "bench/workload.h"

namespace {

constexpr std::size_t sizes[] = {10, 100, 1000, 10000, 100000};
constexpr std::size_t largestUpdated = 10000;

struct Place {
  std::string name;
  std::filesystem::path directory;
};

struct Case {
  const SubjectRow* subject;
  const OperationRow* operation;
  std::size_t records;
  const Place* place;

  std::string name() const {
    return std::string(subject->name) + "/" + operation->name + "/" + std::to_string(records) +
           "/" + place->name;
  }
};

std::vector<SubjectRow> allSubjects() {
  std::vector<SubjectRow> all;
  for (const auto& some :
       {registrySubjects(), floorSubjects(), databaseSubjects(), textPeerSubjects()}) {
    all.insert(all.end(), some.begin(), some.end());
  }
  return all;
}

std::vector<Case> allCases(const std::vector<SubjectRow>& subjects,
                           const std::vector<Place>& places) {
  std::vector<Case> cases;
  for (const SubjectRow& subject : subjects) {
    for (const OperationRow& operation : operations) {
      if (!operation.updates && !subject.reads) continue;
      for (const std::size_t records : sizes) {
        if (records > subject.largest || (operation.updates && records > largestUpdated)) continue;
        for (const Place& place : places) cases.push_back({&subject, &operation, records, &place});
      }
    }
  }
  return cases;
}

// One store per subject, size and place serves all its operations and repetitions: each of them
// leaves it as it was.
Workload& storeOf(const Case& wanted) {
  static std::map<std::string, std::unique_ptr<Workload>> stores;
  const std::string name = std::string(wanted.subject->name) + "-" + std::to_string(wanted.records);
  std::unique_ptr<Workload>& store = stores[wanted.place->name + "/" + name];
  if (store == nullptr) {
    store =
        std::make_unique<Workload>(*wanted.subject, wanted.place->directory / name, wanted.records);
    store->prepare();
  }
  return *store;
}

// An update's own time alone is counted, without what brings the store back.
void measureUpdate(benchmark::State& state, const OperationRow& operation, Workload& store) {
  using Clock = std::chrono::steady_clock;
  for ([[maybe_unused]] auto iteration : state) {
    const Clock::time_point start = Clock::now();
    const bool done = operation.run(store);
    const std::chrono::duration<double> taken = Clock::now() - start;
    if (!done || !operation.undo(store)) return state.SkipWithError("the operation failed");
    state.SetIterationTime(taken.count());
  }
}

void measureRead(benchmark::State& state, const OperationRow& operation, Workload& store) {
  for ([[maybe_unused]] auto iteration : state) {
    if (!operation.run(store)) return state.SkipWithError("the operation failed");
  }
}

void registerCase(const Case& wanted) {
  auto* registered =
      benchmark::RegisterBenchmark(wanted.name().c_str(), [wanted](benchmark::State& state) {
        const auto measure = wanted.operation->updates ? measureUpdate : measureRead;
        measure(state, *wanted.operation, storeOf(wanted));
      });
  if (wanted.operation->updates) {
    registered->UseManualTime();
  } else {
    registered->UseRealTime();
  }
  registered->Unit(benchmark::kMicrosecond);
}

int runOnce(const std::vector<Case>& cases, const std::string& name) {
  for (const Case& each : cases) {
    if (each.name() != name) continue;
    const auto& directory = each.place->directory;
    Workload warming(*each.subject, directory / "warming", sizes[0]);
    Workload measured(*each.subject, directory / "measured", each.records);
    return reportOnce(*each.operation, warming, measured);
  }
  std::fprintf(stderr, "no such case: %s\n", name.c_str());
  return 2;
}

// Takes "--NAME=VALUE" out of the arguments; the value, or `otherwise`.
std::string takeOption(int& count, char** arguments, const std::string& name,
                       const std::string& otherwise) {
  const std::string prefix = "--" + name + "=";
  for (int i = 1; i < count; ++i) {
    const std::string argument = arguments[i];
    if (argument.compare(0, prefix.size(), prefix) != 0) continue;
    for (int k = i; k < count; ++k) arguments[k] = arguments[k + 1];
    --count;
    return argument.substr(prefix.size());
  }
  return otherwise;
}

class Scratch {
 public:
  explicit Scratch(const std::string& parent) {
    std::string pattern = parent + "/zorgenreg-bench-XXXXXX";
    if (::mkdtemp(pattern.data()) != nullptr) directory_ = pattern;
  }
  ~Scratch() {
    std::error_code ignored;
    if (!directory_.empty()) std::filesystem::remove_all(directory_, ignored);
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  const std::filesystem::path& directory() const { return directory_; }

 private:
  std::filesystem::path directory_;
};

}  // namespace

int main(int argc, char** argv) {
  const std::string once = takeOption(argc, argv, "once", "");
  const Scratch memory(takeOption(argc, argv, "memory", "/dev/shm"));
  const Scratch disk(takeOption(argc, argv, "disk", "."));
  if (memory.directory().empty() || disk.directory().empty()) {
    std::perror("scratch directory");
    return 2;
  }
  const std::vector<SubjectRow> subjects = allSubjects();
  const std::vector<Place> places = {{"memory", memory.directory()}, {"disk", disk.directory()}};
  const std::vector<Case> cases = allCases(subjects, places);
  if (!once.empty()) return runOnce(cases, once);

  for (const Case& each : cases) registerCase(each);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
