// Every input that fuzzing kept is run through its target again.
#include <filesystem>

#include "../fuzz/targets.h"
#include "support/registry_fixture.h"

namespace {

struct Target {
  const char* name;
  int (*run)(const std::uint8_t* data, std::size_t size);
};

class Corpus : public ::testing::TestWithParam<Target> {};

TEST_P(Corpus, EveryInputKeepsThePromises) {
  std::size_t count = 0;
  const std::string directory = std::string(FUZZ_CORPUS) + "/" + GetParam().name;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    const std::string bytes = readFile(entry.path().string());
    EXPECT_EQ(GetParam().run(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()), 0);
    ++count;
  }
  EXPECT_GT(count, 0u);
}

INSTANTIATE_TEST_SUITE_P(Targets, Corpus,
                         ::testing::Values(Target{"keyed_search", fuzzKeyedSearch},
                                           Target{"registry_export", fuzzRegistryExport},
                                           Target{"stored_record", fuzzStoredRecord},
                                           Target{"text_lines", fuzzTextLines}),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
