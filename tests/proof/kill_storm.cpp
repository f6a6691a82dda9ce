// Writers of all kinds of registries at once, each of whose threads counts up in a record of its
// own and in a twin of it, both by one update, and then in a third one by a plain change. They are
// killed at random moments and started again, while readers, of which some keep what they have
// read, get and scan, and a program that knows nothing of the library looks for the registries'
// names. No reader fails, misses what had been acknowledged before it asked, sees an older record
// than before, or half an update; no name is missing; and in the end every count is there, and
// nothing else but what people find.
#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <map>
#include <new>
#include <random>
#include <thread>

#include "proof/children.h"
#include "proof/scenario.h"

namespace {

using proof::Handle;
using proof::Records;
using proof::Scenario;
using proof::Verb;
using Clock = std::chrono::steady_clock;

constexpr int kindCount = static_cast<int>(std::size(flavours::rows));
constexpr int writers = 2;  // of each kind
constexpr int threads = 2;  // of each writer
constexpr int counters = writers * threads;
constexpr int jobsOfKind = writers + 2;          // and two readers
constexpr int watcher = kindCount * jobsOfKind;  // the job of the program that looks for names
const char* const prefixes[] = {"c", "t", "s"};  // a counter, its twin, and the one on its own

// What all processes see.
struct Kind {
  std::atomic<int> acknowledged[std::size(prefixes)][counters] = {};
  std::atomic<unsigned long> reads{0};
};
struct Board {
  std::atomic<bool> stop{false};
  std::atomic<unsigned long> looks{0};
  Kind kinds[kindCount];
};

Board& board() { return *static_cast<Board*>(proof::sharedMemory(sizeof(Board))); }

// By prefix and counter.
using Counts = std::array<std::array<int, counters>, std::size(prefixes)>;

// A record holds its count as a port can, from 1 to 65535 and then from 1 again, which comes soon.
constexpr int numbers = 65535;
int numberOf(int count) { return (count + numbers - 100) % numbers + 1; }
// The count that is nearest to one known before; of a record that is not there, too low a one.
int countOf(int number, int known) {
  if (number == 0) return -1;
  const int ahead = (number - numberOf(known) + numbers) % numbers;
  return known + (ahead <= numbers / 2 ? ahead : ahead - numbers);
}

Entry counter(std::size_t prefix, int index, int count) {
  return {prefixes[prefix] + std::to_string(index), numberOf(count)};
}

void pause(unsigned long microseconds) {
  std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
}

std::string placeOf(int kind) { return proof::home + "/" + flavours::rows[kind].name; }

struct Storm {
  explicit Storm(int kind)
      : shared(board().kinds[kind]),
        scenario{"killed writers", flavours::rows + kind, 0, Verb::Change, {}} {
    proof::workIn(placeOf(kind));
  }

  Kind& shared;
  const Scenario scenario;

  bool write(int writer) const {
    // They are to be killed in the midst of a commit more often than elsewhere.
    const FaultHook hook([](const std::string& call) {
      if (call == "rename" || call == "unlink") pause(1000);
      return 0;
    });
    std::vector<std::future<bool>> counting;
    const int first = writer * threads;
    for (int i = first + 1; i < first + threads; ++i) {
      counting.push_back(std::async(std::launch::async, [this, i] { return count(i); }));
    }
    bool all = count(first);  // on the thread that signals come to
    for (std::future<bool>& each : counting) all = each.get() && all;
    return all;
  }

  bool count(int index) const {
    const auto handle = scenario.open();
    if (handle->run(Verb::Get, counter(0, index, 1)) != 0) return false;
    const int last = countOf(handle->found().value, shared.acknowledged[0][index]);
    for (int next = last + 1; !board().stop; ++next) {
      const Code both = handle->inOneUpdate([&] {
        const Code first = handle->run(Verb::Change, counter(0, index, next));
        return first == 0 ? handle->run(Verb::Change, counter(1, index, next)) : first;
      });
      if (both != 0) return false;
      shared.acknowledged[0][index] = shared.acknowledged[1][index] = next;
      if (handle->run(Verb::Change, counter(2, index, next)) != 0) return false;
      shared.acknowledged[2][index] = next;
    }
    return true;
  }

  // Whether a scan shows whole updates, none older than `oldest`, which it then brings up to date.
  bool isNoOlder(Handle& handle, Counts& oldest) const {
    Records found;
    std::size_t size = 0;
    if (handle.scan(&size, &found) != 0 || size != std::size(prefixes) * counters) return false;
    std::map<std::string, int> values;
    for (const Entry& record : found) values[record.name] = record.value;
    for (std::size_t prefix = 0; prefix < std::size(prefixes); ++prefix) {
      for (int i = 0; i < counters; ++i) {
        const int number = values[counter(prefix, i, 0).name];
        int& old = oldest[prefix][static_cast<std::size_t>(i)];
        const int count = countOf(number, old);
        if (count < old || values[counter(0, i, 0).name] != values[counter(1, i, 0).name])
          return false;
        old = count;
      }
    }
    return true;
  }

