// The words of a command line beside the tree of commands: where they lead, and what is wrong with
// them.
#pragma once

#include <string>
#include <vector>

#include "cli_types.h"

namespace tool {

// The words after the program's name, a "--json" that stands before its verb moved behind that.
std::vector<std::string> wordsOf(const CLI::App& app, std::vector<std::string> given);

// Prints what the parsing ended with: help, the version, or what is wrong, with the nearest word
// that is right. Gives the exit status.
int reportParse(const CLI::App& app, const std::vector<std::string>& words,
                const CLI::ParseError& error);

// zorreg help [COMMAND...]
void addHelpCommand(CLI::App& app, int& status);

}  // namespace tool
