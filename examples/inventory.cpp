// Lists the installed copies of the product and the instances made from them.
#include <iostream>

#include "zorgenreg.hpp"

int main() {
  try {
    for (const zor::Copy& copy : zor::copies()) {
      std::cout << "copy " << copy.name << ' ' << zor::versionText(copy.versionCode) << '\n';
    }
    std::error_code unread;  // one that cannot be read does not hide the others
    for (const zor::Instance& instance : zor::instances("ZOR", unread)) {
      std::cout << instance.name << " of " << instance.copyName << '\n';
    }
    if (unread) std::cout << "not all: " << unread.message() << '\n';
  } catch (const zor::Error& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
