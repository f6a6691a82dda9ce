// What the code was seen to do, written down to be compared with, and read by people when it
// changes.
#pragma once

#include <filesystem>

#include "support/registry_fixture.h"

// The text is what stands in tests/told/NAME.txt; `cp build/dev/told/*.txt tests/told` takes over
// what was found instead.
inline void expectTold(const std::string& name, const std::string& text) {
  const std::string file = "told/" + name + ".txt";
  const std::string expected = std::string(ZORGENREG_SOURCE_DIR) + "/tests/" + file;
  std::filesystem::create_directories("told");
  writeFile(file, text);
  EXPECT_TRUE(text == readFile(expected)) << "diff " << expected << ' ' << file;
}
