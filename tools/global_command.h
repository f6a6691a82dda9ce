// zorreg global ...: the global registry.
#pragma once

#include <CLI/CLI.hpp>

namespace zorreg {

// Adds the group to the command line; a verb that was given stores its exit status at `status`.
void addGlobalCommand(CLI::App& app, int& status);

}  // namespace zorreg
