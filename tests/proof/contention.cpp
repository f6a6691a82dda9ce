// Processes and threads, each with handles of its own, add, change and delete records of one
// registry while others get and scan: every update returns 0, every record is there exactly once,
// no reader ever fails, nothing is left over.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "proof/subject.h"
#include "support/registry_fixture.h"

namespace {

using proof::Flavour;
using proof::Records;
using proof::Scenario;
using proof::Verb;

struct Size {
  int processes;
  int threads;
  int rounds;  // records that each worker adds; it changes all and deletes every other one
};

std::string nameOf(int worker, int round) {
  return "w" + std::to_string(worker) + "x" + std::to_string(round);
}

// One worker's updates; 0 when each returned 0.
int update(const Flavour& flavour, std::uint64_t features, int worker, int rounds) {
  const auto handle = flavour.open(features);
  for (int round = 0; round < rounds; ++round) {
    const std::string name = nameOf(worker, round);
    if (handle->run({Verb::Add, name.c_str(), 1}) != 0) return 1;
    if (handle->run({Verb::Change, name.c_str(), 2 + round}) != 0) return 2;
    if (round % 2 != 0 && handle->run({Verb::Delete, name.c_str()}) != 0) return 3;
  }
  return 0;
}

Records expected(const Size& size) {
  Records records{{"fixed", 7}};
  for (int worker = 0; worker < size.processes + size.threads; ++worker) {
    for (int round = 0; round < size.rounds; round += 2) {
      records.emplace_back(nameOf(worker, round), 2 + round);
    }
  }
  std::sort(records.begin(), records.end());
  return records;
}

bool hasTwins(Records records) {
  std::sort(records.begin(), records.end());
  const auto sameName = [](const auto& a, const auto& b) { return a.first == b.first; };
  return std::adjacent_find(records.begin(), records.end(), sameName) != records.end();
}

// Reads until the other end of the pipe is closed; 0 when no read failed.
int readUntilClosed(const Flavour& flavour, std::uint64_t features, int pipe) {
  for (;;) {
    if (flavour.open(features)->run({Verb::Get, "fixed"}) != 0) return 1;
    Records found;
    if (flavour.open(features)->scan(&found) != 0) return 2;
    if (found.empty() || found.front() != Records::value_type{"fixed", 7}) return 3;
    if (hasTwins(found)) return 4;
    fd_set ended;
    FD_ZERO(&ended);
    FD_SET(pipe, &ended);
    timeval none{};
    if (::select(pipe + 1, &ended, nullptr, nullptr, &none) > 0) return 0;
  }
}

// `body` in a child process, whose exit status is its result.
pid_t start(const std::function<int()>& body) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(body());
  return child;
}

bool succeeded(pid_t child) {
  int status = 0;
  return ::waitpid(child, &status, 0) == child && status == 0;
}

void contend(const Flavour& flavour, std::uint64_t features, const Size& size,
             const proof::Directory& directory, proof::Report& report) {
  const bool inPlace = features == unverified;
  const auto scenario = [&](Verb verb) {
    return Scenario{&flavour, features, inPlace && verb == Verb::Add, proof::Start::Clean, {verb}};
  };
  const auto expect = [&](bool holds, const char* what) {
    report.expect(holds, scenario(Verb::Add), [&] { return std::string(what); });
  };
  directory.restore({{proof::Directory::registry(), flavour.stored("fixed", 7)}});
  int stop[2];
  if (::pipe(stop) != 0) std::abort();
  std::vector<pid_t> readers;
  std::vector<pid_t> updaters;
  for (int reader = 0; reader < 2; ++reader) {
    readers.push_back(start([&] {
      ::close(stop[1]);
      return readUntilClosed(flavour, features, stop[0]);
    }));
  }
  for (int worker = 0; worker < size.processes; ++worker) {
    updaters.push_back(
        start([&, worker] { return update(flavour, features, worker, size.rounds); }));
  }
  std::atomic<int> failed{0};
  std::vector<std::thread> threads;
  for (int worker = size.processes; worker < size.processes + size.threads; ++worker) {
    threads.emplace_back(
        [&, worker] { failed += update(flavour, features, worker, size.rounds) != 0; });
  }
  for (std::thread& thread : threads) thread.join();
  expect(failed == 0, "an update in a thread failed");
  for (const pid_t child : updaters) expect(succeeded(child), "an update in a process failed");
  ::close(stop[1]);
  for (const pid_t child : readers) expect(succeeded(child), "a reader failed");
  ::close(stop[0]);

  Records found;
  const unsigned int code = flavour.open(features)->scan(&found);
  std::sort(found.begin(), found.end());
  expect(code == 0 && found == expected(size), "the records are not those of the updates");
  expect(directory.files().size() == 1, "a file was left over");
  const auto workers = static_cast<unsigned long>(size.processes + size.threads);
  const auto rounds = static_cast<unsigned long>(size.rounds);
  report.count(scenario(Verb::Add), workers * rounds);
  report.count(scenario(Verb::Change), workers * rounds);
  report.count(scenario(Verb::Delete), workers * (rounds / 2));
}

}  // namespace

int main(int argc, char** argv) {
  const proof::Directory directory;
  proof::Report report("contended updates", argc, argv);
  const Size size = report.isShort() ? Size{4, 2, 40} : Size{6, 3, 400};
  for (const Flavour& flavour : proof::flavours) {
    for (const std::uint64_t features : {std::uint64_t{0}, unverified}) {
      contend(flavour, features, size, directory, report);
    }
  }
  return report.finish();
}
