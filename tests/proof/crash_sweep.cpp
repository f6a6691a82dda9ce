// The process dies before every system call of every operation, and then again before the calls of
// the update that comes next: readers and writers find the old or the new content.
#include <signal.h>

#include "proof/subject.h"
#include "support/registry_fixture.h"

namespace {

using proof::Scenario;
using proof::Verb;

class Sweep : proof::Trial {
 public:
  using Trial::Trial;

  void run() {
    for (unsigned long k = 1;; ++k) {
      directory_.prepare(scenario_);
      if (!diesBefore(k, scenario_, scenario_.step)) return;
      const std::string content = directory_.committed();
      report_.expect(content == old_ || content == new_, scenario_, where(k, 0, "the content"));
      readersSeeIt(content, k);
      dieAgain(content, k);
      report_.expect(nextUpdateKeeps(scenario_, directory_, *scenario_.open(), content), scenario_,
                     where(k, 0, "the next update"));
    }
  }

 private:
  // Runs the step in a child that dies before its k-th call; false when it got to its end.
  bool diesBefore(unsigned long k, const Scenario& scenario, const proof::Step& step) {
    const int ended = inChild([&] {
      FaultPlan plan(k, 0, true);
      return scenario.open()->run(step) == 0 ? 0 : 1;
    });
    report_.expect(ended == -SIGKILL || ended == 0, scenario_, where(k, 0, "no success"));
    if (ended == -SIGKILL) report_.count(scenario_);
    return ended == -SIGKILL;
  }

  void readersSeeIt(const std::string& content, unsigned long k) {
    proof::Records found;
    const bool works = read(scenario_, directory_, &found);
    report_.expect(works && scenario_.flavour->fileOf(found) == content, scenario_,
                   where(k, 0, "a reader"));
  }

  // From the state that the first death left, each time anew. A verified update is the one that
  // sets aside and puts back most.
  void dieAgain(const std::string& content, unsigned long k) {
    const Scenario next{scenario_.flavour, 0, false, scenario_.start, {Verb::Add, "other", 8}};
    const std::string longer = content + scenario_.flavour->stored("other", 8);
    const proof::Directory::Files left = directory_.files();
    const unsigned long stride = report_.isShort() ? 11 : 3;
    for (unsigned long j = 1 + k % stride;; j += stride) {
      directory_.restore(left);
      const bool died = diesBefore(j, next, next.step);
      const std::string now = directory_.committed();
      report_.expect(died ? now == content || now == longer : now == longer, scenario_,
                     where(k, j, "the content"));
      if (!died) break;
      readersSeeIt(now, k);
    }
    directory_.restore(left);
  }

  std::function<std::string()> where(unsigned long k, unsigned long j, const char* what) const {
    return [=] {
      return std::string(what) + " after death before call " + std::to_string(k) +
             (j == 0 ? "" : " and, in the next update, " + std::to_string(j));
    };
  }
};

}  // namespace

int main(int argc, char** argv) {
  const proof::Directory directory;
  proof::Report report("crashes", argc, argv);
  for (const Scenario& scenario : proof::scenarios(!report.isShort())) {
    // What dies in a large registry dies in the same states as in a small one.
    if (scenario.start != proof::Start::Large) Sweep(scenario, directory, report).run();
  }
  return report.finish();
}
