#include <fcntl.h>
#include <io.h>
#include <process.h>

#include <filesystem>

#include "support/tool.h"

namespace {

// The command line of words that stand as for a shell: in single quotes where they hold blanks.
std::string commandLine(const std::string& program, const std::string& words) {
  std::string line = "\"" + program + "\" ";
  for (const char character : words) {
    if (character == '"') line += '\\';
    line += character == '\'' ? '"' : character;
  }
  return line;
}

// While it lives, a standard descriptor is that of a file.
class Redirection {
 public:
  Redirection(int standard, const std::string& path) : standard_(standard) {
    std::fflush(nullptr);
    const int flags = standard == 0 ? _O_RDONLY : _O_WRONLY | _O_CREAT;
    const int file = ::_open(path.c_str(), flags | _O_BINARY | _O_NOINHERIT, 0600);
    saved_ = ::_dup(standard);
    EXPECT_EQ(::_dup2(file, standard), 0);
    ::_close(file);
  }
  ~Redirection() {
    ::_dup2(saved_, standard_);
    ::_close(saved_);
  }
  Redirection(const Redirection&) = delete;
  Redirection& operator=(const Redirection&) = delete;

 private:
  int standard_;
  int saved_;
};

// What a program wrote, with the ends of lines that the tests are written with.
std::string readText(const std::string& path) {
  std::string text = readFile(path);
  for (std::size_t at = 0; (at = text.find("\r\n", at)) != std::string::npos;) text.erase(at, 1);
  return text;
}

}  // namespace

ToolRun runTool(const std::string& arguments, const std::string& input) {
  static unsigned int count = 0;
  const std::filesystem::path directory =
      std::filesystem::temp_directory_path() /
      ("zorreg-run-" + std::to_string(::_getpid()) + "-" + std::to_string(++count));
  std::filesystem::create_directory(directory);
  const std::string in = (directory / "in").string();
  const std::string out = (directory / "out").string();
  const std::string error = (directory / "err").string();
  writeFile(in, input);
  std::intptr_t status = -1;
  {
    const Redirection redirections[] = {{0, in}, {1, out}, {2, error}};
    const std::string line = commandLine(ZORREG_PATH, arguments);
    status = ::_spawnl(_P_WAIT, ZORREG_PATH, line.c_str(), nullptr);
  }
  ToolRun run{static_cast<int>(status), readText(out), readText(error)};
  std::filesystem::remove_all(directory);
  return run;
}
