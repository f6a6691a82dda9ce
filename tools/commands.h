// The commands of the tool. Each function adds its own to the command line; a verb that was given
// stores its exit status at `status`.
#pragma once

#include <CLI/CLI.hpp>

namespace zorreg {

void addBinCommand(CLI::App& app, int& status);
void addVarCommand(CLI::App& app, int& status);
void addServicesCommand(CLI::App& app, int& status);
void addGlobalCommand(CLI::App& app, int& status);
void addCheckCommand(CLI::App& app, int& status);
void addExportCommand(CLI::App& app, int& status);
void addCompletionCommand(CLI::App& app, int& status);
void addInstallCommands(CLI::App& app, int& status);

}  // namespace zorreg
