#include "support/tool.h"

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
