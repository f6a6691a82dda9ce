#include <iostream>

#include "zorgenreg.hpp"

int main() {
  zor::Variables settings("settings.reg");
  settings.set({"Timeout", 30, "seconds"});  // locked, synced, verified, renamed into place
  if (auto found = settings.get("Timeout")) std::cout << "Timeout is " << found->value << '\n';
  for (const auto& setting : settings) std::cout << "- " << setting.name << '\n';
}
