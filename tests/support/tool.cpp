#include "support/tool.h"

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>

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

void expectSteps(const std::string& prefix, const std::vector<ToolStep>& steps) {
  for (const ToolStep& step : steps) {
    SCOPED_TRACE(step.arguments);
    const ToolRun run = runTool(prefix + step.arguments, step.input);
    EXPECT_EQ(run.status, step.status) << run.error;
    EXPECT_EQ(run.output, step.output);
    EXPECT_NE(run.error.find(step.error), std::string::npos) << run.error;
    EXPECT_TRUE(run.status == 0 || !run.error.empty()) << "a failure is explained";
  }
}
