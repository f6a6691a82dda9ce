// zorreg completion SHELL: prints the script that completes the words of a command line in a shell,
// made from the tree of commands.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "command_tree.h"
#include "commands.h"
#include "completion_scripts.h"
#include "shell_word.h"

namespace tool {
namespace {

using Strings = std::vector<std::string>;

std::string joined(const Strings& words, const char* between = " ") {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : between) + word;
  return text;
}

std::string inFish(const std::string& text) { return shellWord(text, "\\'"); }

Strings namesOf(const CLI::Option& option) {
  Strings names;
  for (const std::string& name : option.get_snames()) names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
  return names;
}

// "help" takes the names of commands and their verbs, which are not its own.
bool takesCommands(const CLI::Option& place) { return place.get_name(true) == "COMMAND"; }

void forEachCommand(const CLI::App& command, const std::function<void(const CLI::App&)>& visit) {
  visit(command);
  for (const CLI::App* verb : verbsOf(command)) forEachCommand(*verb, visit);
}

const CLI::App& rootOf(const CLI::App& command) {
  return command.get_parent() == nullptr ? command : rootOf(*command.get_parent());
}

Strings verbNames(const CLI::App& command) {
  Strings names;
  for (const CLI::App* verb : verbsOf(command)) names.push_back(verb->get_name());
  return names;
}

// What may stand at a place: "FILE", words, or nothing that is known.
std::string wordsFor(const CLI::Option& option) {
  if (takesFile(option)) return "FILE";
  if (option.get_positional() && takesCommands(option)) return "COMMAND";
  return joined(choicesOf(option));
}

// A row of bash's table: the verbs, options and places of a command, and what its options take.
void printBashRow(const CLI::App& command) {
  Strings options, values, places;
  for (const CLI::Option* option : optionsOf(command)) {
    for (const std::string& name : namesOf(*option)) {
      options.push_back(name);
      if (takesValue(*option)) values.push_back(shellWord(name + "=" + wordsFor(*option)));
    }
  }
  for (const CLI::Option* place : placesOf(command)) places.push_back(shellWord(wordsFor(*place)));
  std::printf(
      "    %s)\n      verbs=%s\n      options=%s\n      values=(%s)\n      places=(%s)\n"
      "      ;;\n",
      shellWord(pathOf(command)).c_str(), shellWord(joined(verbNames(command))).c_str(),
      shellWord(joined(options)).c_str(), joined(values).c_str(), joined(places).c_str());
}

void printBash(const CLI::App& app) {
  std::printf("%s", bashHead);
  forEachCommand(app, printBashRow);
  std::printf("%s", bashTail);
}

// A text between brackets or after a colon of zsh's specifications.
std::string zshText(const std::string& help) {
  std::string text;
  for (const char character : summaryOf(help)) {
    if (character == ':' || character == '[' || character == ']' || character == '\\') text += '\\';
    text += character;
  }
  return text;
}

std::string zshName(const CLI::App& command) {
  std::string name = "_zorreg";
  for (const char character : " " + pathOf(command)) name += character == ' ' ? '_' : character;
  return name;
}

std::string zshAction(const CLI::Option& option) {
  if (takesFile(option)) return "_files";
  const Strings choices = choicesOf(option);
  return choices.empty() ? " " : "(" + joined(choices) + ")";
}

Strings zshArguments(const CLI::App& command) {
  Strings arguments;
  for (const CLI::Option* option : optionsOf(command)) {
    for (const std::string& name : namesOf(*option)) {
      std::string text = name + "[" + zshText(option->get_description()) + "]";
      if (takesValue(*option)) text += ":" + name.substr(2) + ":" + zshAction(*option);
      arguments.push_back(shellWord(text));
    }
  }
  std::size_t number = 0;
  for (const CLI::Option* place : placesOf(command)) {
    const bool many = takesMany(*place);
    std::string argument = many ? "*" : std::to_string(++number);
    argument.append(":").append(zshText(place->get_name(true))).append(":");
    argument += takesCommands(*place) ? "->command" : zshAction(*place);
    arguments.push_back(shellWord(argument));
  }
  if (!verbsOf(command).empty()) {
    arguments.push_back(shellWord(std::to_string(number + 1) + ":verb:->verb"));
    arguments.push_back(shellWord("*::words:->words"));
  }
  return arguments;
}

void printZshVerbs(const char* state, const CLI::App& command) {
  std::printf("    %s)\n      local -a verbs=(\n", state);
  for (const CLI::App* verb : verbsOf(command)) {
    const std::string row = verb->get_name() + ":" + summaryOf(verb->get_description());
    std::printf("        %s\n", shellWord(row).c_str());
  }
  std::printf("      )\n      _describe verb verbs\n      ;;\n");
}

void printZshFunction(const CLI::App& command) {
  const bool isHelp = !placesOf(command).empty() && takesCommands(*placesOf(command).front());
  std::printf("%s() {\n  local curcontext=$curcontext state line\n  typeset -A opt_args\n",
              zshName(command).c_str());
  std::printf("  _arguments -C \\\n    %s\n", joined(zshArguments(command), " \\\n    ").c_str());
  if (isHelp || !verbsOf(command).empty()) std::printf("  case $state in\n");
  if (isHelp) printZshVerbs("command", rootOf(command));
  if (!verbsOf(command).empty()) {
    printZshVerbs("verb", command);
    // The words of a verb begin with its name.
    const std::size_t before = placesOf(command).size();
    std::printf("    words)\n      (( CURRENT -= %zu ))\n      shift %zu words\n", before, before);
    std::printf("      case $words[1] in\n");
    for (const CLI::App* verb : verbsOf(command)) {
      std::printf("        %s) %s ;;\n", verb->get_name().c_str(), zshName(*verb).c_str());
    }
    std::printf("      esac\n      ;;\n");
  }
  if (isHelp || !verbsOf(command).empty()) std::printf("  esac\n");
  std::printf("}\n\n");
}

void printZsh(const CLI::App& app) {
  std::printf("%s", zshHead);
  forEachCommand(app, printZshFunction);
  std::printf("%s", zshTail);
}

void printFishCandidates(const std::string& condition, const std::string& words) {
  const std::string line = "complete -c zorreg -n " + condition;
  if (words == "FILE") {
    std::printf("%s -F\n", line.c_str());
  } else if (!words.empty()) {
    std::printf("%s -a %s\n", line.c_str(), inFish(words).c_str());
  }
}

void printFishOption(const CLI::App& command, const CLI::Option& option) {
  std::string line = "complete -c zorreg -n \"__zorreg_in '" + pathOf(command) + "'\"";
  for (const std::string& name : option.get_snames()) line += " -s " + name;
  for (const std::string& name : option.get_lnames()) line += " -l " + name;
  const std::string words = wordsFor(option);
  if (takesValue(option)) line += words == "FILE" ? " -r -F" : " -x";
  if (takesValue(option) && words != "FILE" && !words.empty()) line += " -a " + inFish(words);
  std::printf("%s -d %s\n", line.c_str(), inFish(summaryOf(option.get_description())).c_str());
}

void printFishCommand(const CLI::App& command) {
  std::size_t count = 0;
  const auto at = [&] {
    return "\"__zorreg_at " + std::to_string(count) + " '" + pathOf(command) + "'\"";
  };
  for (const CLI::Option* place : placesOf(command)) {
    const bool commands = takesCommands(*place);
    printFishCandidates(at(), commands ? joined(verbNames(rootOf(command))) : wordsFor(*place));
    ++count;
  }
  for (const CLI::App* verb : verbsOf(command)) {
    std::printf("complete -c zorreg -n %s -a %s -d %s\n", at().c_str(), verb->get_name().c_str(),
                inFish(summaryOf(verb->get_description())).c_str());
  }
  for (const CLI::Option* option : optionsOf(command)) printFishOption(command, *option);
}

void printFish(const CLI::App& app) {
  Strings commands, valued, places;
  forEachCommand(app, [&](const CLI::App& command) {
    if (&command != &app) commands.push_back(inFish(pathOf(command)));
    for (std::size_t i = 0; !verbsOf(command).empty() && i < placesOf(command).size(); ++i) {
      places.push_back(inFish(std::to_string(i) + " " + pathOf(command)));
    }
    for (const CLI::Option* option : optionsOf(command)) {
      if (!takesValue(*option)) continue;
      for (const std::string& name : namesOf(*option)) {
        valued.push_back(inFish(pathOf(command) + " " + name));
      }
    }
  });
  std::printf(fishHead, joined(commands).c_str(), joined(valued).c_str(), joined(places).c_str());
  forEachCommand(app, printFishCommand);
}

struct Shell {
  const char* name;
  void (*print)(const CLI::App& app);
};
constexpr Shell shells[] = {{"bash", printBash}, {"zsh", printZsh}, {"fish", printFish}};

}  // namespace

void addCompletionCommand(CLI::App& app, int& status) {
  auto name = std::make_shared<std::string>();
  CLI::App* command = app.add_subcommand(
      "completion", "print the script that completes this tool's words in a shell");
  Strings names;
  for (const Shell& shell : shells) names.emplace_back(shell.name);
  command->add_option("SHELL", *name, "bash, zsh or fish")->required()->check(CLI::IsMember(names));
  command->callback([&app, name, &status] {
    for (const Shell& shell : shells) {
      if (*name == shell.name) shell.print(app);
    }
    status = 0;
  });
}

}  // namespace tool
