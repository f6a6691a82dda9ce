// Runs the tool that was built beside the tests.
#pragma once

#include "support/registry_fixture.h"

struct ToolRun {
  int status;
  std::string output;
  std::string error;
};

// `arguments` pass a shell and may redirect again; `input` is the tool's standard input.
ToolRun runTool(const std::string& arguments, const std::string& input = "");
