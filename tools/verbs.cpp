#include "verbs.h"

namespace zorreg {
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

}  // namespace zorreg
