// zorreg check FILE: is a registry whole, and what will its next update do.
#pragma once

#include <CLI/CLI.hpp>

namespace zorreg {

// Adds the verb to the command line; its exit status goes to `status`.
void addCheckCommand(CLI::App& app, int& status);

}  // namespace zorreg
