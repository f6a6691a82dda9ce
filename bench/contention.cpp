#include "bench/contention.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "bench/subject.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t records = 1000;
constexpr std::size_t writerNumbers[] = {1, 2, 4, 8, 16};
constexpr std::size_t mostWriters = 16;
constexpr std::size_t mostTimes = 1 << 16;  // that one writer has room for

// What a writer leaves in memory that it shares with the process that made it.
struct Writer {
  std::size_t done;
  std::size_t failed;
  std::int32_t value;  // of its record, as changed last
  Clock::time_point end;
  float micros[mostTimes];  // of each change that was done
};

void write(Subject& store, std::size_t index, Clock::time_point deadline, Writer& writer) {
  Entry entry = entryAt(index);
  writer.value = entry.value;
  Clock::time_point now = Clock::now();
  while (now < deadline && writer.done < mostTimes) {
    const Clock::time_point start = now;
    entry.value = writer.value == 99999 ? 10000 : writer.value + 1;
    const bool done = store.change(entry);
    now = Clock::now();
    if (done) {
      writer.value = entry.value;
      writer.micros[writer.done++] = std::chrono::duration<float, std::micro>(now - start).count();
    } else {
      ++writer.failed;
    }
  }
  writer.end = now;
}

// Starts the writers at the same time and waits for them. The gate is a pipe of which reading ends
// when its last writing end is closed.
void runWriters(Subject& store, std::size_t count, double seconds, Writer* writers,
                Clock::time_point* start) {
  int gate[2];
  if (::pipe(gate) != 0) throw std::runtime_error("no pipe");
  std::vector<pid_t> processes;
  for (std::size_t i = 0; i < count; ++i) {
    const pid_t process = ::fork();
    if (process < 0) throw std::runtime_error("no process");
    if (process > 0) {
      processes.push_back(process);
      continue;
    }
    char none = 0;
    (void)::close(gate[1]);
    (void)!::read(gate[0], &none, 1);
    const std::chrono::duration<double> allowed(seconds);
    write(store, i, Clock::now() + std::chrono::duration_cast<Clock::duration>(allowed),
          writers[i]);
    ::_exit(0);
  }
  *start = Clock::now();
  (void)::close(gate[1]);
  (void)::close(gate[0]);
  for (const pid_t process : processes) {
    int status = 0;
    if (::waitpid(process, &status, 0) != process || status != 0) {
      throw std::runtime_error("a writer failed");
    }
  }
}

void report(const char* name, std::size_t count, const Writer* writers, Clock::time_point start) {
  std::vector<float> micros;
  std::size_t failed = 0;
  double squares = 0;
  Clock::time_point end = start;
  for (const Writer* writer = writers; writer != writers + count; ++writer) {
    micros.insert(micros.end(), writer->micros, writer->micros + writer->done);
    failed += writer->failed;
    squares += static_cast<double>(writer->done) * static_cast<double>(writer->done);
    end = std::max(end, writer->end);
  }
  if (micros.empty()) throw std::runtime_error(std::string("no update was done: ") + name);
  std::sort(micros.begin(), micros.end());
  const auto total = static_cast<double>(micros.size());
  const double seconds = std::chrono::duration<double>(end - start).count();
  const auto reached = [&](double part) {
    return static_cast<double>(micros[static_cast<std::size_t>((total - 1) * part)]);
  };
  std::printf("%s %zu %.1f %.1f %.1f %.1f %.3f %zu\n", name, count, total / seconds, reached(0.5),
              reached(0.99), reached(1), total * total / (static_cast<double>(count) * squares),
              failed);
}

void contend(const SubjectRow& subject, const std::string& directory, std::size_t count,
             double seconds, Writer* writers) {
  const auto home = std::filesystem::path(directory) / "contention";
  std::filesystem::remove_all(home);
  std::filesystem::create_directories(home);
  for (std::size_t i = 0; i < count; ++i) writers[i].done = writers[i].failed = 0;
  const std::unique_ptr<Subject> store = subject.make(home, records);
  Clock::time_point start;
  runWriters(*store, count, seconds, writers, &start);
  for (std::size_t i = 0; i < count; ++i) {
    Entry expected = entryAt(i);
    expected.value = writers[i].value;
    if (!store->get(expected)) throw std::runtime_error(std::string("lost: ") + subject.name);
  }
  report(subject.name, count, writers, start);
}

}  // namespace

int measureContention(const std::string& directory, double seconds) {
  constexpr std::size_t size = mostWriters * sizeof(Writer);
  void* const shared =
      ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) throw std::runtime_error("no shared memory");
  for (const SubjectRow& subject : allSubjects()) {
    if ((subject.tasks & Contention) == 0) continue;
    for (const std::size_t count : writerNumbers) {
      contend(subject, directory, count, seconds, static_cast<Writer*>(shared));
    }
  }
  return 0;
}
