// A process whose words, console and system texts are UTF-8, whatever the system's code page is.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "sysservices/environment.h"

namespace platform {

// The first thing that a program makes, and the last that goes.
class Utf8Process {
 public:
  // Of main's arguments. Throws std::invalid_argument for a word that no UTF-8 spells.
  Utf8Process(int count, char** words);
  // A console shows texts as it did before.
  ~Utf8Process();
  Utf8Process(const Utf8Process&) = delete;
  Utf8Process& operator=(const Utf8Process&) = delete;

  // What stands behind the program's name.
  const std::vector<std::string>& words() const { return words_; }

 private:
  std::vector<std::string> words_;
  [[maybe_unused]] unsigned int consoleBefore_ = 0;  // on Windows; 0: no console
};

// The value of an environment variable, if there is one. Throws std::invalid_argument for one that
// no UTF-8 spells.
inline std::optional<std::string> environmentValue(const char* name) {
  std::string value(64, '\0');
  for (;;) {
    const std::ptrdiff_t length = ossEnvironmentGet(name, value.data(), value.size());
    if (length == ossNoVariable) return std::nullopt;
    if (length < 0) throw std::invalid_argument(std::string(name) + " holds no text");
    const bool fits = static_cast<std::size_t>(length) < value.size();
    value.resize(static_cast<std::size_t>(length) + (fits ? 0 : 1));
    if (fits) return value;
  }
}

// Runs a command of the shell; whether it ended well.
bool runCommand(const std::string& command);

}  // namespace platform
