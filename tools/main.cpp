// zorreg: look after registry files from the command line.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "bin_command.h"
#include "install_command.h"
#include "report.h"

int main(int argc, char** argv) {
  try {
    CLI::App app("Look after registry files.", "zorreg");
    app.set_version_flag("--version", ZORREG_VERSION);
    app.require_subcommand(1);
    int status = zorreg::exitDone;
    zorreg::addBinCommand(app, status);
    zorreg::addInstallCommands(app, status);
    try {
      app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      return app.exit(error) == 0 ? zorreg::exitDone : zorreg::exitUsage;
    }
    return status;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zorreg: %s\n", error.what());
    return zorreg::exitFailed;
  }
}
