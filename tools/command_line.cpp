#include "command_line.h"

#include <CLI/CLI.hpp>
#include <cctype>
#include <cstdio>
#include <memory>
#include <sstream>

#include "command_tree.h"
#include "nearest.h"
#include "output.h"
#include "report.h"

namespace tool {
namespace {

const std::string json = "--json";

// Where words lead.
struct Route {
  const CLI::App* command;            // the last one that is named
  std::size_t end = 0;                // number of words up to its name
  std::vector<std::size_t> early;     // the --json before a verb
  std::string wrongVerb;              // that `command` does not have
  std::string wrongOption;            // the first that its command does not have
  const CLI::App* without = nullptr;  // that command
};

bool looksLikeOption(const std::string& word) {
  return word.size() > 1 && word[0] == '-' &&
         std::isdigit(static_cast<unsigned char>(word[1])) == 0;
}

// As the parser goes through them; where it is unsure, nothing is wrong.
Route routeOf(const CLI::App& app, const std::vector<std::string>& words) {
  Route route{&app, 0, {}, {}, {}, nullptr};
  std::size_t places = 0;
  for (std::size_t i = 0; i < words.size() && words[i] != "--"; ++i) {
    const CLI::App& command = *route.command;
    const bool wantsPlace = places < placesOf(command).size();
    const CLI::App* const verb = wantsPlace ? nullptr : verbNamed(command, words[i]);
    if (verb != nullptr) {
      route.command = verb;
      route.end = i + 1;
      places = 0;
    } else if (looksLikeOption(words[i])) {
      const std::string name = words[i].substr(0, words[i].find('='));
      const CLI::Option* option = optionNamed(command, name);
      if (option != nullptr) {
        if (takesValue(*option) && name == words[i]) ++i;
      } else if (name == json && !verbsOf(command).empty()) {
        route.early.push_back(i);
      } else if (route.without == nullptr) {
        route.wrongOption = name;
        route.without = &command;
      }
    } else if (wantsPlace) {
      ++places;
    } else if (!verbsOf(command).empty()) {
      route.wrongVerb = words[i];
      break;
    }
  }
  return route;
}

// "; did you mean list?", or nothing when no name is like the word.
std::string suggestion(const std::string& word, const std::vector<std::string>& names) {
  Nearest nearest(word);
  for (const std::string& name : names) nearest.consider(name);
  if (nearest.text().empty()) return {};
  return "; " + coloured("did you mean", Colour::Hint, stderr) + " " + printable(nearest.text()) +
         "?";
}

std::vector<std::string> namesOfVerbs(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::App* verb : verbsOf(command)) names.push_back(verb->get_name());
  return names;
}

std::string wrongVerb(const CLI::App& command, const std::string& word) {
  const std::string path = pathOf(command);
  return "'" + printable(word) + "' is no " + (path.empty() ? "command" : "verb of " + path) +
         suggestion(word, namesOfVerbs(command));
}

// An option of the command above is only out of place.
std::string wrongOption(const CLI::App& command, const std::string& word) {
  const std::string path = pathOf(command);
  const std::string text =
      "'" + printable(word) + "' is no option of " + (path.empty() ? command.get_name() : path);
  const CLI::App* const above = command.get_parent();
  if (above != nullptr && optionNamed(*above, word) != nullptr) {
    return text + "; it stands before " + command.get_name();
  }
  std::vector<std::string> names;
  for (const CLI::Option* option : optionsOf(command)) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  return text + suggestion(word, names);
}

// Help with its headings in colour.
void printHelp(const std::string& help) {
  std::istringstream lines(help);
  for (std::string line; std::getline(lines, line);) {
    const std::string usage = "Usage:";
    if (line.compare(0, usage.size(), usage) == 0) {
      line = coloured(usage, Colour::Heading, stdout) + line.substr(usage.size());
    } else if (!line.empty() && line[0] != ' ' && line.back() == ':') {
      line = coloured(line, Colour::Heading, stdout);
    }
    std::printf("%s\n", line.c_str());
  }
}

// What may follow a command that wants a verb and got none.
void printSummary(const CLI::App& command) {
  const std::string path = pathOf(command);
  std::string usage = coloured("usage:", Colour::Heading, stderr) + " zorreg ";
  if (!path.empty()) usage += path + " ";
  for (const CLI::Option* place : placesOf(command)) usage += place->get_name(true) + " ";
  std::fprintf(stderr, "%s%s ...\n", usage.c_str(), path.empty() ? "COMMAND" : "VERB");
  for (const CLI::App* verb : verbsOf(command)) {
    std::fprintf(stderr, "  %-12s %s\n", verb->get_name().c_str(),
                 summaryOf(verb->get_description()).c_str());
  }
  std::fprintf(stderr, "zorreg help %s says more\n", path.empty() ? "COMMAND" : path.c_str());
}

int reportWrong(const std::string& message) {
  std::fprintf(stderr, "%s %s\n", coloured("zorreg:", Colour::Error, stderr).c_str(),
               message.c_str());
  return exitUsage;
}

int help(const CLI::App& app, const std::vector<std::string>& names) {
  const CLI::App* command = &app;
  std::string above;
  for (const std::string& name : names) {
    const CLI::App* const verb = verbNamed(*command, name);
    if (verb == nullptr) return reportWrong(wrongVerb(*command, name));
    above += (above.empty() ? "" : " ") + command->get_name();
    command = verb;
  }
  // The tool itself would show the help of the command that was parsed: this one.
  printHelp(command == &app
                ? app.get_formatter()->make_help(&app, "zorreg", CLI::AppFormatMode::Normal)
                : command->help(above));
  return exitDone;
}

}  // namespace

std::vector<std::string> wordsOf(const CLI::App& app, std::vector<std::string> given) {
  const Route route = routeOf(app, given);
  if (route.early.empty() || route.early.front() >= route.end) return given;
  std::vector<std::string> placed;
  for (std::size_t i = 0; i < given.size(); ++i) {
    const bool early = std::find(route.early.begin(), route.early.end(), i) != route.early.end();
    if (!early) placed.push_back(given[i]);
    if (i + 1 == route.end) placed.push_back(json);
  }
  return placed;
}

int reportParse(const CLI::App& app, const std::vector<std::string>& words,
                const CLI::ParseError& error) {
  if (error.get_exit_code() == 0) {
    std::ostringstream shown;
    (void)app.exit(error, shown, shown);
    printHelp(shown.str());
    return exitDone;
  }
  const Route route = routeOf(app, words);
  if (route.without != nullptr) return reportWrong(wrongOption(*route.without, route.wrongOption));
  if (!route.wrongVerb.empty()) return reportWrong(wrongVerb(*route.command, route.wrongVerb));
  if (route.command->get_require_subcommand_min() > 0) {
    printSummary(*route.command);
    return exitUsage;
  }
  const std::string path = pathOf(*route.command);
  (void)reportWrong(printable(std::string(error.what())));
  std::fprintf(stderr, "zorreg help %s says more\n", path.c_str());
  return exitUsage;
}

void addHelpCommand(CLI::App& app, int& status) {
  auto names = std::make_shared<std::vector<std::string>>();
  CLI::App* command = app.add_subcommand("help", "what a command takes, as its --help");
  command->add_option("COMMAND", *names, "the command, and its verb");
  command->callback([&app, names, &status] { status = help(app, *names); });
}

}  // namespace tool
