// What the tests ask of the platform that they run on: files, processes, and what it cannot do.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>

// What some tests need and not every platform has.
enum class Need {
  Links,               // symbolic links and pipes with names
  PermissionBits,      // nine bits that say who may do what
  Forks,               // children that start with their parent's open files
  RemovableLockFiles,  // an open lock file can be removed
  StandingName,        // no commit takes the registry's name away, even for a moment
};
// Why a test that needs it is skipped; null where the platform has it.
const char* lacking(Need need);

#define SKIP_WITHOUT(need)                                                             \
  do {                                                                                 \
    if (const char* reason = lacking(need); reason != nullptr) GTEST_SKIP() << reason; \
  } while (false)

// A new directory for one test. The child of a test works in the directory of its parent.
std::string makeTestDirectory();

void setPermissions(const std::string& path, unsigned int permissions);
unsigned int permissionsOf(const std::string& path);
// What the platform keeps of permission bits.
unsigned int keptPermissions(unsigned int permissions);

// The system's number of the file at a name: all names of one file have it.
std::uint64_t inodeOf(const std::string& path);

// Each puts something at a name that is no plain file of its own.
void plantLink(const std::string& target, const std::string& name);
void plantPipe(const std::string& name);

// An empty stream for reading and writing, gone when it is closed.
std::FILE* scratchStream();

// Open descriptors or files of this process.
std::size_t openDescriptors();
// Gives two of the three standard descriptors up; whether they are still free.
void closeTwoStandardDescriptors();
bool standardDescriptorsAreFree();
// Whether a child process would inherit an open file of that directory.
bool wouldInheritFilesOf(const std::string& directory);

// Runs `body` in a child process; gives its exit status, or minus the signal that ended it.
int inChild(const std::function<int()>& body);
// Runs `body` in a child process, where it must hold.
void expectInChild(const std::function<bool()>& body);
// Ends this process without any cleaning up.
void killThisProcess();

// A command for the system's shell, from one whose words stand in single quotes where they hold
// blanks.
std::string shellCommand(const std::string& words);
// The exit status of a program that std::system ran; -1 when it was ended by a signal.
int exitStatus(int status);

// A child that was forked with all open files of this process, until it is destroyed.
class ForkedChild {
 public:
  ForkedChild();
  ~ForkedChild();
  ForkedChild(const ForkedChild&) = delete;
  ForkedChild& operator=(const ForkedChild&) = delete;

 private:
  int process_ = -1;
};
