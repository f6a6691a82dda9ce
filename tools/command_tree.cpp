#include "command_tree.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

namespace tool {

std::vector<const CLI::App*> verbsOf(const CLI::App& command) {
  return command.get_subcommands([](const CLI::App*) { return true; });
}

const CLI::App* verbNamed(const CLI::App& command, const std::string& name) {
  for (const CLI::App* verb : verbsOf(command)) {
    if (verb->check_name(name)) return verb;
  }
  return nullptr;
}

std::vector<const CLI::Option*> optionsOf(const CLI::App& command) {
  auto options = command.get_options([](const CLI::Option* option) {
    return option->nonpositional() && !option->get_positional();
  });
  if (command.get_fallthrough() && command.get_parent() != nullptr) {
    for (const CLI::Option* option : optionsOf(*command.get_parent())) {
      if (option->get_name() != "--help") options.push_back(option);
    }
  }
  return options;
}

const CLI::Option* optionNamed(const CLI::App& command, const std::string& name) {
  const auto options = optionsOf(command);
  const auto found = std::find_if(options.begin(), options.end(), [&](const CLI::Option* option) {
    return option->check_name(name);
  });
  return found == options.end() ? nullptr : *found;
}

std::vector<const CLI::Option*> placesOf(const CLI::App& command) {
  return command.get_options([](const CLI::Option* option) { return option->get_positional(); });
}

bool takesValue(const CLI::Option& option) { return option.get_items_expected_max() > 0; }

bool takesMany(const CLI::Option& option) { return option.get_items_expected_max() > 1; }

// The name of the type ends with what its check allows: "TEXT:{bin,global}".
std::vector<std::string> choicesOf(const CLI::Option& option) {
  const std::string type = option.get_type_name();
  const std::size_t open = type.find('{');
  const std::size_t close = type.find('}');
  std::vector<std::string> choices;
  if (open == std::string::npos || close == std::string::npos) return choices;
  std::istringstream words(type.substr(open + 1, close - open - 1));
  for (std::string word; std::getline(words, word, ',');) choices.push_back(word);
  return choices;
}

bool takesFile(const CLI::Option& option) {
  return option.get_positional() ? option.get_name(true) == "FILE" : option.check_name("--file");
}

std::string pathOf(const CLI::App& command) {
  if (command.get_parent() == nullptr) return {};
  const std::string above = pathOf(*command.get_parent());
  return above.empty() ? command.get_name() : above + " " + command.get_name();
}

std::string summaryOf(const std::string& help) {
  const std::string line = help.substr(0, help.find('\n'));
  return line.substr(0, line.find_last_not_of(";,: ") + 1);
}

}  // namespace tool
