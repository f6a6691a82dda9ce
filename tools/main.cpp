// zorreg: look after registry files from the command line.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "commands.h"
#include "report.h"
#include "verbs.h"

int main(int argc, char** argv) {
  try {
    CLI::App app("Look after registry files.", "zorreg");
    app.set_version_flag("--version", ZORREG_VERSION);
    app.require_subcommand(1);
    // A value may begin with a slash, and options are written the same everywhere.
    app.allow_windows_style_options(false);
    int status = tool::exitDone;
    for (const tool::Kind kind : tool::allKinds) tool::addGroup(app, kind, status);
    tool::addCheckCommand(app, status);
    tool::addInstallCommands(app, status);
    try {
      app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      return app.exit(error) == 0 ? tool::exitDone : tool::exitUsage;
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
      return tool::reportFailure("standard output cannot be written");
    }
    return status;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zorreg: %s\n", error.what());
    return tool::exitFailed;
  }
}
