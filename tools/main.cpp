// zorreg: look after registry files from the command line.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "command_line.h"
#include "commands.h"
#include "platform/tool/utf8_process.h"
#include "report.h"
#include "verbs.h"

int main(int argc, char** argv) {
  try {
    const platform::Utf8Process process(argc, argv);
    CLI::App app("Look after registry files.", "zorreg");
    app.set_version_flag("--version", ZORREG_VERSION);
    app.require_subcommand(1);
    // A value may begin with a slash, and options are written the same everywhere.
    app.allow_windows_style_options(false);
    int status = tool::exitDone;
    for (const tool::Kind kind : tool::allKinds) {
      tool::addGroup(app, tool::groupOf(kind), status, [kind](const auto& verb, const auto& words) {
        return tool::runVerb(kind, verb, words);
      });
    }
    tool::addCheckCommand(app, status);
    tool::addExportCommand(app, status);
    tool::addInstallCommands(app, status);
    tool::addHelpCommand(app, status);
    tool::addCompletionCommand(app, status);
    const std::vector<std::string> words = tool::wordsOf(app, process.words());
    try {
      app.parse(std::vector<std::string>(words.rbegin(), words.rend()));
    } catch (const CLI::ParseError& error) {
      status = tool::reportParse(app, words, error);
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
