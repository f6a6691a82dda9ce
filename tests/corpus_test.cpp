// Every input that fuzzing kept is run through its target again.
#include <filesystem>

#include "../fuzz/targets.h"
#include "support/registry_fixture.h"

namespace {

TEST(Corpus, EveryInputKeepsThePromises) {
  const std::pair<const char*, FuzzTarget*> targets[] = {
      {"keyed_search", fuzzKeyedSearch},       {"operations", fuzzOperations},
      {"registry_export", fuzzRegistryExport}, {"stored_record", fuzzStoredRecord},
      {"text_lines", fuzzTextLines},           {"words", fuzzWords}};
  for (const auto& [name, run] : targets) {
    std::size_t count = 0;
    for (const auto& input :
         std::filesystem::directory_iterator(FUZZ_CORPUS + ("/" + std::string(name)))) {
      const std::string bytes = readFile(input.path().string());
      EXPECT_EQ(run(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()), 0);
      ++count;
    }
    EXPECT_GT(count, 0u) << name;
  }
}

}  // namespace
