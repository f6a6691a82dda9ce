// The commands of the tool that are no verbs of a kind of registries. Each function adds its own to
// the command line; one that was given stores its exit status at `status`.
#pragma once

#include "cli_types.h"

namespace tool {

void addCheckCommand(CLI::App& app, int& status);
void addExportCommand(CLI::App& app, int& status);
void addCompletionCommand(CLI::App& app, int& status);
void addInstallCommands(CLI::App& app, int& status);

}  // namespace tool
