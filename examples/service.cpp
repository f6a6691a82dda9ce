// service FILE NAME|PORT: what a services file says of a name or a tcp port.
#include <cstdlib>
#include <iostream>

#include "zorgenreg.hpp"

int main(int count, char** words) {
  if (count != 3) return 2;
  zor::Services services(words[1]);
  services.cacheReads(true);  // for a program that asks often
  std::error_code error;
  const auto port = static_cast<std::uint16_t>(std::strtoul(words[2], nullptr, 10));
  const auto found = port != 0 ? services.get(port, "tcp", error) : services.get(words[2], error);
  if (error) std::cerr << services.cause() << '\n';
  if (error || !found) return 1;
  std::cout << found->name << ' ' << found->port << '/' << found->protocol;
  for (const std::string& alias : found->aliases) std::cout << ' ' << alias;
  std::cout << '\n';
}
