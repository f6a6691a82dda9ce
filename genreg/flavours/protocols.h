// The protocols that a services registry knows.
#pragma once

#include <string_view>

namespace genreg {

inline constexpr std::string_view protocols[] = {"tcp", "udp", "ddp", "divert"};

constexpr bool isProtocol(std::string_view word) noexcept {
  for (const std::string_view protocol : protocols) {
    if (word == protocol) return true;
  }
  return false;
}

}  // namespace genreg
