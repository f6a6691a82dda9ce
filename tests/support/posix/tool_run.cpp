#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>

#include "support/tool.h"

ToolRun runTool(const std::string& arguments, const std::string& input) {
  char name[] = "/tmp/zorreg-run-XXXXXX";
  const std::string directory = ::mkdtemp(name);
  writeFile(directory + "/in", input);
  const std::string command = std::string(ZORREG_PATH) + " <" + directory + "/in >" + directory +
                              "/out 2>" + directory + "/err " + arguments;
  const int status = std::system(command.c_str());
  ToolRun run{WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(directory + "/out"),
              readFile(directory + "/err")};
  std::filesystem::remove_all(directory);
  return run;
}