  void catchUp(Counts& oldest) const {
    for (std::size_t prefix = 0; prefix < std::size(prefixes); ++prefix) {
      for (int i = 0; i < counters; ++i) {
        int& old = oldest[prefix][static_cast<std::size_t>(i)];
        old = std::max<int>(old, shared.acknowledged[prefix][i]);
      }
    }
  }

  bool read(bool keeps) const {
    Counts oldest{};
    const auto kept = scenario.open();
    kept->keepReads();
    while (!board().stop) {
      const auto fresh = scenario.open();
      Handle& handle = keeps ? *kept : *fresh;
      catchUp(oldest);
      if (!isNoOlder(handle, oldest)) return false;
      catchUp(oldest);
      if (handle.run(Verb::Get, counter(0, 0, 1)) != 0) return false;
      if (countOf(handle.found().value, oldest[0][0]) < oldest[0][0]) return false;
      ++shared.reads;
    }
    return true;
  }

  void prepare() const {
    Records records;
    for (std::size_t prefix = 0; prefix < std::size(prefixes); ++prefix) {
      for (int i = 0; i < counters; ++i) records.push_back(counter(prefix, i, 1));
    }
    proof::restore({{proof::registry, {scenario.fileOf(records), 1}}});
  }

  int sumOf(int writer) const {
    int sum = 0;
    for (int i = 0; i < threads; ++i) sum += shared.acknowledged[2][writer * threads + i];
    return sum;
  }

  // Waits until a writer is at work, but not for ever, and then a moment.
  bool awaits(int writer, unsigned long moment) const {
    const int before = sumOf(writer);
    for (int tries = 0; sumOf(writer) == before && tries < 60000; ++tries) pause(1000);
    const bool works = sumOf(writer) != before;
    scenario.expect(works, "somebody stood still");
    pause(moment);
    return works;
  }

  void judge(int killed, bool workedWell) const {
    scenario.count(static_cast<unsigned long>(killed));
    scenario.expect(workedWell, "an update or a read failed, or a name was missing");
    Counts acknowledged{};
    catchUp(acknowledged);
    scenario.expect(isNoOlder(*scenario.open(), acknowledged), "an acknowledged update is lost");
    scenario.expect(scenario.open()->run(Verb::Add, {"next", 9}) == 0, "the next update");
    for (const auto& [name, file] : proof::files()) {
      const bool isKnown = name == proof::registry || name == proof::corrupt;
      scenario.expect(isKnown, "left over: " + name);
    }
    std::fprintf(stderr, "%s: %d updates, %lu reads, %lu looks\n", scenario.flavour->name,
                 2 * (sumOf(0) + sumOf(1)), shared.reads.load(), board().looks.load());
  }
};

// Whoever knows only the name finds a file there.
bool watch() {
  while (!board().stop) {
    for (int kind = 0; kind < kindCount; ++kind) {
      if (!exists(placeOf(kind) + "/r")) return false;
      ++board().looks;
    }
  }
  return true;
}

int work(int job) {
  if (job == watcher) return watch() ? 0 : 1;
  const Storm storm(job / jobsOfKind);
  const int number = job % jobsOfKind;
  return (number < writers ? storm.write(number) : storm.read(number > writers)) ? 0 : 1;
}

void rage(std::chrono::seconds duration) {
  for (int kind = 0; kind < kindCount; ++kind) Storm(kind).prepare();
  proof::Children children;
  const bool watches = lacking(Need::StandingName) == nullptr;
  for (int job = 0; job < watcher + (watches ? 1 : 0); ++job) {
    children.push_back(std::make_unique<proof::Child>(job));
  }
  std::minstd_rand random(1);
  int killed[kindCount] = {};
  const auto end = Clock::now() + duration;
  for (bool all = true; all && Clock::now() < end;) {
    const auto kind = static_cast<int>(random() % kindCount);
    const auto writer = static_cast<int>(random() % writers);
    all = Storm(kind).awaits(writer, random() % 8000);
    auto& victim = children[static_cast<std::size_t>(kind * jobsOfKind + writer)];
    victim->kill();
    victim = std::make_unique<proof::Child>(kind * jobsOfKind + writer);
    ++killed[kind];
  }
  board().stop = true;
  bool workedWell = true;
  for (const auto& child : children) workedWell = child->wait() == 0 && workedWell;
  for (int kind = 0; kind < kindCount; ++kind) Storm(kind).judge(killed[kind], workedWell);
}

}  // namespace

int main(int argc, char** argv) {
  proof::takeJobs(work);
  new (&board()) Board;
  // A process costs more where none can fork.
  const std::chrono::seconds shortly(lacking(Need::Forks) == nullptr ? 60 : 20);
  rage(proof::isShort(argc, argv) ? shortly : std::chrono::hours(1));
  return proof::finish();
}
