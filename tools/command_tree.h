// What the tree of commands knows of each command: its verbs, its options, the words between them.
#pragma once

#include <string>
#include <vector>

#include "cli_types.h"

namespace tool {

std::vector<const CLI::App*> verbsOf(const CLI::App& command);

// Null when there is none of that name.
const CLI::App* verbNamed(const CLI::App& command, const std::string& name);

// The options that a command takes, those of the one above it included where it takes them, too.
std::vector<const CLI::Option*> optionsOf(const CLI::App& command);
const CLI::Option* optionNamed(const CLI::App& command, const std::string& name);

// The words that stand for themselves, in their order.
std::vector<const CLI::Option*> placesOf(const CLI::App& command);

bool takesValue(const CLI::Option& option);
bool takesMany(const CLI::Option& option);

// The words that a value may be; none: anything.
std::vector<std::string> choicesOf(const CLI::Option& option);

// Whether a value is a file's name.
bool takesFile(const CLI::Option& option);

// "bin list"; empty for the tool itself.
std::string pathOf(const CLI::App& command);

// The first line of what the help says, without the mark that leads to the next one.
std::string summaryOf(const std::string& help);

}  // namespace tool
