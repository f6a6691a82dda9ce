// zorreg: look after registry files from the command line.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "commands.h"
#include "file_verbs.h"
#include "report.h"

int main(int argc, char** argv) {
  try {
    CLI::App app("Look after registry files.", "zorreg");
    app.set_version_flag("--version", ZORREG_VERSION);
    app.require_subcommand(1);
    // A value may begin with a slash, and options are written the same everywhere.
    app.allow_windows_style_options(false);
    int status = zorreg::exitDone;
    zorreg::addBinCommand(app, status);
    zorreg::addGlobalCommand(app, status);
    zorreg::addVarCommand(app, status);
    zorreg::addServicesCommand(app, status);
    zorreg::addFileVerbs(app, status);
    zorreg::addCheckCommand(app, status);
    zorreg::addInstallCommands(app, status);
    try {
      app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      return app.exit(error) == 0 ? zorreg::exitDone : zorreg::exitUsage;
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
      return zorreg::reportFailure("standard output cannot be written");
    }
    return status;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zorreg: %s\n", error.what());
    return zorreg::exitFailed;
  }
}
