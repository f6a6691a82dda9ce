#include "verbs.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>

#include "report.h"
#include "store.h"
#include "trial.h"

namespace tool {
namespace {

CLI::Option* addTo(CLI::App& command, const Argument& argument, bool& place) {
  return command.add_flag(argument.name, place, argument.help);
}

// Any place but a flag: an empty word reaches it, too.
template <typename Text>
CLI::Option* addTo(CLI::App& command, const Argument& argument, Text& place) {
  return command.add_option(argument.name, place, argument.help);
}

CLI::Option* addTo(CLI::App& command, const Argument& argument, std::optional<std::string>& place) {
  return command.add_option_function<std::string>(
      argument.name, [&place](const std::string& text) { place = text; }, argument.help);
}

template <typename Arguments>
void addArguments(CLI::App& command, const Arguments& arguments, Words& words) {
  for (const Argument* argument : arguments) {
    if (argument != nullptr) addArgument(command, *argument, words);
  }
}

int runChange(Store& store, const Change& change, const Words& words) {
  const int status = change.work(store, words);
  return status == exitDone ? reportChange(words, store.registry().isCommitted()) : status;
}

}  // namespace

void addArgument(CLI::App& command, const Argument& argument, Words& words) {
  CLI::Option* option = std::visit(
      [&](auto member) { return addTo(command, argument, words.*member); }, argument.place);
  option->required(argument.need == Need::Must || argument.need == Need::MustFilled);
  if (argument.need == Need::MayFilled || argument.need == Need::MustFilled) {
    option->check([](const std::string& text) {
      return std::string(text.empty() ? "must not be empty" : "");
    });
  }
  std::vector<std::string> choices;
  for (const char* choice : argument.choices) {
    if (choice != nullptr) choices.emplace_back(choice);
  }
  if (!choices.empty()) option->check(CLI::IsMember(choices));
}

int runVerb(Kind kind, const Verb& verb, const Words& given) {
  Words words = given;
  if (const int status = findFile(kind, words); status != exitDone) return status;
  std::error_code ignored;
  if (std::filesystem::is_directory(std::filesystem::u8path(words.file), ignored)) {
    return reportRefusal(words.file, "is a directory");
  }
  if (words.dryRun) return runOnCopy(kind, verb, words);
  if (const auto* whole = std::get_if<Whole>(&verb.run)) return (*whole)(kind, words);
  Store store(kind, words);
  if (store.status() != exitDone) return store.status();
  const auto* read = std::get_if<Read>(&verb.run);
  return read != nullptr ? (*read)(store, words)
                         : runChange(store, std::get<Change>(verb.run), words);
}

void addGroup(CLI::App& app, const Group& row, int& status, const RunVerb& run) {
  auto words = std::make_shared<Words>();
  CLI::App* group = app.add_subcommand(row.name, row.help);
  group->require_subcommand(1);
  addArguments(*group, row.takes, *words);
  forEachVerb(row, [&](const Verb& verb) {
    CLI::App* command = group->add_subcommand(verb.name, verb.help);
    addArguments(*command, verb.takes, *words);
    if (verb.isUpdate()) {
      for (const Argument& argument : updateArguments) addArgument(*command, argument, *words);
    }
    command->callback([&status, run, &verb, words] { status = run(verb, *words); });
  });
}

void addChanges(CLI::App& parent, Kind kind, Words& words,
                const std::function<void(const Verb&)>& run) {
  forEachVerb(groupOf(kind), [&](const Verb& verb) {
    if (!std::holds_alternative<Change>(verb.run)) return;
    CLI::App* command = parent.add_subcommand(verb.name, verb.help);
    addArguments(*command, verb.takes, words);
    command->callback([&verb, run] { run(verb); });
  });
}

}  // namespace tool
