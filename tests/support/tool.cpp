#include "support/tool.h"

#include <cstdlib>
#include <filesystem>
#include <random>

namespace {

// What a program wrote, with the ends of lines that the tests are written with.
std::string readText(const std::string& path) {
  std::string text = readFile(path);
  for (std::size_t at = 0; (at = text.find("\r\n", at)) != std::string::npos;) text.erase(at, 1);
  return text;
}

}  // namespace

ToolRun runTool(const std::string& arguments, const std::string& input) {
  const std::filesystem::path temporary = std::filesystem::temp_directory_path();
  const std::string fresh = "zorreg-run-" + std::to_string(std::random_device()());
  const std::string scratch = (temporary / fresh).string();
  std::filesystem::create_directory(scratch);
  writeFile(scratch + "/in", input);
  const auto to = [&](const char* name) { return "'" + scratch + "/" + name + "' "; };
  const int status = std::system(shellCommand("'" ZORREG_PATH "' <" + to("in") + ">" + to("out") +
                                              "2>" + to("err") + arguments)
                                     .c_str());
  ToolRun run{exitStatus(status), readText(scratch + "/out"), readText(scratch + "/err")};
  std::filesystem::remove_all(scratch);
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
