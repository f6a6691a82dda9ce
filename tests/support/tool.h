// Runs the tool that was built beside the tests.
#pragma once

#include "support/registry_fixture.h"

struct ToolRun {
  int status;
  std::string output;
  std::string error;
};

// One run of the tool: its arguments and input, and what must come of it.
struct ToolStep {
  std::string arguments;
  int status;
  std::string output = "";
  std::string error = "";  // a part of what is on standard error
  std::string input = "";
};
void expectSteps(const std::string& prefix, const std::vector<ToolStep>& steps);

// `arguments` are words with blanks between them, in single quotes where they hold any. `input` is
// the tool's standard input.
ToolRun runTool(const std::string& arguments, const std::string& input = "");
