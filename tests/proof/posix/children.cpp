#include "proof/children.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace proof {
namespace {

int (*workOfChildren)(int job);

// From now on a signal comes every few milliseconds, whatever this process waits for; no wait goes
// on by itself.
void interruptEveryWait() {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  const itimerval every{{0, 3000}, {0, 3000}};
  if (::sigaction(SIGALRM, &action, nullptr) != 0) std::abort();
  if (::setitimer(ITIMER_REAL, &every, nullptr) != 0) std::abort();
}

}  // namespace

std::string makeDirectory() {
  std::string path = std::filesystem::exists("/dev/shm") ? "/dev/shm" : "/tmp";
  path += "/zorgenreg-proof-XXXXXX";
  if (::mkdtemp(path.data()) == nullptr) std::abort();
  return path;
}

void* sharedMemory(std::size_t size) {
  static void* const memory =
      ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) std::abort();
  return memory;
}

void takeJobs(int (*work)(int job)) { workOfChildren = work; }

struct Child::Process {
  pid_t id;
  bool ended = false;
};

// No child outlives its parent; the parent's own tests have a time limit.
Child::Child(int job) : process_(new Process{::fork()}) {
  if (process_->id != 0) return;
  (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
  interruptEveryWait();
  ::_exit(workOfChildren(job));
}

Child::~Child() {
  if (!process_->ended) kill();
}

int Child::wait() {
  int status = 0;
  process_->ended = true;
  if (::waitpid(process_->id, &status, 0) != process_->id) return 1;
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  return WTERMSIG(status) == SIGKILL ? wasKilled : WTERMSIG(status);
}

void Child::kill() {
  (void)::kill(process_->id, SIGKILL);
  (void)wait();
}

}  // namespace proof
