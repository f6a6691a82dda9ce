// zorreg version, zorreg copies, zorreg instances: what the machine's registry says of the product.
#pragma once

#include <CLI/CLI.hpp>

namespace zorreg {

// Adds the commands to the command line; one that was given stores its exit status at `status`.
void addInstallCommands(CLI::App& app, int& status);

}  // namespace zorreg
