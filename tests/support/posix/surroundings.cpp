#include "support/surroundings.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

namespace fs = std::filesystem;

const char* lacking(Need) { return nullptr; }

std::string makeTestDirectory() {
  char name[] = "/tmp/zorgenreg-test-XXXXXX";
  return ::mkdtemp(name);
}

void setPermissions(const std::string& path, unsigned int permissions) {
  EXPECT_EQ(::chmod(path.c_str(), permissions), 0) << path;
}

unsigned int permissionsOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777u;
}

unsigned int keptPermissions(unsigned int permissions) { return permissions; }

std::uint64_t inodeOf(const std::string& path) {
  struct stat status {};
  (void)::lstat(path.c_str(), &status);
  return status.st_ino;
}

void plantLink(const std::string& target, const std::string& name) {
  ASSERT_EQ(::symlink(target.c_str(), name.c_str()), 0);
}

void plantPipe(const std::string& name) { ASSERT_EQ(::mkfifo(name.c_str(), 0600), 0); }

std::FILE* scratchStream() { return std::tmpfile(); }

std::size_t openDescriptors() {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
}

void closeTwoStandardDescriptors() {
  ::close(0);
  ::close(2);
}

bool standardDescriptorsAreFree() { return ::fcntl(0, F_GETFD) == -1 && ::fcntl(2, F_GETFD) == -1; }

bool wouldInheritFilesOf(const std::string& directory) {
  for (int descriptor = 0; descriptor < 64; ++descriptor) {
    std::error_code none;
    const fs::path target = fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor), none);
    const bool ours = target.string().find(directory) == 0;
    if (ours && (::fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0) return true;
  }
  return false;
}

int inChild(const std::function<int()>& body) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(body());
  int status = 0;
  (void)::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::string shellCommand(const std::string& words) { return words; }

int exitStatus(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }

void killThisProcess() { (void)::raise(SIGKILL); }

ForkedChild::ForkedChild() : process_(::fork()) {
  if (process_ != 0) return;
  (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
  for (;;) ::pause();
}

ForkedChild::~ForkedChild() {
  (void)::kill(process_, SIGKILL);
  EXPECT_EQ(::waitpid(process_, nullptr, 0), process_);
}
